#pragma once
// Thread primitives: mutexes, conditions, thread-local keys, the process clock, named threads and the worker.
//
// Handles are made and deleted only by the calls here. A null handle is answered with the call's failure value
// (an error number, false or null) and never dereferenced.

#include <pthread.h>

#include <cstdint>

#include "export.h"

/// One POSIX mutex, condition variable and thread-specific-data key each; opaque to hosts.
struct VELL_CAPABILITY("mutex") __mutex_str;
struct __cond_str;
struct __tls_key_str;

/// A thread's body. What it returns is ignored.
typedef void* (*mp_thread_entry)(void*);

/// A row of the thread table.
struct mp_thread_str {
    uint32_t in_use;  ///< 1 from start until joined or detached; 0 marks a row that can be reused
    char name[32];    ///< zero-terminated
    int32_t index;    ///< the row's position, which names the thread to join and detach; -1 after a failed start
    pthread_t thread;
    mp_thread_entry entry;
    void* argument;
};
static_assert(sizeof(mp_thread_str) == 64, "hosts know the layout");

// --- Clock and scheduling -------------------------------------------------------------------------------------

/// Makes now the origin of mp_getclock. @return 0, or -1 when the time cannot be read.
VELL_API int32_t mp_init_clock() noexcept;

/// Seconds since mp_init_clock, with microsecond resolution; seconds since 1970 before it. Follows the wall clock.
[[nodiscard]] VELL_API double mp_getclock() noexcept;

/// Always 1000.0: a fixed answer for callers that scale by it.
[[nodiscard]] VELL_API double mp_getclockfrequency() noexcept;

/// Lets another thread run.
VELL_API void mp_yield() noexcept;

/// Sleeps for `nanoseconds` / 1000 whole microseconds; below 1000 (and negative) it returns at once. A signal may
/// end the sleep early. A cancellation point. @return 0.
VELL_API int32_t mp_timedwait(int64_t nanoseconds);

/// Nothing to set up. @return 1.
VELL_API int32_t mp_timer_initialize() noexcept;

/// Always true. The process's priority is left alone: raising it needs privileges, and on Linux it would stick to
/// the calling thread and the children it starts only.
VELL_API bool mp_scheduler_initialize() noexcept;

/// Fixed entry points that do nothing.
VELL_API void mp_scheduler_closedown() noexcept;
VELL_API void mp_schedule_ndpi() noexcept;
VELL_API void mp_schedule_highest() noexcept;
VELL_API void mp_schedule_high() noexcept;
VELL_API void mp_schedule_low() noexcept;
/// Does nothing. @return 0.
VELL_API int32_t mp_set_thread_affinity(int32_t thread_index, uint64_t mask) noexcept;

// --- Mutexes, conditions, thread-local keys -------------------------------------------------------------------

/// A new mutex with default attributes (not recursive), already held by the caller when `locked` is not 0. The
/// second argument is ignored. Null when memory is short.
[[nodiscard]] VELL_API __mutex_str* mp_new_mutex(int32_t locked, uint32_t ignored = 0) noexcept VELL_NO_LOCK_CHECK;

/// Destroys and frees a mutex that nobody holds or waits for. Null is accepted.
VELL_API void mp_delete_mutex(__mutex_str* mutex) noexcept;

/// Locks, waiting as long as it takes. @return 0, or the error number after the error line "Mutex lock error (%d)".
VELL_API int32_t mp_get_mutex(__mutex_str* mutex) noexcept VELL_ACQUIRE(mutex);

/// Unlocks. @return 0, or the error number after the error line "Mutex ulock error (%d)".
VELL_API int32_t mp_release_mutex(__mutex_str* mutex) noexcept VELL_RELEASE(mutex);

/// Locks without waiting. @return true when the lock was taken.
[[nodiscard]] VELL_API bool mp_test_mutex(__mutex_str* mutex) noexcept VELL_TRY_ACQUIRE(true, mutex);

/// A new condition, or null when memory is short.
[[nodiscard]] VELL_API __cond_str* mp_new_cond_block() noexcept;

/// Frees a condition that nobody waits for. Null is accepted.
VELL_API void mp_delete_cond_block(__cond_str* condition) noexcept;

/// Wake one waiter, or all. @return 0 or the POSIX error number.
VELL_API int32_t mp_cond_signal(__cond_str* condition) noexcept;
VELL_API int32_t mp_cond_broadcast(__cond_str* condition) noexcept;

/// Waits, releasing `mutex` meanwhile. Wakes may be spurious: test what is waited for in a loop. A cancellation
/// point: a thread cancelled here holds `mutex` again. @return 0 or the POSIX error number.
VELL_API int32_t mp_cond_wait(__cond_str* condition, __mutex_str* mutex) VELL_REQUIRES(mutex);

/// The same for at most `nanoseconds`, measured on the wall clock. @return true when woken, false on time-out or
/// error.
VELL_API bool mp_cond_timedwait(__cond_str* condition, __mutex_str* mutex, int64_t nanoseconds) VELL_REQUIRES(mutex);

/// A new key whose value is null in every thread, or null after the error line "Failed to allocate thread local
/// storage: %d". Values are not destroyed when a thread ends.
[[nodiscard]] VELL_API __tls_key_str* mp_key_create() noexcept;

/// Deletes and frees a key. Null is accepted.
VELL_API void mp_key_delete(__tls_key_str* key) noexcept;

/// Sets the calling thread's value. @return 0, or the error number after the error line "Failed to set thread local
/// storage: %d".
VELL_API int32_t mp_setspecific(__tls_key_str* key, const void* value) noexcept;

/// The calling thread's value; null when none was set.
[[nodiscard]] VELL_API void* mp_getspecific(__tls_key_str* key) noexcept;

// --- Named threads --------------------------------------------------------------------------------------------

/// Makes the thread table unless it exists. Threads can be started from here to mp_close_threads.
VELL_API void mp_init_threads() noexcept;

/// Stops the worker, cancels every thread that was neither joined nor detached and forgets the table. Threads are
/// cancelled at their next cancellation point outside the library's locked sections; nothing waits for them.
VELL_API void mp_close_threads() noexcept;

/// Starts a thread.
///
/// @param name      at most 31 bytes are kept; null or empty means "Unknown". The system is told its first 15. A
///                  thread named "VL-Main" gets a stack of 2 MiB, every other the system's default.
/// @param entry     the body, called with `argument`. It must not be null.
/// @return  the thread's index, the lowest that is free; or -1: before mp_init_threads silently, otherwise after an
///          error line.
/// @owner   the thread must be joined, detached, or left for mp_close_threads.
[[nodiscard]] VELL_API int32_t mp_start_thread(const char* name, mp_thread_entry entry, void* argument) noexcept;

/// Waits for the thread to end and frees its index. False for an index that is not in use, and for the second of two
/// callers that join the same thread. A cancellation point.
VELL_API bool mp_join_thread(int32_t index);

/// Lets the thread run on by itself and frees its index. False for an index that is not in use or being joined.
VELL_API bool mp_detach_thread(int32_t index) noexcept;

/// Prepares a thread that the host started itself for crash reports: gives it a name, and an alternate signal stack, so
/// that its stack overflow is reported as well. Threads of mp_start_thread and the thread of vl_initialize have both.
///
/// @param name  at most 31 bytes are kept; mp_get_thread_name answers it from then on. Null or empty changes nothing.
/// @return  true when the thread has an alternate stack, also one that it had before; false when memory is short.
/// @owner   the stack is freed when the thread ends. To be called once, first thing on the thread; repeating it is
///          harmless. Never waits.
VELL_API bool mp_protect_thread(const char* name) noexcept;

/// The calling thread's name, or "Unknown" for a thread that neither the library started nor mp_protect_thread named.
/// Kept: a thread keeps its name after it was detached; a foreign thread whose system handle equals that of an ended
/// thread may be told that thread's name.
/// @return  a text that stays valid for the calling thread until its next call.
[[nodiscard]] VELL_API const char* mp_get_thread_name() noexcept;

// --- The worker -----------------------------------------------------------------------------------------------

/// A piece of work for the one background thread "VL_Worker", which runs objects in the order they were started.
///
/// The first object ever constructed starts the worker. Objects are not copied and never deleted by the worker: each
/// must live until its Run has finished (Flush tells).
class VELL_API VL_Thread {
public:
    VL_Thread() noexcept;
    virtual ~VL_Thread();

    /// Queues the object. Kept: when 64 objects wait already it is dropped without a message.
    virtual void Start();
    /// The work; the base does nothing.
    virtual void Run();

    /// Returns when everything that was queued before has run; at once when there is no worker. Not to be called
    /// from Run.
    static void Flush();
    /// Lets the worker finish what is queued, joins it and frees the queue. The next construction starts a new one.
    static void Destroy();
};

/// What Flush queues: tells when the worker has reached it.
class VELL_API VL_TFlush : public VL_Thread {
public:
    VL_TFlush() noexcept;
    void Run() override;  ///< sets done to 1
    int32_t done = 0;     ///< polled by other threads: through std::atomic_ref only
};
static_assert(sizeof(VL_Thread) == 8 && sizeof(VL_TFlush) == 16, "hosts know the layout");

/// An entry of the worker's queue.
struct vl_run_cmd {
    uint32_t command;   ///< 1 runs the object, 0 stops the worker
    VL_Thread* object;  ///< skipped when null
};
static_assert(sizeof(vl_run_cmd) == 16, "hosts know the layout");
