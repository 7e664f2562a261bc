// The name is kept in the thread and found through a key: the first look at a thread_local of a library that was loaded
// late allocates, which the crash report cannot do when the crash happened inside the allocator.

#include "platform/thread_identity.h"

#include <pthread.h>

#include <climits>
#include <cstring>

#include "platform/crash.h"

namespace vell {
namespace {

thread_local char own_name[k_thread_name_bytes];

/// Made while the library is loaded.
const pthread_key_t own_name_key = [] {
    pthread_key_t made{};
    if (pthread_key_create(&made, nullptr) != 0) made = PTHREAD_KEYS_MAX;
    return made;
}();

}  // namespace

void set_own_thread_name(const char* name) noexcept {
    const size_t length = strnlen(name, k_thread_name_bytes - 1);
    std::memcpy(own_name, name, length);
    std::memset(own_name + length, 0, k_thread_name_bytes - length);
    pthread_setspecific(own_name_key, own_name);
}

const char* own_thread_name() noexcept {
    return static_cast<const char*>(pthread_getspecific(own_name_key));
}

void identify_thread(const char* name) noexcept {
    set_own_thread_name(name);
    set_system_thread_name(name);
    static_cast<void>(ensure_alternate_stack());
}

}  // namespace vell
