// The table of named threads. Present from mp_init_threads to mp_close_threads; starting a thread needs it.
//
// `table_lock` guards the table and lives as long as the process. It is released around the blocking join. The log's
// lock may be taken under it.
//
// A thread never reads its row: it gets a start block of its own, so a row may be given to another thread while the
// first has not run yet.

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>

#include "platform/crash.h"
#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/thread_identity.h"
#include "vellcore/message_log.h"
#include "vellcore/threads.h"
#include "vellcore/vector.h"

namespace vell {
namespace {

constexpr size_t k_name_bytes = sizeof(mp_thread_str::name);
static_assert(k_name_bytes == k_thread_name_bytes);
constexpr char k_unknown[] = "Unknown";
constexpr char k_main_thread[] = "VL-Main";
constexpr size_t k_main_stack_bytes = 2097152;

Mutex table_lock;

/// A row, and what only the table itself needs to know of its thread.
struct Row {
    mp_thread_str record;
    bool is_being_joined;
};

struct ThreadTable {
    bool is_open = false;
    bool is_closing = false;  // no thread is started any more, but they can be joined
    vl_vector<Row*> rows;     // a row's position is its thread's index; rows are reused, never removed
};
constinit Immortal<ThreadTable> table VELL_GUARDED_BY(table_lock);

/// What a thread gets to start with; it frees the block itself.
struct StartBlock {
    mp_thread_entry entry;
    void* argument;
    char name[k_name_bytes];
};

/// Cuts to 31 characters and fills the rest with zeros.
void copy_name(char* destination, const char* name) noexcept {
    if (name == nullptr || *name == '\0') name = k_unknown;
    std::memset(destination, 0, k_name_bytes);
    std::memcpy(destination, name, strnlen(name, k_name_bytes - 1));
}

// Not noexcept, and nothing in it catches everything: pthread_cancel unwinds through here.
void* run_thread(void* argument) {
    auto* start = static_cast<StartBlock*>(argument);
    const StartBlock own = *start;
    delete start;
    identify_thread(own.name);
    own.entry(own.argument);
    return nullptr;
}

/// The first row that is not in use, or a new one at the end; null when memory is short.
Row* take_row() noexcept VELL_REQUIRES(table_lock) {
    vl_vector<Row*>& rows = table.value.rows;
    for (uint32_t i = 0; i < rows.count(); ++i)
        if (rows[i]->record.in_use == 0) {
            *rows[i] = Row{};
            rows[i]->record.index = static_cast<int32_t>(i);
            return rows[i];
        }
    Row* row = new (std::nothrow) Row{};
    if (row == nullptr) {
        vl_vector_report_failure(rows.count(), 1, sizeof(Row*));
        return nullptr;
    }
    if (!rows.append(row)) {
        delete row;
        return nullptr;
    }
    row->record.index = static_cast<int32_t>(rows.count() - 1);
    return row;
}

/// The row of an index that is in use and not being joined, or null.
Row* find_row(int32_t index) noexcept VELL_REQUIRES(table_lock) {
    vl_vector<Row*>& rows = table.value.rows;
    if (!table.value.is_open || index < 0 || static_cast<uint32_t>(index) >= rows.count()) return nullptr;
    Row* row = rows[static_cast<uint32_t>(index)];
    const bool can_end = row->record.in_use != 0 && !row->is_being_joined && row->record.thread != pthread_t{};
    return can_end ? row : nullptr;
}

/// Attributes with the main thread's stack size. False, after an error line, when they cannot be had.
bool make_main_attributes(pthread_attr_t& attributes) noexcept {
    if (const int error = pthread_attr_init(&attributes); error != 0) {
        msgerror("PThread: Failed to initialize attributes: %d", error);
        return false;
    }
    if (const int error = pthread_attr_setstacksize(&attributes, k_main_stack_bytes); error != 0) {
        msgerror("PThread: Failed to set stack size: %d (%llu)", error,
                 static_cast<unsigned long long>(k_main_stack_bytes));
        pthread_attr_destroy(&attributes);
        return false;
    }
    return true;
}

int create_thread(pthread_t& thread, const char* name, StartBlock* start) noexcept {
    pthread_attr_t attributes;
    if (std::strcmp(name, k_main_thread) != 0 || !make_main_attributes(attributes))
        return pthread_create(&thread, nullptr, run_thread, start);
    const int error = pthread_create(&thread, &attributes, run_thread, start);
    pthread_attr_destroy(&attributes);
    return error;
}

/// Copies the name of the first row with the calling thread's handle into own_name's place. False when none has it.
bool find_own_name(char* name) noexcept VELL_REQUIRES(table_lock) {
    for (const Row* row : table.value.rows)
        if (pthread_equal(row->record.thread, pthread_self()) != 0) {
            std::memcpy(name, row->record.name, k_name_bytes);
            return true;
        }
    return false;
}

/// Takes the table's lock; on the thread that reports a crash only when it can be had soon.
bool lock_table_for_name() noexcept VELL_TRY_ACQUIRE(true, table_lock) {
    if (is_reporting_crash()) return table_lock.lock_within(k_crash_lock_limit_ns);
    table_lock.lock();
    return true;
}

/// The name that the table has for the calling thread, or "Unknown", in `found`.
const char* look_up_name(char* found) noexcept {
    const CancelShield shield;
    std::memcpy(found, k_unknown, sizeof k_unknown);
    if (!lock_table_for_name()) return found;
    if (table.value.is_open) find_own_name(found);
    table_lock.unlock();
    return found;
}

// Apart, so that the crash report does not come near the thread_local.
[[gnu::noinline]] const char* name_from_table() noexcept {
    thread_local char found[k_name_bytes];
    return look_up_name(found);
}

const char* name_from_table_in_crash() noexcept {
    static char found[k_name_bytes];  // one thread reports a crash
    return look_up_name(found);
}

/// The child has none of the threads but the forking one: nobody can join or cancel the others.
void forget_threads_in_child() noexcept VELL_NO_LOCK_CHECK {
    for (Row* row : table.value.rows) {
        row->is_being_joined = false;
        if (pthread_equal(row->record.thread, pthread_self()) != 0) continue;
        row->record.in_use = 0;
        row->record.thread = pthread_t{};
    }
}

const ForkEntry fork_entry(ForkOrder::thread_table, table_lock, forget_threads_in_child);

}  // namespace
}  // namespace vell

using vell::ScopedLock;
using vell::table;
using vell::table_lock;

void mp_init_threads() noexcept {
    const ScopedLock lock(table_lock);
    table.value.is_open = true;
}

void mp_close_threads() noexcept {
    {
        const ScopedLock lock(table_lock);
        table.value.is_closing = true;
    }
    VL_Thread::Destroy();
    const ScopedLock lock(table_lock);
    vl_vector<vell::Row*>& rows = table.value.rows;
    for (uint32_t i = rows.count(); i-- > 0;) {
        mp_thread_str& record = rows[i]->record;
        if (record.in_use != 0 && !rows[i]->is_being_joined && record.thread != pthread_t{}) {
            pthread_cancel(record.thread);
            pthread_detach(record.thread);  // Nobody joins it any more; undetached, it would never be freed.
        }
        delete rows[i];
    }
    rows.release();
    table.value.is_open = table.value.is_closing = false;
}

int32_t mp_start_thread(const char* name, mp_thread_entry entry, void* argument) noexcept {
    if (entry == nullptr) return -1;
    const ScopedLock lock(table_lock);
    if (!table.value.is_open || table.value.is_closing) return -1;
    vell::Row* row = vell::take_row();
    if (row == nullptr) return -1;
    mp_thread_str& record = row->record;
    record.in_use = 1;
    vell::copy_name(record.name, name);
    record.entry = entry;
    record.argument = argument;
    auto* start = new (std::nothrow) vell::StartBlock{entry, argument, {}};
    int error = ENOMEM;
    if (start != nullptr) {
        std::memcpy(start->name, record.name, sizeof record.name);
        error = vell::create_thread(record.thread, record.name, start);
    }
    if (error == 0) return record.index;
    delete start;
    msgerror("PThread: Can't create thread: %s (%d)", record.name, record.index);
    record = mp_thread_str{.in_use = 0, .name = {}, .index = -1, .thread = {}, .entry = nullptr, .argument = nullptr};
    return -1;
}

bool mp_join_thread(int32_t index) {
    pthread_t thread{};
    {
        const ScopedLock lock(table_lock);
        vell::Row* row = vell::find_row(index);
        if (row == nullptr) return false;
        row->is_being_joined = true;
        thread = row->record.thread;
    }
    const bool is_joined = pthread_join(thread, nullptr) == 0;
    const ScopedLock lock(table_lock);
    // The table may have been closed meanwhile; the row is gone then.
    vl_vector<vell::Row*>& rows = table.value.rows;
    if (static_cast<uint32_t>(index) < rows.count()) {
        vell::Row* row = rows[static_cast<uint32_t>(index)];
        if (row->is_being_joined && pthread_equal(row->record.thread, thread) != 0) {
            row->is_being_joined = false;
            row->record.in_use = 0;
        }
    }
    return is_joined;
}

bool mp_detach_thread(int32_t index) noexcept {
    const ScopedLock lock(table_lock);
    vell::Row* row = vell::find_row(index);
    if (row == nullptr) return false;
    row->record.in_use = 0;
    return pthread_detach(row->record.thread) == 0;
}

const char* mp_get_thread_name() noexcept {
    if (const char* own = vell::own_thread_name(); own != nullptr) return own;
    return vell::is_reporting_crash() ? vell::name_from_table_in_crash() : vell::name_from_table();
}

bool mp_protect_thread(const char* name) noexcept {
    if (name != nullptr && *name != '\0') vell::set_own_thread_name(name);
    return vell::ensure_alternate_stack();
}
