// The one message of vl_vector, kept out of the template so that its users need not know the log.

#include "vellcore/vector.h"

#include "vellcore/message_log.h"

void vl_vector_report_failure(uint32_t count, uint32_t adding, uint64_t element_size) noexcept {
    msgerror("Vector ensure: Not enough memory..(%d + %d * %d)", static_cast<int>(count), static_cast<int>(adding),
             static_cast<int>(element_size));
}
