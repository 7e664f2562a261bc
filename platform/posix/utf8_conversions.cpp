#include "platform/utf8_conversions.h"

namespace vell {

Utf8Conversions::Utf8Conversions() noexcept {
    const locale_t present = duplocale(uselocale(nullptr));
    own_ = newlocale(LC_CTYPE_MASK, "C.UTF-8", present);
    if (own_ == nullptr)
        freelocale(present);
    else
        before_ = uselocale(own_);
}

Utf8Conversions::~Utf8Conversions() {
    if (own_ == nullptr) return;
    uselocale(before_);
    freelocale(own_);
}

}  // namespace vell
