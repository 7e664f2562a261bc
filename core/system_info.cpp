// Facts about the machine. Those of the processor are worked out at the first cpu_configuration and then only read;
// the others at their first use.

#include "vellcore/system_info.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>

#include "platform/first_use.h"
#include "platform/processor.h"

namespace vell {
namespace {

constexpr uint32_t k_not_configured = 0xFFFFFFFF;
constexpr uint32_t k_more_threads_than_cores = 1;
constexpr uint32_t k_not_detected = 4;
constexpr size_t k_model_bytes = 128;   // terminator included
constexpr size_t k_product_bytes = 32;  // terminator included

struct CpuFacts {
    uint32_t status = k_not_configured;
    uint32_t physical = 0;
    uint32_t logical = 0;
    uint32_t features = 0;
    char model[k_model_bytes] = {};
};

CpuFacts work_out_facts() noexcept {
    CpuFacts facts;
    const ProcessorCounts counts = count_processors();
    facts.physical = std::max(counts.physical, 1u);
    facts.logical = counts.logical != 0 ? counts.logical : facts.physical;
    facts.features = processor_features();
    if (!processor_brand(facts.model, sizeof facts.model)) std::strcpy(facts.model, "Unknown");
    facts.status = facts.logical > facts.physical ? k_more_threads_than_cores : k_not_detected;
    return facts;
}

constinit const CpuFacts not_configured;
constinit std::atomic<const CpuFacts*> known_facts{&not_configured};

const CpuFacts& cpu_facts() noexcept {
    return *known_facts.load(std::memory_order_acquire);
}

struct ProductText {
    char text[k_product_bytes];
};

ProductText read_product() noexcept {
    ProductText product{};
    if (!machine_model(product.text, sizeof product.text)) std::strcpy(product.text, "Unknown");
    return product;
}

}  // namespace
}  // namespace vell

uint32_t cpu_configuration(bool, uint32_t& physical, uint32_t& logical, uint32_t& features, char* model_128) noexcept {
    static constinit vell::FirstUse first_call;
    static constinit vell::CpuFacts facts{};
    first_call.run([] {
        facts = vell::work_out_facts();
        vell::known_facts.store(&facts, std::memory_order_release);
    });
    uint32_t status = 0;
    vl_cpu_info(physical, logical, model_128, features, status);
    return status;
}

int32_t vl_cpu_info(uint32_t& physical, uint32_t& logical, char* model_128, uint32_t& features,
                    uint32_t& status) noexcept {
    const vell::CpuFacts& facts = vell::cpu_facts();
    physical = facts.physical;
    logical = facts.logical;
    features = facts.features;
    status = facts.status;
    if (model_128 != nullptr) std::memcpy(model_128, facts.model, sizeof facts.model);
    return 1;
}

uint32_t vl_cpu_support_feature(uint32_t mask) noexcept {
    return mask & vell::cpu_facts().features;
}

uint32_t mp_get_numcpu(int32_t which) noexcept {
    return which != 0 ? vell::cpu_facts().logical : vell::cpu_facts().physical;
}

uint32_t mp_cpu_id(uint32_t index) noexcept {
    return index < vell::cpu_facts().physical ? index : 0xFFFFFFFF;
}

void vl_cpu_limits(uint32_t& online, uint32_t& affinity, double& quota) noexcept {
    const vell::ProcessorLimits limits = vell::processor_limits();
    online = limits.online;
    affinity = limits.affinity;
    quota = static_cast<double>(limits.quota_thousandths) / 1000.0;
}

const char* get_mac_product_string() noexcept {
    static constinit vell::FirstUse first_call;
    static constinit vell::ProductText product{};
    first_call.run([] { product = vell::read_product(); });
    return product.text;
}

int32_t vl_is_apple_silicon() noexcept {
    return vell::is_arm64_build() || vell::is_translated() ? 1 : 0;
}

bool vl_computername(char* buffer, uint32_t size) noexcept {
    if (buffer == nullptr || size == 0) return false;
    const bool is_known = gethostname(buffer, size) == 0;
    if (!is_known) std::strncpy(buffer, "???", size);
    buffer[size - 1] = '\0';
    return is_known;
}

bool vl_admin_privileges() noexcept {
    return true;
}
bool vl_64bit_os_enabled() noexcept {
    return false;
}
void fpu_setup(bool) noexcept {}
void fpu_default_mode() noexcept {}
bool fpu_check() noexcept {
    return true;
}
