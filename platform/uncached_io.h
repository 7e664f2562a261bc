// Keeping streamed data out of the system's file cache. A hint: no transfer ever fails because of it.
//
// To port: a system with a per-descriptor switch sets it in uncached_open and plans plain pieces.
#pragma once

#include "platform/transfer_backend.h"

namespace vell {

/// What is known about one open file whose data should not stay in the cache. Any thread may plan and settle.
struct UncachedFile;

/// Begins to treat `descriptor` as uncached. Null when memory is short or it is not a regular file: transfers are
/// then plain.
[[nodiscard]] UncachedFile* uncached_open(int descriptor) noexcept;

/// Drops what plain transfers left in the cache and frees the record. No transfer may be running.
/// `descriptor` is still open. Null is accepted.
void uncached_close(UncachedFile* file, int descriptor) noexcept;

/// Frees the record of a descriptor that was closed behind our back. Null is accepted.
void uncached_forget(UncachedFile* file) noexcept;

/// Chooses how `piece`, filled in as a plain piece of `job`, is done; may shorten it.
void uncached_plan(UncachedFile& file, TransferJob& job, TransferPiece& piece) noexcept;

/// Learns from a piece that failed. True: the same bytes can be tried again in another way.
bool uncached_refused(UncachedFile& file, TransferJob& job, const TransferPiece& piece, int error) noexcept;

/// How uncached transfers of the file at `path` (or of new files in the folder at `path`) are done, as a constant
/// text.
[[nodiscard]] const char* uncached_mode_of(const char* path) noexcept;

}  // namespace vell
