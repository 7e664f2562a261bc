// Aligned blocks that know their size.
//
// The allocation below a block starts with a prefix of the library's own:
//
//     [ spare 8 | zero 8 | padding 1..alignment | requested size 8 | back distance 8 | block ... ]
//                        ^ "start": what the back distance leads to
//
// Stepping back from a block leads to the start; stepping back once more from there, by the word before it, stays
// there, because that word is 0. Both ways of releasing a block therefore reach the same address.

#include <cstring>

#include "memory/raw_memory.h"
#include "memory/size_text.h"
#include "vellcore/block_memory.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"

namespace vell {

namespace {

constexpr uint64_t k_prefix_bytes = 16;  // before the start
constexpr uint64_t k_words_bytes = 16;   // requested size and back distance

// An alignment may be any number, so the words before a block may stand at odd addresses.
uint64_t read_word(const std::byte* at) noexcept {
    uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    return word;
}

void write_word(std::byte* at, uint64_t word) noexcept {
    std::memcpy(at, &word, sizeof word);
}

/// Steps back by the word before `address`.
std::byte* step_back(std::byte* address) noexcept {
    return address - read_word(address - 8);
}

void release_allocation(std::byte* start) noexcept {
    raw_memory.release(start - k_prefix_bytes);
}

}  // namespace
}  // namespace vell

void* a_alloc(uint64_t size, int32_t alignment) noexcept {
    const uint64_t step = alignment < 4 ? static_cast<uint64_t>(mem_pagesize()) : static_cast<uint64_t>(alignment);
    const uint64_t extra = step + vell::k_words_bytes + vell::k_prefix_bytes;
    auto* allocation =
        size > UINT64_MAX - extra ? nullptr : static_cast<std::byte*>(vell::raw_memory.allocate(size + extra));
    if (allocation == nullptr) {
        msgerror("MEMORY: Aligned allocation failed.. (Requested: %s)", vell::SizeText(size, vell::k_kib_bits).text());
        return nullptr;
    }
    std::byte* start = allocation + vell::k_prefix_bytes;
    vell::write_word(start - 8, 0);
    // Kept: the padding is never 0; where none is needed it is a whole step.
    const uint64_t padding = step - (reinterpret_cast<uintptr_t>(start) + vell::k_words_bytes) % step;
    std::byte* block = start + padding + vell::k_words_bytes;
    vell::write_word(block - 16, size);
    vell::write_word(block - 8, padding + vell::k_words_bytes);
    return block;
}

void* a_realloc(void* block, uint64_t size, int32_t alignment) noexcept {
    void* fresh = a_alloc(size, alignment);
    if (fresh == nullptr) {
        msgwarn("MEMORY: Aligned re-allocation failed.. (Requested: %s)",
                vell::SizeText(size, vell::k_kib_bits).text());
        return nullptr;
    }
    if (block == nullptr) return fresh;
    auto* old = static_cast<std::byte*>(block);
    const uint64_t old_size = vell::read_word(old - 16);
    if (old_size != 0) std::memcpy(fresh, old, old_size < size ? old_size : size);
    // Kept: two steps back. The second is of length 0.
    vell::release_allocation(vell::step_back(vell::step_back(old)));
    return fresh;
}

void a_free(void* block) noexcept {
    if (block != nullptr) vell::release_allocation(vell::step_back(static_cast<std::byte*>(block)));
}

void* memcopy(void* destination, const void* source, uint64_t length) noexcept {
    if (length == 0 || destination == nullptr || source == nullptr) return destination;
    return std::memmove(destination, source, length);
}

uint64_t a_heapcompact() noexcept {
    return 4096;
}
