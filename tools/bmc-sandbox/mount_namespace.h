// Moves the calling process into a mount namespace of its own in which the
// sandbox's directories stand where the controller expects its files.
#ifndef BMC_SANDBOX_MOUNT_NAMESPACE_H
#define BMC_SANDBOX_MOUNT_NAMESPACE_H

#include <string>
#include <vector>

namespace sandbox {

struct BindMount {
    std::string source; // directory under the sandbox root
    std::string target; // where the controller's software looks for it
};

// Unshares the mount namespace (inside a new user namespace when the caller
// is not root), stops mount propagation to the host, creates missing mount
// points and binds each source onto its target. Must be called while the
// process is single-threaded. On failure the process may already be in the
// new namespace, but no mount has reached the host.
[[nodiscard]] bool enter_private_mounts(const std::vector<BindMount> &mounts, std::string &why);

} // namespace sandbox

#endif
