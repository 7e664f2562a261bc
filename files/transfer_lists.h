// What the engine knows: the transfers in flight and the descriptors with special treatment, listed by descriptor.
// Every field here is guarded by engine_lock.
#pragma once

#include "files/transfer_engine.h"
#include "platform/lock.h"
#include "platform/transfer_backend.h"

namespace vell {

extern Mutex engine_lock;

enum class TransferState : uint8_t {
    held,         // an earlier transfer that it must not overtake is in flight
    handed_over,  // the back end has it
    unattended,   // nobody has it: the next who asks for it carries it out
    in_caller,    // its caller carries it out
    over,
};

struct Transfer : TransferJob {
    TransferState state = TransferState::held;
    bool is_stream = false;    // a pipe: no offset, served by the poller
    bool is_on_stack = false;  // transfer_now: lives in its caller's frame and is never released
    int32_t references = 1;    // its owner's, plus one while listed
    const TransferBackend* backend = nullptr;
    Transfer* earlier = nullptr;  // in the list of its descriptors, in the order of starting
    Transfer* later = nullptr;
};

/// A descriptor with a lock of ours or an uncached hint.
struct DescriptorFacts {
    int descriptor;
    bool is_locked;
    UncachedFile* uncached;
    DescriptorFacts* next;
};

/// The transfers and facts of all descriptors that share a remainder.
struct DescriptorList {
    Transfer* first = nullptr;
    Transfer* last = nullptr;
    DescriptorFacts* facts = nullptr;
};

constexpr int k_descriptor_lists = 64;
extern DescriptorList descriptor_lists[k_descriptor_lists] VELL_GUARDED_BY(engine_lock);

[[nodiscard]] DescriptorList& list_of(int descriptor) noexcept VELL_REQUIRES(engine_lock);
void append(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock);
void unlink(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock);
/// Frees the transfer with its last reference.
void drop_reference(Transfer& transfer) noexcept VELL_REQUIRES(engine_lock);
/// True when an earlier transfer in flight must end before this one may begin.
[[nodiscard]] bool must_wait(const Transfer& transfer) noexcept VELL_REQUIRES(engine_lock);
/// Null when nothing is known about the descriptor.
[[nodiscard]] DescriptorFacts* find_facts(int descriptor) noexcept VELL_REQUIRES(engine_lock);
/// The same, made when missing; null when memory is short.
[[nodiscard]] DescriptorFacts* require_facts(int descriptor) noexcept VELL_REQUIRES(engine_lock);
/// Takes the facts out of the list; the caller frees them.
[[nodiscard]] DescriptorFacts* remove_facts(int descriptor) noexcept VELL_REQUIRES(engine_lock);

}  // namespace vell
