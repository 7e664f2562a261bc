// A lockable heap as its rules read, without lock and without index: every search walks all headers from the first
// block on. The tests compare the real heap with it, step by step; the bench measures both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vellcore/lockable_heap.h"
#include "vellcore/message_log.h"

class PlainHeap {
public:
    struct __attribute__((packed, may_alias)) Block {
        uint64_t state;
        void** owner;
        void* data;
        uint64_t size;
        uint32_t lock_count, exclusive_count;
        uint64_t stamp;
        mheap_discard_callback discard;
        uint32_t flags, padding;
        bool is_locked() const { return lock_count != 0 || exclusive_count != 0; }
    };

    PlainHeap(const char* name, uint64_t size, uint64_t alignment, int mode)
        : name_(name),
          alignment_(alignment),
          header_(alignment < 64 ? 64 + alignment - 64 % alignment : alignment),
          total_(size - size % alignment),
          mode_(mode),
          base_(static_cast<std::byte*>(std::malloc(total_))) {
        write_free(first(), total_ - header_);
        end_ = base_ + (total_ - header_);
        write_free(end(), 0);
    }
    ~PlainHeap() { std::free(base_); }
    PlainHeap(const PlainHeap&) = delete;
    PlainHeap& operator=(const PlainHeap&) = delete;

    Block* first() const { return at(base_); }
    Block* end() const { return at(end_); }
    Block* next(Block* block) const { return at(bytes(block) + block->size); }
    std::byte* base() const { return base_; }
    uint64_t total() const { return total_; }

    int alloc_lock(uint64_t size, void** handle) {
        const uint64_t needed = (size + header_ + alignment_ - 1) / alignment_ * alignment_;
        Block* block = find(needed);
        if (mode_ != 0 && block == nullptr) return -1;
        for (int waits = 0; block == nullptr; block = find(needed)) {
            mode_ = 1;
            block = find(needed);
            mode_ = 0;
            if (block != nullptr) break;
            msgwarn("Waiting for free space in %s heap: %llu (%d)", name_.c_str(),
                    static_cast<unsigned long long>(needed), waits);
            msgwarn("Timeout while waiting for free space in %s heap", name_.c_str());
            if (++waits == 10) return -1;
        }
        if (block->size > needed + header_) {
            write_free(at(bytes(block) + needed), block->size - needed);
            block->size = needed;
        }
        block->state = 1;
        block->owner = handle;
        *handle = block->data = bytes(block) + header_;
        block->exclusive_count = 0;
        block->lock_count = 1;
        block->stamp = counter_ + 1;
        counter_ += 2;
        return 1;
    }
    int lock(void** handle) {
        if (*handle == nullptr) return -1;
        Block* block = of(*handle);
        block->stamp = counter_++;
        return static_cast<int>(++block->lock_count);
    }
    int keep(void** handle) {
        if (*handle == nullptr) return -1;
        of(*handle)->stamp = counter_++;
        return static_cast<int>(of(*handle)->lock_count);
    }
    int unlock(void** handle) {
        if (*handle == nullptr) {
            msgdebug("Illegal MHeap pointer: %p\n", *handle);
            return -1;
        }
        Block* block = of(*handle);
        if (block->lock_count == 0) {
            msgdebug("MHeap: Unlocking a non locked block");
            return 0;
        }
        block->stamp = counter_++;
        return static_cast<int>(--block->lock_count);
    }
    int free(void** handle) {
        if (*handle == nullptr) return -1;
        Block* block = of(*handle);
        if (block->lock_count > 0) return -1;
        if (block->exclusive_count > 0) {
            block->flags |= 1;
            block->owner = nullptr;
            *handle = nullptr;
            return 1;
        }
        release(block);
        merge(block);
        return 1;
    }
    void* lock_ex(void* address) {
        for (Block* block = first(); block != end(); block = next(block)) {
            if (bytes(next(block)) <= address) continue;
            if (block->state == 0 || address == base_) return nullptr;
            ++block->exclusive_count;
            return block->data;
        }
        return nullptr;
    }
    bool unlock_ex(void* data) {
        // A lock may outlive its block: `data` is then anywhere in others.
        Block* block = first();
        while (block != end() && (block->state == 0 || block->data != data))
            block = next(block);
        if (block == end() || block->exclusive_count == 0) return false;
        --block->exclusive_count;
        if ((block->flags & 1) != 0) {
            release(block);
            merge(block);
        }
        return true;
    }
    void set_discard(void* data, mheap_discard_callback callback) { of(data)->discard = callback; }
    void clear_all() {
        Block* head = nullptr;
        for (Block *block = first(), *following = nullptr; block != end(); block = following) {
            following = next(block);
            if (block->is_locked()) {
                head = nullptr;
                continue;
            }
            if (block->state != 0) release(block);
            if (head == nullptr)
                head = block;
            else
                head->size += block->size;
        }
    }
    void validate() {
        for (Block* block = first(); block != end(); block = next(block))
            if (block->state == 0) merge(block);
    }
    void resize(uint64_t size) {
        const uint64_t total = size - size % alignment_;
        auto* area = static_cast<std::byte*>(std::malloc(total));
        std::memcpy(area, base_, total_);
        std::byte* old_base = std::exchange(base_, area);
        end_ = area + (end_ - old_base);
        for (Block* block = first(); block != end(); block = next(block)) {
            if (block->state == 0) continue;
            block->data = bytes(block) + header_;
            if (block->owner != nullptr) *block->owner = block->data;
        }
        const uint64_t growth = total - total_;
        if (growth >= 2 * header_) {
            write_free(end(), growth - header_);
            end_ += growth - header_;
            write_free(end(), 0);
        }
        total_ = total;
        std::free(old_base);
    }
    void query(uint64_t& free_bytes, uint64_t& reclaimable) const {
        free_bytes = reclaimable = 0;
        for (Block* block = first(); block != end(); block = next(block)) {
            if (block->state == 0) free_bytes += block->size;
            if (!block->is_locked()) reclaimable += block->size;
        }
    }

private:
    struct Run {
        Block* start = nullptr;
        uint64_t free = 0;
        uint64_t to_move = 0;
    };

    static Block* at(void* address) { return static_cast<Block*>(address); }
    static std::byte* bytes(Block* block) { return reinterpret_cast<std::byte*>(block); }
    Block* of(void* data) const { return at(static_cast<std::byte*>(data) - header_); }
    static void write_free(Block* block, uint64_t size) {
        std::memset(static_cast<void*>(block), 0, sizeof *block);
        block->size = size;
    }
    void merge(Block* block) const {
        for (Block* follower = next(block); follower != end() && follower->state == 0; follower = next(block))
            block->size += follower->size;
    }
    static void release(Block* block) {
        if (block->discard != nullptr) block->discard(block->data);
        if (block->owner != nullptr) *block->owner = nullptr;
        block->discard = nullptr;
        block->owner = nullptr;
        block->data = nullptr;
        block->state = 0;
        block->flags = block->exclusive_count = 0;
    }

    Block* find(uint64_t needed) {
        for (;;) {
            uint64_t reclaimable = 0;
            Block* candidate = nullptr;
            Run run, best;
            const auto end_run = [&] {
                if (run.free > needed && (best.start == nullptr || run.to_move < best.to_move)) best = run;
                run = Run();
            };
            for (Block* block = first(); block != end(); block = next(block)) {
                if (block->is_locked()) {
                    end_run();
                    continue;
                }
                if (block->state == 0) {
                    merge(block);
                    if (block->size >= needed) return block;
                    if (run.start == nullptr) run.start = block;
                    run.free += block->size;
                } else {
                    if (candidate == nullptr || block->stamp < candidate->stamp) candidate = block;
                    if (run.free < needed) run.to_move += block->size;
                }
                reclaimable += block->size;
            }
            end_run();
            if (reclaimable < needed) {
                if (needed <= total_ - header_) dump("TOTALLY LOCKED !!");
                return nullptr;
            }
            if (mode_ == 1 && best.start != nullptr && best.free >= needed) return compact(best.start, needed);
            if (candidate == nullptr) return nullptr;
            release(candidate);
            merge(candidate);
            if (candidate->size >= needed) return candidate;
        }
    }
    Block* compact(Block* space, uint64_t needed) const {
        for (;;) {
            Block* moving = next(space);
            if (moving == end() || moving->state == 0 || moving->is_locked()) return nullptr;
            const uint64_t gap = space->size;
            std::memmove(static_cast<void*>(space), moving, moving->size);
            *space->owner = static_cast<std::byte*>(*space->owner) - gap;
            space->data = bytes(space) + header_;
            space = next(space);
            write_free(space, gap);
            merge(space);
            if (space->size >= needed) return space;
        }
    }
    void dump(const char* title) const {
        if (msgdebug("HEAP '%s' - %s:", name_.c_str(), title) == 0) return;
        uint64_t listed = 0;
        for (Block* block = first(); block != end(); block = next(block)) {
            const int size = static_cast<int>(block->size / 1024);
            if (block->state == 0)
                msgcont("  Free      : %8d (%2d)", size, 0);
            else if (block->lock_count > 0)
                msgcont("  Locked(%2d): %8d (%2d)", static_cast<int>(block->lock_count), size, 1);
            else if (block->exclusive_count > 0)
                msgcont("  LockedEx(%2d): %8d (%2d)", static_cast<int>(block->exclusive_count), size, 1);
            else
                msgcont("  Used       : %8d (%2d)", size, 1);
            listed += block->size;
        }
        msgcont("  Total : %8d of %d", static_cast<int>(listed / 1024), static_cast<int>(total_ / 1024));
    }

    std::string name_;
    uint64_t alignment_;
    uint64_t header_;
    uint64_t total_;
    int mode_;
    std::byte* base_;
    std::byte* end_ = nullptr;
    uint64_t counter_ = 0;
};
