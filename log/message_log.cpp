// The message log. Open from msg_initialize to msg_closedown; a writer called while closed returns 0.
//
// Formatting, the repeat count and the stream's writes happen under `message_lock`; the levels, the repeat override
// and the stream are read without it. A line is put together in one buffer, its prefix in front of the text, and
// written once. Under `message_lock` only the time zone is asked for.
//
// The lock lives as long as the process, so that a thread that logs while the log closes finds a closed log and not
// a freed lock. A thread that enters the log again from a signal handler, and the thread that reports a crash, write
// past the buffer with a bare write(2).
//
// A crash report that the log cannot take goes to standard error: when the log is closed or switched off, and when its
// stream has no descriptor or does not take the line. In a forked child that has not opened a log of its own it goes to
// what was standard error before start-up, since the file is its parent's.

#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "log/line_text.h"
#include "log/log_stamp.h"
#include "platform/calendar_time.h"
#include "platform/crash.h"
#include "platform/fork_handlers.h"
#include "platform/lock.h"
#include "platform/standard_error.h"
#include "platform/thread_flag.h"
#include "vellcore/message_log.h"
#include "vellcore/threads.h"

namespace vell {
namespace {

constexpr size_t k_text_bytes = 8192;     // of a formatted text, terminator included
constexpr size_t k_kept_bytes = 256;      // of a line, for the repeat check
constexpr size_t k_longest_repeat = 255;  // longer lines are never taken for repeats
constexpr size_t k_text_start = 32;       // of the text in the line buffer: room for the prefix
constexpr int32_t k_continuation = 5;     // index of the continuation's name
constexpr int32_t k_closed = -1;          // threshold and last level of a closed log
constexpr const char* k_level_names[] = {"ERROR", "WARN ", "INFO ", "DEBUG", "TRACE", "     "};
constexpr char k_continuation_prefix[] = "                 : ";
static_assert(sizeof k_continuation_prefix - 1 == k_prefix_bytes);

Mutex message_lock;
Mutex external_lock;

struct Log {
    std::atomic<FILE*> stream{nullptr};
    std::atomic<int> descriptor{-1};            // the stream's, for lines that may not touch the stream
    std::atomic<int32_t> level{k_closed};       // threshold
    std::atomic<int32_t> last_level{k_closed};  // of the last entry; decides on continuations
    std::atomic<bool> write_repeats{false};     // set by msg_repeatdisplayoverride
    std::atomic<bool> is_open{false};           // there is a buffer
    std::atomic<bool> is_inherited{false};      // opened by the process that this one was forked from
    std::atomic<pthread_t> external_owner{};    // who holds external_lock

    char* line VELL_GUARDED_BY(message_lock) = nullptr;              // [32 for the prefix | 8192 text]
    char kept[k_kept_bytes + 2] VELL_GUARDED_BY(message_lock) = {};  // the last line written
    size_t last_length VELL_GUARDED_BY(message_lock) = 0;            // of the last entry, at most 256
    int32_t repeats VELL_GUARDED_BY(message_lock) = 0;               // swallowed since the last line written
    // Written under message_lock, read by the crash report without it.
    std::atomic<double> clock_base{0};        // process clock when the time of day was read, seconds; 0 = not read yet
    std::atomic<double> day_seconds_base{0};  // local time of day at clock_base, seconds; set before it
};
Log state;

/// True from before the calling thread waits for message_lock until after it has released it. A signal handler on this
/// thread that finds it true must not wait: the lock may be this thread's, whatever the lock itself says by then.
ThreadFlag inside_log;

std::atomic<uint32_t> times_taken{0};  // message_lock

/// The log's lock.
class VELL_SCOPED_CAPABILITY LogLock {
public:
    LogLock() noexcept VELL_ACQUIRE(message_lock) {
        inside_log.set(true);
        message_lock.lock();
        count_turn(times_taken);
    }
    ~LogLock() VELL_RELEASE() {
        message_lock.unlock();
        inside_log.set(false);
    }
    LogLock(const LogLock&) = delete;
    LogLock& operator=(const LogLock&) = delete;

private:
    CancelShield shield_;
};

// --- fork: a write to a stalled reader may hold the lock, so it is not waited for without limit ----------------------

bool is_held_for_fork = false;    // by the forking thread, on behalf of the fork
bool was_inside_at_fork = false;  // the forking thread is in the log: it forks in a signal handler

void lock_before_fork() noexcept VELL_NO_LOCK_CHECK {
    was_inside_at_fork = inside_log.is_set();
    inside_log.set(true);
    is_held_for_fork = !was_inside_at_fork && lock_unless_stalled(times_taken, message_lock);
}

void unlock_after_fork() noexcept VELL_NO_LOCK_CHECK {
    if (is_held_for_fork) message_lock.unlock();
    inside_log.set(was_inside_at_fork);
}

/// What was counted as a repeat is its parent's to report; a lock of the host's that another thread held is free.
void renew_in_child() noexcept VELL_NO_LOCK_CHECK {
    state.is_inherited.store(true, std::memory_order_relaxed);
    if (state.external_owner.load(std::memory_order_relaxed) != pthread_self()) {
        state.external_owner.store(pthread_t{}, std::memory_order_relaxed);
        new (&external_lock) Mutex;
    }
    inside_log.set(was_inside_at_fork);
    if (was_inside_at_fork) return;
    state.repeats = 0;
    is_held_for_fork ? message_lock.unlock() : static_cast<void>(new (&message_lock) Mutex);
}

const ForkEntry fork_entry(ForkOrder::log, {lock_before_fork, unlock_after_fork, renew_in_child});

/// Gives errno back as it was when the scope began.
class ErrnoKeeper {
public:
    ErrnoKeeper() noexcept : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int saved_;
};

/// True where the lock must not simply be waited for.
bool must_not_wait() noexcept {
    return is_reporting_crash() || inside_log.is_set();
}

double local_seconds_of_day() noexcept {
    tm parts{};
    if (!local_fields(time(nullptr), parts)) return 0;
    return parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec;
}

double advance_day(double clock_base, double day_seconds_base, double now) noexcept {
    constexpr double k_day = 86400.0;
    double seconds = (now - clock_base) + day_seconds_base;
    if (seconds >= k_day) seconds -= static_cast<double>(static_cast<int64_t>(seconds / k_day)) * k_day;
    return seconds;
}

/// The time of day that the next stamp shows, seconds.
double stamp_seconds() noexcept VELL_REQUIRES(message_lock) {
    const double now = mp_getclock();
    const double base = state.clock_base.load(std::memory_order_relaxed);
    if (base != 0 && base <= now) return advance_day(base, state.day_seconds_base.load(std::memory_order_relaxed), now);
    const double day_seconds = local_seconds_of_day();
    state.day_seconds_base.store(day_seconds, std::memory_order_relaxed);
    state.clock_base.store(now, std::memory_order_release);
    return advance_day(now, day_seconds, now);
}

void report_repeats(FILE* stream) noexcept VELL_REQUIRES(message_lock) {
    if (state.repeats == 0) return;
    // Kept: a count of exactly 1 is dropped without a report.
    if (state.repeats > 1) std::fprintf(stream, "               # : Repeated %d times\n", state.repeats);
    state.repeats = 0;
    state.write_repeats.store(false, std::memory_order_relaxed);
}

/// Ends the text in a newline and returns its new length. A text that fills the buffer loses its last character.
size_t end_line(char* text, size_t length) noexcept {
    if (text[length - 1] == '\n') return length;
    if (length > k_text_bytes - 2) length = k_text_bytes - 2;
    text[length] = '\n';
    text[length + 1] = '\0';
    return length + 1;
}

/// Writes the text that was formatted at k_text_start of the line buffer, under the prefix of `level`.
void write_line(int32_t level, size_t length) noexcept VELL_REQUIRES(message_lock) {
    if (length == 0) return;
    char* text = state.line + k_text_start;
    if (length <= k_longest_repeat && length == state.last_length && std::memcmp(text, state.kept, length) == 0 &&
        !state.write_repeats.load(std::memory_order_relaxed)) {
        ++state.repeats;
        return;
    }
    FILE* stream = state.stream.load(std::memory_order_relaxed);
    report_repeats(stream);
    const size_t kept_length = std::min(length, k_kept_bytes);
    const size_t line_length = end_line(text, length);
    char* line = text - k_prefix_bytes;
    if (level == k_continuation) {
        std::memcpy(line, k_continuation_prefix, k_prefix_bytes);
        // Kept: a continuation leaves the last length alone and keeps the two bytes behind its text as well.
        std::memcpy(state.kept, text, kept_length + 2);
    } else {
        write_stamp(line, stamp_seconds(), k_level_names[level]);
        std::memcpy(state.kept, text, kept_length);
        state.last_length = kept_length;
    }
    std::fwrite(line, 1, k_prefix_bytes + line_length, stream);
    std::fflush(stream);
}

int32_t threshold() noexcept {
    return state.level.load(std::memory_order_relaxed);
}

/// Writes to a descriptor. The crash report does not wait for a reader of a full pipe. False when the line was not
/// taken.
bool write_to(int descriptor, const char* line, size_t bytes) noexcept {
    constexpr int k_room_limit_ms = 100;
    pollfd room{.fd = descriptor, .events = POLLOUT, .revents = 0};
    if (descriptor < 0 || (is_reporting_crash() && poll(&room, 1, k_room_limit_ms) == 0)) return false;
    return write(descriptor, line, bytes) == static_cast<ssize_t>(bytes);
}

/// Writes a line past the buffer: to the log, and a crash report that the log does not take to standard error.
void write_raw(const char* line, size_t bytes) noexcept {
    const int descriptor = state.descriptor.load(std::memory_order_relaxed);
    if (!is_reporting_crash()) {
        write_to(descriptor, line, bytes);
    } else if (state.is_inherited.load(std::memory_order_relaxed)) {
        write_to(original_standard_error(), line, bytes);
    } else if (threshold() < 0 || !write_to(descriptor, line, bytes)) {
        write_to(STDERR_FILENO, line, bytes);
    }
}

/// Writes a line without the log's buffer and stream: for a thread that is inside the log already, and for the
/// crash report. A moment's wait keeps the lines of others whole; after it the line goes out all the same.
void write_line_unbuffered(int32_t level, const char* format, va_list arguments) noexcept VELL_NO_LOCK_CHECK
    VELL_PRINTF(2, 0);
void write_line_unbuffered(int32_t level, const char* format, va_list arguments) noexcept {
    static std::atomic<bool> lock_given_up{false};
    constexpr size_t k_text = 1024;
    char line[k_prefix_bytes + k_text + 1];
    char* text = line + k_prefix_bytes;
    size_t length = format_text(text, k_text, format, arguments);
    if (length == 0) return;
    if (text[length - 1] != '\n') text[length++] = '\n';
    if (level == k_continuation) {
        std::memcpy(line, k_continuation_prefix, k_prefix_bytes);
    } else {
        // Reading the time zone could wait for a lock that this very thread holds: without a base it is UTC.
        const double base = state.clock_base.load(std::memory_order_acquire);
        const double seconds = base != 0
                                   ? advance_day(base, state.day_seconds_base.load(), std::max(mp_getclock(), base))
                                   : static_cast<double>(time(nullptr) % 86400);
        write_stamp(line, seconds, k_level_names[level]);
    }
    const bool is_inside = inside_log.is_set();
    const bool is_locked = !is_inside && !lock_given_up.load() && message_lock.lock_within(k_crash_lock_limit_ns);
    if (!is_inside && !is_locked) lock_given_up.store(true);
    write_raw(line, k_prefix_bytes + length);
    if (is_locked) message_lock.unlock();
}

/// Formats and writes one line whose level test has passed. @return 1, or 0 when the log closed meanwhile.
int32_t write_formatted(int32_t level, const char* format, va_list arguments) noexcept VELL_PRINTF(2, 0);
int32_t write_formatted(int32_t level, const char* format, va_list arguments) noexcept {
    if (format == nullptr || (!state.is_open.load(std::memory_order_relaxed) && !is_reporting_crash())) return 0;
    const ErrnoKeeper keep_errno;
    if (must_not_wait()) {
        write_line_unbuffered(level, format, arguments);
        return 1;
    }
    const LogLock lock;
    if (state.line == nullptr) return 0;
    const size_t length = format_text(state.line + k_text_start, k_text_bytes, format, arguments);
    if (length > 0) write_line(level, length);
    return 1;
}

/// What is written at the present threshold. A crash is reported whatever it is.
bool passes(int32_t level) noexcept {
    const int32_t limit = threshold();
    return level <= limit || (limit < 0 && is_reporting_crash());
}

/// The entry writers that move the last level whether or not they write.
int32_t write_entry(int32_t level, const char* format, va_list arguments) noexcept VELL_PRINTF(2, 0);
int32_t write_entry(int32_t level, const char* format, va_list arguments) noexcept {
    state.last_level.store(level, std::memory_order_relaxed);
    return passes(level) ? write_formatted(level, format, arguments) : 0;
}

/// msg while the threshold is negative: to the standard error stream, without a lock, stamp or repeat check.
int32_t write_switched_off(int32_t level, const char* format, va_list arguments) noexcept VELL_PRINTF(2, 0);
int32_t write_switched_off(int32_t level, const char* format, va_list arguments) noexcept {
    if (format == nullptr || !state.is_open.load(std::memory_order_relaxed)) return 0;
    const ErrnoKeeper keep_errno;
    const CancelShield shield;
    char text[k_text_bytes + 1];
    const size_t length = format_text(text, k_text_bytes, format, arguments);
    const bool ends_line = length > 0 && text[length - 1] == '\n';
    const auto name = std::min(static_cast<uint32_t>(level), static_cast<uint32_t>(k_continuation));
    std::fprintf(stderr, "##:##:##.## %s: %.*s%s", k_level_names[name], static_cast<int>(length), text,
                 ends_line ? "" : "\n");
    return 1;
}

/// "text : 'the system's text for errno'" as an error entry, whatever the threshold and without moving the last level.
int32_t write_os_error(const char* format, ...) noexcept VELL_PRINTF(1, 2);
int32_t write_os_error(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = write_formatted(MSG_ERROR, format, arguments);
    va_end(arguments);
    return result;
}

}  // namespace
}  // namespace vell

using vell::state;

char* msg_initialize(FILE* stream) noexcept {
    const vell::LogLock lock;
    if (state.line == nullptr) state.line = static_cast<char*>(std::malloc(vell::k_text_start + vell::k_text_bytes));
    if (state.line != nullptr) std::memset(state.line, 0, vell::k_text_start + vell::k_text_bytes);
    std::memset(state.kept, 0, sizeof state.kept);
    FILE* target = stream != nullptr ? stream : stderr;
    state.stream.store(target, std::memory_order_relaxed);
    state.descriptor.store(fileno(target), std::memory_order_relaxed);
    state.is_inherited.store(false, std::memory_order_relaxed);
    state.last_level.store(vell::k_closed, std::memory_order_relaxed);
    state.level.store(stream != nullptr ? MSG_INFO : MSG_WARN, std::memory_order_relaxed);
    state.repeats = 0;
    state.clock_base.store(0, std::memory_order_relaxed);
    state.is_open.store(state.line != nullptr, std::memory_order_relaxed);
    return state.line != nullptr ? state.line + vell::k_text_start : nullptr;
}

void msg_closedown() noexcept {
    const vell::LogLock lock;
    state.is_open.store(false, std::memory_order_relaxed);
    std::free(state.line);
    state.line = nullptr;
    state.stream.store(nullptr, std::memory_order_relaxed);
    state.descriptor.store(-1, std::memory_order_relaxed);
    state.level.store(vell::k_closed, std::memory_order_relaxed);
}

void msg_setlevel(int32_t level) noexcept {
    if (state.is_open.load(std::memory_order_relaxed)) state.level.store(level, std::memory_order_relaxed);
}

int32_t msg_getlevel() noexcept {
    return vell::threshold();
}

FILE* msg_get_file() noexcept {
    return state.stream.load(std::memory_order_relaxed);
}

void msg_set_lock() noexcept {
    if (!state.is_open.load(std::memory_order_relaxed)) return;
    vell::external_lock.lock();
    state.external_owner.store(pthread_self(), std::memory_order_relaxed);
}

// Released by its owner even when the log was closed meanwhile, so that a later log does not start with a lost lock.
void msg_release_lock() noexcept {
    if (state.external_owner.load(std::memory_order_relaxed) != pthread_self()) return;
    state.external_owner.store(pthread_t{}, std::memory_order_relaxed);
    vell::external_lock.unlock();
}

int32_t msglist(const char* text) noexcept {
    if (text == nullptr || !state.is_open.load(std::memory_order_relaxed) || vell::must_not_wait()) return 0;
    const vell::ErrnoKeeper keep_errno;
    const vell::LogLock lock;
    FILE* stream = state.stream.load(std::memory_order_relaxed);
    if (stream == nullptr) return 0;
    std::fprintf(stream, "%s\n", text);
    return 1;
}

void msg_repeatdisplayoverride() noexcept {
    state.write_repeats.store(true, std::memory_order_relaxed);
}

int32_t vmsgerror(const char* format, va_list arguments) noexcept {
    return vell::write_entry(MSG_ERROR, format, arguments);
}

int32_t vmsgwarn(const char* format, va_list arguments) noexcept {
    return vell::write_entry(MSG_WARN, format, arguments);
}

int32_t vmsginfo(const char* format, va_list arguments) noexcept {
    return vell::write_entry(MSG_INFO, format, arguments);
}

int32_t vmsgdebug(const char* format, va_list arguments) noexcept {
    // Kept: a filtered debug entry leaves the last level alone, so its continuations follow the entry before it.
    return vell::threshold() >= MSG_DEBUG ? vell::write_entry(MSG_DEBUG, format, arguments) : 0;
}

int32_t vmsgcont(const char* format, va_list arguments) noexcept {
    const int32_t last = state.last_level.load(std::memory_order_relaxed);
    return last >= 0 && vell::passes(last) ? vell::write_formatted(vell::k_continuation, format, arguments) : 0;
}

int32_t msg(int32_t level, const char* format, ...) noexcept {
    if (level <= MSG_DEBUG) state.last_level.store(level, std::memory_order_relaxed);
    const int32_t threshold = vell::threshold();
    const int32_t named = std::min<int32_t>(level, MSG_TRACE);
    if (threshold >= 0 && (level < 0 || named > threshold)) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = threshold < 0 ? vell::write_switched_off(level, format, arguments)
                                         : vell::write_formatted(named, format, arguments);
    va_end(arguments);
    return result;
}

int32_t msgerror(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vmsgerror(format, arguments);
    va_end(arguments);
    return result;
}

int32_t msgwarn(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vmsgwarn(format, arguments);
    va_end(arguments);
    return result;
}

int32_t msginfo(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vmsginfo(format, arguments);
    va_end(arguments);
    return result;
}

int32_t msgdebug(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vmsgdebug(format, arguments);
    va_end(arguments);
    return result;
}

int32_t msg_trace(const char* format, ...) noexcept {
    if (vell::threshold() < MSG_TRACE) return 0;
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vell::write_formatted(MSG_TRACE, format, arguments);
    va_end(arguments);
    return result;
}

int32_t msgcont(const char* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = vmsgcont(format, arguments);
    va_end(arguments);
    return result;
}

char* os_errormsg() noexcept {
    const int error = errno;
    thread_local char text[256];
    text[0] = '\0';
    char system_text[256];
    const char* found = strerror_r(error, system_text, sizeof system_text);
    if (found != nullptr) {
        std::strncpy(text, found, sizeof text - 1);
        text[sizeof text - 1] = '\0';
    }
    errno = error;
    return text;
}

int32_t msg_os_error(const char* text) noexcept {
    const char* system_text = os_errormsg();
    if (vell::threshold() < MSG_ERROR) return 0;
    return vell::write_os_error("%s : '%s'", text != nullptr ? text : "", system_text);
}

int32_t msg_os_error(const char* text, int32_t error_number) noexcept {
    if (error_number == 0) return 0;
    return vell::write_os_error("%s : '%s'", text != nullptr ? text : "", os_errormsg());
}
