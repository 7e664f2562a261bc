#pragma once
// Start-up and shutdown of the library, the crash report and a few facts about the running module.
//
// A host calls vl_initialize once, early in its main function; a tool or a plug-in host calls vl_fast_initialize.
// vl_closedown ends either. All three run on the process's main thread while no other thread uses the library. There
// is one life per process: the instance claim and the heap set are not made a second time.

#include <cstdint>

#include "export.h"

/// Starts every service of the library, in a fixed order, and writes the start-up banner into the log.
///
/// @param application_name  names the log file, the data folder and the instance claim "<name>_STARTER".
/// @param data_path         name of an environment variable that holds the data folder; null for the usual folder.
/// @param argument_count, argument_vector  the process's own. Argument 0 is the module's path. Letters behind a "-":
///          each "d" or "D" raises the log's level by one after start-up; "p" or "P" followed by a number (in the same
///          argument, or as the next one) sets the number of processing threads, 0 meaning one per core.
/// @return  false when another instance of the same name runs for the same user (also in this process, and after
///          vl_closedown): nothing was started. True otherwise.
/// Installs handlers for the fatal signals 4, 11, 12, 15 and the bad system call, sets the process's file-creation
/// mask to 0 and turns standard error into the log file.
[[nodiscard]] VELL_API bool vl_initialize(const char* application_name, const char* data_path, int32_t argument_count,
                                          const char* const* argument_vector) noexcept;

/// fork(): a child has the state of its parent and one thread. Every call of the library works in it, with these rules.
/// The worker, pool and transfer threads stay the parent's: objects that were queued are run by the parent, jobs of the
/// pool run on their callers, transfers that were in flight are read again or, writes, end with ECANCELED; a new worker
/// and new transfer threads start when they are wanted. Threads of mp_start_thread can be neither joined nor cancelled.
/// Log lines go into the parent's log, a crash report to what was standard error before start-up, until the child opens
/// a log of its own. HTTP and WebSocket connections stay the parent's. The instance claim too. vl_closedown closes the
/// child's copies only. A heap or the table of libraries that a host's callback or a library's constructor on another
/// thread held for a second when fork was called is lost in the child: its calls fail there. Desktop services may hang
/// in the child when another thread was inside one. vfork and posix_spawn are not concerned.
/// @waits   fork waits until the library's locks are free: for the calls of other threads that are under way, at most
///          a second for host code that runs under one. Do not call the library from handlers of pthread_atfork.

/// The short form for tools: no instance claim, signal handlers, banner, language or processing pool; the log goes
/// to the standard error stream at level MSG_WARN. Sets the file-creation mask to 0.
///
/// @param executable_path  the module's path; may be null or empty when it is not known.
/// @param allocate_heaps   true makes the heap set (mem_alloc_pools).
/// @return  true.
VELL_API bool vl_fast_initialize(const char* executable_path, bool allocate_heaps) noexcept;

/// Stops every service. No pool job may be running and no other thread may be inside a heap call. Restores the signal
/// handlers that vl_initialize replaced, except those that the host has replaced since. Harmless when nothing was
/// started, and a second time.
VELL_API void vl_closedown() noexcept;

/// Copies the running module's full path.
///
/// @param destination  receives at most `length` bytes. Kept: no terminator is added when the path fills them; the
///                     rest is filled with zeros.
/// @return  false, with `destination` untouched, when the path is not known or an argument is null, 0 or negative.
VELL_API bool vl_modulename(char* destination, int32_t length) noexcept;

/// Writes the crash report into the log: "Fatal Error, Exception: 0x%08x, Thread: %s" between two lines of stars.
/// The thread that started the library and has no name in the thread table is called "VL-Main".
/// Under sig_handler it never waits long: after 100 ms on a lock that another thread holds it goes on without it. There
/// the report goes to standard error when the log is closed, switched off by a negative level or has a stream without a
/// descriptor, and a line that the log's descriptor does not take within 100 ms does as well.
/// @return  0.
VELL_API int32_t vellExceptionFilter(int32_t code, void* ignored) noexcept;

/// What the fatal signals lead to: writes the crash report and ends the process by abort. Other signals wait on its
/// thread meanwhile. A thread of the host's own should call mp_protect_thread first thing: without it a stack overflow
/// on that thread ends the process without a report.
[[noreturn]] VELL_API void sig_handler(int signal_number) noexcept;

/// The answer of the instance claim's port: `message_data` as it came.
VELL_API const void* MainThreadResponseHandler(void* port, int32_t message_id, const void* message_data,
                                               void* info) noexcept;

/// Writes a fresh random UUID as 36 characters of text, padded with zeros to 64 bytes.
/// @return  `destination_64`; null when it is null.
VELL_API char* vl_create_uuid(char* destination_64) noexcept;

/// Fixed answers for hosts that know a restart protocol: nothing is ever restarted or awaited.
VELL_API int32_t vl_get_instance_update() noexcept;           ///< 0
VELL_API int32_t RA_CheckProcessWasRestarted() noexcept;      ///< 0
VELL_API int32_t RA_WaitForPreviousProcessFinish() noexcept;  ///< 0
VELL_API int32_t RA_DoRestartProcessFinish() noexcept;        ///< 0
VELL_API int32_t RA_ActivateRestartProcess() noexcept;        ///< 1
