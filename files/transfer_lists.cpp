// The engine's lists by descriptor, and the rule which transfer has to wait for which.

#include "files/transfer_lists.h"

#include <algorithm>
#include <new>

namespace vell {

Mutex engine_lock;
DescriptorList descriptor_lists[k_descriptor_lists];

namespace {

/// The end of the transfer's range, at most the largest offset there is.
uint64_t range_end(const Transfer& transfer) noexcept {
    const auto start = static_cast<uint64_t>(transfer.offset);
    return transfer.length > UINT64_MAX - start ? UINT64_MAX : start + transfer.length;
}

bool overlap(const Transfer& a, const Transfer& b) noexcept {
    return static_cast<uint64_t>(a.offset) < range_end(b) && static_cast<uint64_t>(b.offset) < range_end(a);
}

bool must_keep_order(const Transfer& a, const Transfer& b) noexcept {
    if (a.descriptor != b.descriptor) return false;
    if (a.is_stream) return a.is_write == b.is_write;
    return (a.is_write || b.is_write) && overlap(a, b);
}

}  // namespace

DescriptorList& list_of(int descriptor) noexcept {
    return descriptor_lists[static_cast<unsigned>(descriptor) % k_descriptor_lists];
}

void append(Transfer& transfer) noexcept {
    DescriptorList& list = list_of(transfer.descriptor);
    transfer.earlier = list.last;
    transfer.later = nullptr;
    (list.last != nullptr ? list.last->later : list.first) = &transfer;
    list.last = &transfer;
}

void unlink(Transfer& transfer) noexcept {
    DescriptorList& list = list_of(transfer.descriptor);
    (transfer.earlier != nullptr ? transfer.earlier->later : list.first) = transfer.later;
    (transfer.later != nullptr ? transfer.later->earlier : list.last) = transfer.earlier;
    transfer.earlier = transfer.later = nullptr;
}

void drop_reference(Transfer& transfer) noexcept {
    if (--transfer.references == 0) delete &transfer;
}

bool must_wait(const Transfer& transfer) noexcept {
    for (const Transfer* earlier = transfer.earlier; earlier != nullptr; earlier = earlier->earlier) {
        if (must_keep_order(*earlier, transfer)) return true;
    }
    return false;
}

DescriptorFacts* find_facts(int descriptor) noexcept {
    DescriptorFacts* facts = list_of(descriptor).facts;
    while (facts != nullptr && facts->descriptor != descriptor)
        facts = facts->next;
    return facts;
}

DescriptorFacts* require_facts(int descriptor) noexcept {
    if (DescriptorFacts* known = find_facts(descriptor)) return known;
    DescriptorList& list = list_of(descriptor);
    auto* facts = new (std::nothrow) DescriptorFacts{descriptor, false, nullptr, list.facts};
    if (facts != nullptr) list.facts = facts;
    return facts;
}

DescriptorFacts* remove_facts(int descriptor) noexcept {
    DescriptorFacts** link = &list_of(descriptor).facts;
    while (*link != nullptr && (*link)->descriptor != descriptor)
        link = &(*link)->next;
    DescriptorFacts* facts = *link;
    if (facts != nullptr) *link = facts->next;
    return facts;
}

}  // namespace vell
