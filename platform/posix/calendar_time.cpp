#include "platform/calendar_time.h"

#include "platform/fork_handlers.h"
#include "platform/lock.h"

namespace vell {
namespace {

Mutex zone_lock;
const ForkEntry fork_entry(ForkOrder::time_zone, zone_lock);

}  // namespace

bool local_fields(time_t moment, tm& fields) noexcept {
    const ScopedLock lock(zone_lock);
    return localtime_r(&moment, &fields) != nullptr;
}

bool utc_fields(time_t moment, tm& fields) noexcept {
    const ScopedLock lock(zone_lock);
    return gmtime_r(&moment, &fields) != nullptr;
}

time_t moment_of_local(tm& fields) noexcept {
    const ScopedLock lock(zone_lock);
    return mktime(&fields);
}

}  // namespace vell
