// One job as a sequence of system calls. A short call is continued, since one call moves at most 2 GiB and a file
// system may stop early; only the end of the file, an error or the last byte ends a job.

#include <algorithm>
#include <cerrno>

#include "platform/posix/file_calls.h"
#include "platform/transfer_backend.h"
#include "platform/uncached_io.h"

namespace vell {
namespace {

constexpr uint64_t k_most_bytes_per_call = uint64_t{1} << 30;

int64_t carry_out(const TransferPiece& piece, bool is_write) noexcept {
    ssize_t result = 0;
    if (piece.flags != 0) {
        result = is_write
                     ? file_calls.pwrite_flags(piece.descriptor, piece.buffer, piece.bytes, piece.offset, piece.flags)
                     : file_calls.pread_flags(piece.descriptor, piece.buffer, piece.bytes, piece.offset, piece.flags);
    } else {
        result = is_write ? file_calls.pwrite(piece.descriptor, piece.buffer, piece.bytes, piece.offset)
                          : file_calls.pread(piece.descriptor, piece.buffer, piece.bytes, piece.offset);
    }
    return result < 0 ? -int64_t{errno} : result;
}

void fail(TransferJob& job, int error) noexcept {
    job.error = error;
    job.is_over = true;
}

}  // namespace

TransferPiece next_piece(TransferJob& job) noexcept {
    TransferPiece piece{};
    piece.descriptor = job.descriptor;
    piece.buffer = job.buffer + job.moved;
    piece.bytes = static_cast<size_t>(std::min(job.length - job.moved, k_most_bytes_per_call));
    piece.offset = static_cast<off_t>(static_cast<uint64_t>(job.offset) + job.moved);
    if (job.uncached != nullptr && piece.bytes != 0) uncached_plan(*job.uncached, job, piece);
    return piece;
}

void settle_piece(TransferJob& job, const TransferPiece& piece, int64_t result) noexcept {
    if (result < 0) {
        const int error = static_cast<int>(-result);
        if (error == EINTR) return;
        if (job.uncached != nullptr && uncached_refused(*job.uncached, job, piece, error)) return;
        fail(job, error);
        return;
    }
    job.moved += static_cast<uint64_t>(result);
    // A write that moves nothing would be tried for ever: the device takes no more.
    if (job.is_write && result == 0 && piece.bytes != 0) {
        fail(job, ENOSPC);
        return;
    }
    job.is_over = result == 0 || job.moved >= job.length;
}

void run_job(TransferJob& job) noexcept {
    while (!job.is_over) {
        const TransferPiece piece = next_piece(job);
        settle_piece(job, piece, carry_out(piece, job.is_write));
    }
}

}  // namespace vell
