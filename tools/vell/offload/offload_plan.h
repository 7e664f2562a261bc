// What is decided before anything is written: where the source and the destinations are, what there is to copy, and
// whether it fits.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "offload/destination.h"
#include "offload/file_copy.h"
#include "offload/offload.h"

namespace tool {

struct OffloadPlan {
    SourceRoot source;
    FolderContents contents;
    std::vector<std::unique_ptr<Destination>> destinations;
};

/// Refuses what must not be: no or too many destinations, the same one twice, a source that is, contains or lies in a
/// destination (by device and inode). Throws JobRefused. Nothing is made.
void refuse_overlaps(const OffloadOptions& options);

/// Opens the source and lists it. What the destinations keep there of their own is left out. Throws JobRefused.
void list_source(const OffloadOptions& options, const CancelFlag& cancel, OffloadPlan& plan);

/// Makes and opens the destinations; those that cannot be opened are dropped.
void open_destinations(const OffloadOptions& options, OffloadPlan& plan);

/// Removes what an interrupted run left unfinished in the folders that the plan concerns.
void remove_leftovers(const OffloadPlan& plan);

/// Adds up what each destination lacks, and throws JobRefused (no_space) when a volume has not so much room.
void check_space(const OffloadOptions& options, const OffloadPlan& plan);

}  // namespace tool
