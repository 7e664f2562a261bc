// System allocations on record, the machine's memory and its page size.
//
// `record_lock` guards the record and its totals. It lives as long as the process: allocations work before
// mem_initialize and after mem_closedown too. Held while the allocator runs, before the log's lock.

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

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
    vl_vector<spm_record> records;  // oldest first
    uint64_t total_bytes = 0;       // of all records
    uint64_t most_bytes = 0;        // the peak of total_bytes
};
constinit Immortal<SystemAllocations> allocations VELL_GUARDED_BY(record_lock);

std::atomic<int32_t> page_size{0};

/// The record's position, looked for from the newest to the oldest; -1 when there is none.
int64_t find_record(void* address) noexcept VELL_REQUIRES(record_lock) {
    const vl_vector<spm_record>& records = allocations.value.records;
    for (int64_t i = int64_t{records.count()} - 1; i >= 0; --i)
        if (records[static_cast<uint32_t>(i)].address == address) return i;
    return -1;
}

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
    const vell::ScopedLock lock(vell::record_lock);
    void* address = a_alloc(size, vell::k_system_alignment);
    if (address == nullptr) {
        msgwarn("MEMORY: OS allocation failed, Requested: %s", vell::SizeText(size, vell::k_kib_bits).text());
        return nullptr;
    }
    allocations.value.records.append({address, size, locked});
    allocations.value.total_bytes += size;
    if (allocations.value.total_bytes > allocations.value.most_bytes)
        allocations.value.most_bytes = allocations.value.total_bytes;
    return address;
}

bool os_free(void* address) noexcept {
    const vell::ScopedLock lock(vell::record_lock);
    const int64_t found = vell::find_record(address);
    if (found < 0) {
        msgdebug("MEMORY: OS bad memory reference passed: %x",
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(address)));
        return false;
    }
    vl_vector<spm_record>& records = allocations.value.records;
    const spm_record record = records[static_cast<uint32_t>(found)];
    if (record.locked != 0) mem_unlock(address, record.size);
    a_free(address);
    allocations.value.total_bytes -= record.size;
    records.remove(static_cast<uint32_t>(found));
    // Kept: with a total of 0 the record is dropped whole, and allocations of 0 bytes with it.
    if (allocations.value.total_bytes == 0) records.release();
    return true;
}

bool os_check_ptr(void* address) noexcept {
    const vell::ScopedLock lock(vell::record_lock);
    return vell::find_record(address) >= 0;
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
    const vell::ScopedLock lock(vell::record_lock);
    vl_vector<spm_record>& records = allocations.value.records;
    if (records.count() != 0 || allocations.value.total_bytes != 0)
        msgdebug("MEMORY: Closedown: %d OS allocations left: %d\n", static_cast<int>(records.count()),
                 static_cast<int>(allocations.value.total_bytes));
    records.release();
}
