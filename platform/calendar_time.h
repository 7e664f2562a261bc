// The calendar fields of a moment, in the local time zone and in UTC.
//
// The C library guards its time zone with a lock that a forked child would find held for ever, so the library's calls
// share one of their own, which the fork waits for. Taken under any other lock, the log's included.
//
// To port: POSIX.
#pragma once

#include <ctime>

namespace vell {

/// False when the year does not fit into the fields.
[[nodiscard]] bool local_fields(time_t moment, tm& fields) noexcept;
[[nodiscard]] bool utc_fields(time_t moment, tm& fields) noexcept;

/// The moment of local fields, as mktime() works it out and corrects them; -1 when there is none.
[[nodiscard]] time_t moment_of_local(tm& fields) noexcept;

}  // namespace vell
