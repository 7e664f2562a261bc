#pragma once
// The message log: one process-wide log with five levels, continuation lines and repeat suppression.
//
// A line reads "14:03:07.25 INFO : text". A continuation belongs to the entry before it and stands under it, without
// a stamp. Lines are written whole, with one write each, and the stream is flushed after every line, so the log is
// complete when the process dies.
//
// Any thread may write. The log is closed until msg_initialize and again after msg_closedown; calls while it is
// closed answer 0 and write nothing. All writers leave errno as it was. Texts longer than 8191 bytes are cut.

#include <cstdarg>
#include <cstdint>
#include <cstdio>

#include "export.h"

/// Levels, from grave to chatty. An entry is written when its level is not greater than the threshold.
enum msg_level : int32_t { MSG_ERROR = 0, MSG_WARN = 1, MSG_INFO = 2, MSG_DEBUG = 3, MSG_TRACE = 4 };

/// Opens the log.
///
/// @param stream  where lines go; null means the standard error stream. It stays the caller's and is never closed.
/// @return  the log's text buffer (it stays the log's; valid until msg_closedown), or null when memory is short:
///          the writers then answer 0.
/// Sets the threshold to MSG_INFO when a stream was passed and to MSG_WARN when not. Opening an open log moves it to
/// the new stream.
VELL_API char* msg_initialize(FILE* stream) noexcept;

/// Closes the log; the stream stays open. Closing a closed log does nothing.
VELL_API void msg_closedown() noexcept;

/// Sets the threshold. Ignored while the log is closed. A negative threshold switches everything off except msg,
/// which then writes to the standard error stream.
VELL_API void msg_setlevel(int32_t level) noexcept;

/// The threshold; -1 while the log is closed.
[[nodiscard]] VELL_API int32_t msg_getlevel() noexcept;

/// The stream that lines go to; null while the log is closed.
[[nodiscard]] VELL_API FILE* msg_get_file() noexcept;

/// Takes and releases a lock that the log itself never takes: callers who want several lines to stay together hold
/// it around them. Not recursive. Does nothing while the log is closed.
VELL_API void msg_set_lock() noexcept VELL_NO_LOCK_CHECK;
VELL_API void msg_release_lock() noexcept VELL_NO_LOCK_CHECK;

/// Writes a text and a newline as they are: no level, no stamp, no repeat check, no flush.
/// @return  1; 0 for a null text or while the log is closed.
VELL_API int32_t msglist(const char* text) noexcept;

/// From the next repeat report on, writes identical lines instead of counting them; until then too, when no repeats
/// are pending. The next repeat report clears it.
VELL_API void msg_repeatdisplayoverride() noexcept;

/// Writers. Each formats like printf, bounded to 8191 bytes, and adds a newline unless the text ends in one.
///
/// A line equal to the one before it (up to 255 bytes) is counted instead of written; when another line follows, a
/// count above 1 is reported as "# : Repeated %d times". An empty text writes nothing.
/// Wide characters (%ls) that the locale of the process does not have are written as UTF-8; where a text cannot be
/// formatted at all, its format is written.
///
/// @return  1 when the level test passed (also for a swallowed repeat and an empty text), else 0.
///
/// `msgcont` continues the last entry and shares its fate. Which writer moves "the last entry's level":
/// msgerror, msgwarn and msginfo always; msgdebug only when its level test passed; msg_trace and msg_os_error never;
/// msg for levels up to 3, negative ones included.
///
/// `msg` takes the level as an argument. Levels above 4 count as 4. While the threshold is negative it writes
/// "##:##:##.## LEVEL: text" to the standard error stream and answers 1.
VELL_API int32_t msg(int32_t level, const char* format, ...) noexcept VELL_PRINTF(2, 3);
VELL_API int32_t msgerror(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t msgwarn(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t msginfo(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t msgdebug(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t msg_trace(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t msgcont(const char* format, ...) noexcept VELL_PRINTF(1, 2);
VELL_API int32_t vmsgerror(const char* format, va_list arguments) noexcept VELL_PRINTF(1, 0);
VELL_API int32_t vmsgwarn(const char* format, va_list arguments) noexcept VELL_PRINTF(1, 0);
VELL_API int32_t vmsginfo(const char* format, va_list arguments) noexcept VELL_PRINTF(1, 0);
VELL_API int32_t vmsgdebug(const char* format, va_list arguments) noexcept VELL_PRINTF(1, 0);
VELL_API int32_t vmsgcont(const char* format, va_list arguments) noexcept VELL_PRINTF(1, 0);

/// The system's text for the calling thread's errno, cut to 255 bytes; empty when the system has none.
/// @return  a buffer of the calling thread, overwritten by its next call.
[[nodiscard]] VELL_API char* os_errormsg() noexcept;

/// Writes the error entry "text : 'system's text for errno'". Does not move the last entry's level.
/// @return  1 when written, else 0.
VELL_API int32_t msg_os_error(const char* text) noexcept;

/// The same when `error_number` is not 0; with 0 nothing is written and the answer is 0.
/// Kept: the number only decides whether a line is written. The line names errno, not the number, and the level
/// does not filter it.
VELL_API int32_t msg_os_error(const char* text, int32_t error_number) noexcept;
