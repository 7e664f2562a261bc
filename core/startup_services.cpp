// The small services beside start-up: UUIDs and the fixed answers.

#include <uuid/uuid.h>

#include <cstring>

#include "vellcore/startup.h"

char* vl_create_uuid(char* destination_64) noexcept {
    constexpr size_t k_destination_bytes = 64;
    if (destination_64 == nullptr) return nullptr;
    uuid_t fresh;
    uuid_generate(fresh);
    std::memset(destination_64, 0, k_destination_bytes);
    uuid_unparse(fresh, destination_64);
    return destination_64;
}

const void* MainThreadResponseHandler(void*, int32_t, const void* message_data, void*) noexcept {
    return message_data;
}

int32_t vl_get_instance_update() noexcept {
    return 0;
}
int32_t RA_CheckProcessWasRestarted() noexcept {
    return 0;
}
int32_t RA_WaitForPreviousProcessFinish() noexcept {
    return 0;
}
int32_t RA_DoRestartProcessFinish() noexcept {
    return 0;
}
int32_t RA_ActivateRestartProcess() noexcept {
    return 1;
}
