// The table of loaded libraries. `table_lock` guards it and is held while a library loads or unloads; the thread that
// holds it comes back in when a library's constructor or destructor calls here, so whatever calls the loader looks at
// the table anew afterwards.

#include "vellcore/dynamic_library.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <thread>

#include "files/app_folders.h"
#include "platform/fork_handlers.h"
#include "platform/library_loader.h"
#include "platform/lock.h"
#include "vellcore/file_operations.h"
#include "vellcore/message_log.h"
#include "vellcore/threads.h"
#include "vellcore/vector.h"

const char* gMainDLLEntryName = nullptr;

namespace vell {
namespace {

constexpr uint32_t k_expected_libraries = 128;
constexpr int k_share_symbols = 2;
constexpr double k_slow_seconds = 1.0;

Mutex table_lock;
std::atomic<std::thread::id> table_owner;          // the thread that holds table_lock
std::atomic<uint32_t> times_taken{0};              // table_lock
vl_vector<lib_entry>* loaded_libraries = nullptr;  // in loading order; null before start-up and after shutdown

/// Holds the table to the end of the scope; does nothing in the thread that holds it already.
class TableLock {
public:
    TableLock() noexcept VELL_NO_LOCK_CHECK : is_nested_(table_owner.load() == std::this_thread::get_id()) {
        if (is_nested_) return;
        table_lock.lock();
        table_owner.store(std::this_thread::get_id());
        count_turn(times_taken);
    }
    ~TableLock() VELL_NO_LOCK_CHECK {
        if (is_nested_) return;
        table_owner.store(std::thread::id());
        table_lock.unlock();
    }
    TableLock(const TableLock&) = delete;
    TableLock& operator=(const TableLock&) = delete;

private:
    CancelShield shield_;
    bool is_nested_;
};

// --- fork: constructors and destructors of libraries run under the lock, so it is not waited for without limit -------

bool is_held_for_fork = false;              // by the forking thread, on behalf of the fork
std::atomic<bool> is_lost_in_child{false};  // another thread was loading: the table and the loader stay locked

void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    is_held_for_fork = table_owner.load() != std::this_thread::get_id() && lock_unless_stalled(times_taken, table_lock);
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    if (is_held_for_fork) table_lock.unlock();
}

void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
    if (table_owner.load() == std::this_thread::get_id()) return;  // it forked while it loads, and goes on with that
    if (is_held_for_fork) return table_lock.unlock();
    is_lost_in_child.store(true);
    table_owner.store(std::thread::id());
    new (&table_lock) Mutex;
}

const ForkEntry fork_entry(ForkOrder::library_table, {lock_before_fork, unlock_after_fork, renew_in_child});

/// The last entry that `matches`; null when there is none.
template <class Matches>
lib_entry* find_last(Matches matches) noexcept {
    if (loaded_libraries == nullptr || is_lost_in_child.load()) return nullptr;
    for (uint32_t i = loaded_libraries->count(); i-- > 0;) {
        lib_entry& entry = (*loaded_libraries)[i];
        if (matches(entry)) return &entry;
    }
    return nullptr;
}

lib_entry* find_name(const char* name) noexcept {
    return find_last([name](const lib_entry& entry) { return std::strcmp(entry.name, name) == 0; });
}

/// Writes a line for each line of the loader's text, which is data and no format.
void continue_with_lines(std::string_view text) noexcept {
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        msgcont("%.*s", static_cast<int>(line.size()), line.data());
        text.remove_prefix(line.size() < text.size() ? line.size() + 1 : line.size());
    }
}

void* load(const char* path, int flags, const char* name) noexcept {
    void* handle = dlopen(path, library_mode((flags & k_share_symbols) != 0));
    if (handle != nullptr) return handle;
    const char* reason = dlerror();
    if (msgwarn("Can't open module: '%s'", name) != 0 && reason != nullptr) continue_with_lines(reason);
    return nullptr;
}

constexpr char k_here[] = "./";
constexpr size_t k_here_length = sizeof k_here - 1;
using PathWithHere = char[k_here_length + k_path_bytes];

/// Finds the file. A plain name gets a "./", or the loader would look along its own path.
const char* find_file(const char* name, PathWithHere& path) noexcept {
    char* found = path + k_here_length;
    if (file_find(name, found) == 0) return nullptr;
    if (std::strchr(found, '/') != nullptr) return found;
    std::memcpy(path, k_here, k_here_length);
    return path;
}

/// Enters what was just loaded. While it loaded, its constructors may have entered it.
void enter(const char* name, void* handle) noexcept {
    lib_entry* entry = find_name(name);
    if (entry != nullptr && entry->handle == handle) {
        ++entry->reference_count;
        dlclose(handle);  // The loader counts too; the entry stands for one of its references.
        return;
    }
    lib_entry fresh{};
    std::strncpy(fresh.name, name, sizeof fresh.name - 1);
    fresh.handle = handle;
    fresh.reference_count = 1;
    // The vector reports when it cannot grow; the library stays loaded then, for good.
    if (loaded_libraries != nullptr) loaded_libraries->append(fresh);
}

void warn_if_slow(double seconds, const char* path) noexcept {
    if (!(seconds > k_slow_seconds)) return;
    const long thousandths = std::lround(seconds * 1000);  // not by printf, whose point depends on the locale
    msgwarn("Library loader took %ld.%03ld for: %s", thousandths / 1000, thousandths % 1000, path);
}

/// Calls a library's function. What it throws ends here; unwinding that is no C++ exception, as when the thread is
/// ended, goes on.
int call_entry(int (*entry)(int, char**), int argc, char** argv, int if_thrown) {
    try {
        return entry(argc, argv);
    } catch (...) {
        if (abi::__cxa_current_exception_type() == nullptr) throw;
        return if_thrown;
    }
}

/// Gives a library's reference back when the scope ends, also by the unwinding of its thread.
class OpenLibrary {
public:
    explicit OpenLibrary(void* handle) noexcept : handle_(handle) {}
    ~OpenLibrary() { vl_close_library(handle_); }
    OpenLibrary(const OpenLibrary&) = delete;
    OpenLibrary& operator=(const OpenLibrary&) = delete;

private:
    void* handle_;
};

}  // namespace
}  // namespace vell

void vl_lib_initialize() noexcept {
    const vell::TableLock lock;
    if (vell::loaded_libraries == nullptr)
        vell::loaded_libraries = new (std::nothrow) vl_vector<lib_entry>(vell::k_expected_libraries);
}

void* vl_open_library(const char* name, int flags) noexcept {
    if (name == nullptr || *name == '\0' || std::strlen(name) >= sizeof(lib_entry::name)) return nullptr;
    const vell::TableLock lock;
    if (vell::is_lost_in_child.load()) {
        msgwarn("Can't open module: '%s'", name);
        msgcont("another thread was loading a library when this process was forked");
        return nullptr;
    }
    vl_lib_initialize();
    if (lib_entry* entry = vell::find_name(name)) {
        ++entry->reference_count;
        if (entry->handle != nullptr) return entry->handle;
    }
    const double start = mp_getclock();
    vell::PathWithHere buffer;
    const char* path = vell::find_file(name, buffer);
    if (path == nullptr) return nullptr;
    void* handle = vell::load(path, flags, name);
    if (handle == nullptr) return nullptr;
    vell::enter(name, handle);
    vell::warn_if_slow(mp_getclock() - start, path);
    return handle;
}

void vl_close_library(void* handle, bool) noexcept {
    const vell::TableLock lock;
    lib_entry* entry = vell::find_last([handle](const lib_entry& each) { return each.handle == handle; });
    if (entry == nullptr || --entry->reference_count > 0) return;
    vell::loaded_libraries->remove(static_cast<uint32_t>(entry - vell::loaded_libraries->data()));
    if (handle != nullptr) dlclose(handle);
}

void* vl_resolve_symbol(void* handle, const char* symbol) noexcept {
    return handle != nullptr && symbol != nullptr ? dlsym(handle, symbol) : nullptr;
}

int vl_rundll(const char* name, const char* entry, int argc, char** argv) {
    constexpr int k_failed = -1, k_thrown = -2;
    std::atomic_ref(gMainDLLEntryName).store(entry);
    char path[sizeof(lib_entry::name)];
    const int length = std::snprintf(path, sizeof path, "%s%s", name != nullptr ? name : "", vell::library_suffix);
    if (name == nullptr || length < 0 || static_cast<size_t>(length) >= sizeof path) return k_failed;
    void* handle = vl_open_library(path, 0);
    if (handle == nullptr) return k_failed;
    const vell::OpenLibrary library(handle);
    const auto function = reinterpret_cast<int (*)(int, char**)>(vl_resolve_symbol(handle, entry));
    if (function == nullptr) {
        msgerror("RUNDLL: Entry '%s' not found", entry != nullptr ? entry : "");
        return k_failed;
    }
    return vell::call_entry(function, argc, argv, k_thrown);
}

const char* vl_get_main_dll_entry_name() noexcept {
    return std::atomic_ref(gMainDLLEntryName).load();
}

void vl_lib_closedownall() noexcept {
    const vell::TableLock lock;
    if (vell::loaded_libraries == nullptr || vell::is_lost_in_child.load()) return;
    // Taken down first: a destructor may close others, which moves the entries.
    vl_vector<void*> handles(vell::loaded_libraries->count());
    for (const lib_entry& entry : *vell::loaded_libraries)
        handles.append(entry.handle);
    for (uint32_t i = handles.count(); i-- > 0;)
        vl_close_library(handles[i]);
    delete vell::loaded_libraries;
    vell::loaded_libraries = nullptr;
}
