#pragma once
// Plug-in libraries: found along the search list, loaded once however often they are opened, unloaded with the last
// reference.
//
// Any thread may call everything here. One lock guards the table and is held while a library loads and unloads, so its
// constructors and destructors run under it; they may open and close libraries themselves. A host that also calls the
// system's loader directly must not let the constructors of what it loads that way call in here: that thread would
// hold the loader's lock and want the table's, while another holds the table's and wants the loader's.

#include <cstddef>

#include "export.h"

/// One loaded library.
struct lib_entry {
    char name[1024];               ///< as the caller gave it
    void* handle;                  ///< the loader's
    unsigned int reference_count;  ///< opened this many times more often than closed
};
static_assert(sizeof(lib_entry) == 1040 && offsetof(lib_entry, handle) == 1024, "hosts know the layout");

/// The `entry` of the last vl_rundll; null before. The text is that caller's.
extern VELL_API const char* gMainDLLEntryName;

/// Creates the table of loaded libraries unless there is one. Part of start-up; opening a library does it too.
VELL_API void vl_lib_initialize() noexcept;

/// Opens a library: the one that is in the table under this name, or a file that file_find finds. Kept: that is the
/// file `name` itself first, so for a plain name the current folder wins.
///
/// @param name   at most 1023 bytes; compared byte by byte with the names that libraries were opened under.
/// @param flags  2: its symbols serve libraries loaded later; without it they stay its own. Other bits do nothing.
///               Symbols are bound when they are first used.
/// @return  the loader's handle, for vl_resolve_symbol and one vl_close_library; null when there is no such file
///          (no message) or it cannot be loaded: the warning is "Can't open module: '%s'", continued by the loader's
///          own lines.
/// Loading for more than a second is the warning "Library loader took %.3f for: %s".
/// @waits  while another thread loads or unloads a library.
[[nodiscard]] VELL_API void* vl_open_library(const char* name, int flags) noexcept;

/// Gives back one reference; the last one unloads the library. A handle that is not in the table is ignored.
/// @param ignored  has no effect.
VELL_API void vl_close_library(void* handle, bool ignored = false) noexcept;

/// A symbol's address in a library and in those it was linked with; null when there is none, and for a null argument.
[[nodiscard]] VELL_API void* vl_resolve_symbol(void* handle, const char* symbol) noexcept;

/// Runs a library's function as a small program: opens `name` with the system's suffix (".so") added, calls
/// `int entry(int, char**)` and gives the reference back.
/// @return  its result; -1 when the library cannot be opened or has no such function (the error line is
///          "RUNDLL: Entry '%s' not found"); -2 when it threw. A thread that is ended inside (pthread_exit,
///          pthread_cancel) unwinds through this call, which closes the library.
VELL_API int vl_rundll(const char* name, const char* entry, int argc, char** argv);

/// gMainDLLEntryName.
[[nodiscard]] VELL_API const char* vl_get_main_dll_entry_name() noexcept;

/// Gives back one reference of each library, last loaded first, and forgets the table. Part of shutdown.
/// Kept: a library that was opened several times stays loaded.
VELL_API void vl_lib_closedownall() noexcept;
