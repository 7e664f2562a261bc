// The claim that makes a second instance of an application find the first.
#pragma once

namespace vell {

enum class InstanceClaim {
    taken,      ///< this process holds the claim now, until it ends
    held,       ///< another instance, or this process already, holds it
    impossible  ///< there is no place to hold claims: go on without
};

/// Takes the claim of `name`, which may be any text, for the calling user. One atomic step: of several processes that
/// try at once exactly one succeeds. The claim ends with the process, however it ends, and is not inherited by
/// children.
[[nodiscard]] InstanceClaim claim_instance(const char* name) noexcept;

}  // namespace vell
