// Transfer numbers, byte counters and messages, which all users of the engine share, and the table of 96 transfers
// for callers of the raw asynchronous calls.
#pragma once

#include <cstdint>

#include "files/transfer_engine.h"
#include "vellcore/file_io.h"

namespace vell {

/// What comes after `last` among the numbers of transfers: 1, 2, 3 ... 2147483647, -2147483648, 1 ...
[[nodiscard]] constexpr int32_t number_after(int32_t last) noexcept {
    return static_cast<int32_t>((last > 0 ? static_cast<uint32_t>(last) : 0U) + 1U);
}

/// Takes a number and counts the bytes requested.
int32_t number_transfer(const TransferRequest& request) noexcept;

/// Starts a transfer outside the table, numbered and counted. When it cannot be started it is carried out at once.
/// True with a transfer to collect, or with null when it was carried out. False, after the error lines
/// "AIO(3a)" to "AIO(3c)" (writing: "AIO(1a)" to "AIO(1c)"), when that failed too.
[[nodiscard]] bool start_counted(const TransferRequest& request, int32_t& number, Transfer*& transfer) noexcept;

/// Waits for a transfer and gives it up; null counts as one that moved all of `requested` bytes. A failure is logged as
/// "AIO(5)".
TransferResult collect_counted(Transfer*& transfer, uint64_t requested) noexcept;

/// Carries a transfer out in the calling thread, numbered and counted. A failure is logged as "AIO(5)".
TransferResult transfer_counted(const TransferRequest& request) noexcept;

/// Frees the table's slots of a descriptor without waiting for their transfers.
void free_slots(int descriptor) noexcept;

}  // namespace vell
