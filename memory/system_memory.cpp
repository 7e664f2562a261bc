// System allocations on record, the machine's memory and its page size.
//
// `record_lock` guards the record and its totals. It lives as long as the process: allocations work before
// mem_initialize and after mem_closedown too. The allocator and the log are called without it.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "memory/allocation_records.h"
#include "memory/size_text.h"
#include "platform/fork_handlers.h"
#include "platform/immortal.h"
#include "platform/lock.h"
#include "platform/memory_size.h"
#include "vellcore/block_memory.h"
#include "vellcore/heap_set.h"
#include "vellcore/message_log.h"
#include "vellcore/vector.h"

namespace vell {
namespace {

constexpr int32_t k_system_alignment = 65536;
constexpr uint64_t k_assumed_memory = 536870912;  // where the system does not tell

Mutex record_lock;
const ForkEntry fork_entry(ForkOrder::system_allocations, record_lock);

struct SystemAllocations {
    AllocationRecords records;
    uint64_t total_bytes = 0;  // of all records
    uint64_t most_bytes = 0;   // the peak of total_bytes
};
constinit Immortal<SystemAllocations> allocations VELL_GUARDED_BY(record_lock);

std::atomic<int32_t> page_size{0};

/// Exchanges real and effective ids for its lifetime, so that the right of the real owner to lock memory counts.
/// Where they are equal nothing would change, and changing ids interrupts every thread of the process.
class ExchangedIds {
public:
    ExchangedIds() noexcept : is_needed_(getuid() != geteuid() || getgid() != getegid()) { exchange(); }
    ~ExchangedIds() { exchange(); }
    ExchangedIds(const ExchangedIds&) = delete;
    ExchangedIds& operator=(const ExchangedIds&) = delete;

private:
    void exchange() const noexcept {
        if (!is_needed_) return;
        const int saved = errno;
        if (setreuid(geteuid(), getuid()) != 0) msg_os_error("MEMORY: Can't exchange user ids");
        if (setregid(getegid(), getgid()) != 0) msg_os_error("MEMORY: Can't exchange group ids");
        errno = saved;
    }

    const bool is_needed_;
};

}  // namespace
}  // namespace vell

using vell::allocations;

uint64_t mem_initialize(mem_info_str* info) noexcept {
    return mem_info(info);
}

uint64_t mem_info(mem_info_str* info) noexcept {
    uint64_t size = vell::physical_memory_bytes();
    if (size == 0) size = vell::k_assumed_memory;
    mem_info_str measured{};
    measured.phys_total = measured.heap_total = size;
    measured.phys_avail = measured.heap_avail = static_cast<uint64_t>(static_cast<double>(size) * 0.75);
    if (info != nullptr) *info = measured;
    return measured.heap_avail;
}

int32_t mem_pagesize() noexcept {
    constexpr int32_t k_smallest = 512;
    int32_t size = vell::page_size.load(std::memory_order_relaxed);
    if (size > 0) return size;
    size = static_cast<int32_t>(sysconf(_SC_PAGESIZE));
    if (size <= k_smallest) size = k_smallest;
    vell::page_size.store(size, std::memory_order_relaxed);
    return size;
}

void* os_alloc(uint64_t size, int32_t locked) noexcept {
    void* address = a_alloc(size, vell::k_system_alignment);
    if (address == nullptr) {
        msgwarn("MEMORY: OS allocation failed, Requested: %s", vell::SizeText(size, vell::k_kib_bits).text());
        return nullptr;
    }
    uint32_t records_before = 0;
    bool is_recorded = false;
    {
        const vell::ScopedLock lock(vell::record_lock);
        vell::SystemAllocations& all = allocations.value;
        records_before = all.records.count();
        is_recorded = all.records.add({address, size, locked});
        all.total_bytes += size;
        all.most_bytes = std::max(all.most_bytes, all.total_bytes);
    }
    // Kept: the line is that of a vl_vector, and the allocation stays off the record.
    if (!is_recorded) vl_vector_report_failure(records_before, /*adding*/ 1, sizeof(spm_record));
    return address;
}

bool os_free(void* address) noexcept {
    spm_record record{};
    bool is_known = false;
    {
        const vell::ScopedLock lock(vell::record_lock);
        vell::SystemAllocations& all = allocations.value;
        is_known = all.records.take(address, record);
        all.total_bytes -= record.size;
        // Kept: with a total of 0 the record is dropped whole, and allocations of 0 bytes with it.
        if (is_known && all.total_bytes == 0) all.records.release();
    }
    if (!is_known) {
        msgdebug("MEMORY: OS bad memory reference passed: %x",
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)));
        return false;
    }
    // Off the record first: the system takes its time to unmap gigabytes, and nobody else has to wait for that.
    if (record.locked != 0) mem_unlock(address, record.size);
    a_free(address);
    return true;
}

bool os_check_ptr(void* address) noexcept {
    const vell::ScopedLock lock(vell::record_lock);
    return allocations.value.records.has(address);
}

int32_t mem_lock(void* address, uint64_t length) noexcept {
    const vell::ExchangedIds exchanged;
    return mlock(address, length);
}

int32_t mem_unlock(void* address, uint64_t length) noexcept {
    const vell::ExchangedIds exchanged;
    return munlock(address, length);
}

void mem_closedown() noexcept {
    sb_destroy();
    uint32_t records_left = 0;
    uint64_t bytes_left = 0;
    {
        const vell::ScopedLock lock(vell::record_lock);
        vell::SystemAllocations& all = allocations.value;
        records_left = all.records.count();
        bytes_left = all.total_bytes;
        all.records.release();
    }
    if (records_left != 0 || bytes_left != 0)
        msgdebug("MEMORY: Closedown: %d OS allocations left: %d\n", static_cast<int>(records_left),
                 static_cast<int>(bytes_left));
}
