// Decides whether a directory may serve as a sandbox root. Provisioning
// writes under the root and --fresh deletes everything in it, so a typo
// in the root must never cost the host a directory it needs.
#ifndef BMC_SANDBOX_ROOT_GUARD_H
#define BMC_SANDBOX_ROOT_GUARD_H

#include <optional>
#include <string>

namespace sandbox {

// Why ROOT (an existing directory) must not be used; nullopt when it may.
// FRESH adds the rule for emptying: ROOT may hold only what a sandbox holds.
[[nodiscard]] std::optional<std::string> root_refusal(const std::string &root, bool fresh);

} // namespace sandbox

#endif
