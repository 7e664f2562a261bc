#include "platform/thread_identity.h"

#include <pthread.h>

#include <cstring>

namespace vell {

void set_system_thread_name(const char* name) noexcept {
    char cut[16] = {};  // what the kernel keeps, terminator included
    std::memcpy(cut, name, strnlen(name, sizeof cut - 1));
    pthread_setname_np(pthread_self(), cut);
}

}  // namespace vell
