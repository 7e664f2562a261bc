#pragma once
// What every header of the library shares: visibility, format checking and lock annotations.

/// Marks what hosts link to. Everything else in the library is hidden.
#define VELL_API __attribute__((visibility("default")))

/// Hides a member of a class that is exported as a whole.
#define VELL_LOCAL __attribute__((visibility("hidden")))

/// Has the compiler check a printf-style format. Positions count from 1; first_arg is 0 for a va_list.
#define VELL_PRINTF(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))

// clang's thread-safety analysis (-Wthread-safety); nothing for other compilers.
#if defined(__clang__)
#define VELL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VELL_THREAD_ATTRIBUTE(x)
#endif
#define VELL_CAPABILITY(name)    VELL_THREAD_ATTRIBUTE(capability(name))
#define VELL_SCOPED_CAPABILITY   VELL_THREAD_ATTRIBUTE(scoped_lockable)
#define VELL_GUARDED_BY(lock)    VELL_THREAD_ATTRIBUTE(guarded_by(lock))
#define VELL_PT_GUARDED_BY(lock) VELL_THREAD_ATTRIBUTE(pt_guarded_by(lock))
#define VELL_REQUIRES(...)       VELL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VELL_ACQUIRE(...)        VELL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VELL_RELEASE(...)        VELL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VELL_TRY_ACQUIRE(...)    VELL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VELL_EXCLUDES(...)       VELL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define VELL_NO_LOCK_CHECK       VELL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
