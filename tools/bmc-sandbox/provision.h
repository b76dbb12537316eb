// Turns an empty directory into the files of a factory-fresh controller.
#ifndef BMC_SANDBOX_PROVISION_H
#define BMC_SANDBOX_PROVISION_H

#include <string>

namespace sandbox {

// Provisions ROOT (an absolute path) unless an earlier run completed that,
// so files written by earlier sandboxed commands survive. Also recreates
// the mount sources if something removed them.
[[nodiscard]] bool provision_if_needed(const std::string &root, std::string &why);

} // namespace sandbox

#endif
