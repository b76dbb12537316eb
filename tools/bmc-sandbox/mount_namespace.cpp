#include "mount_namespace.h"

#include "fs_util.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace sandbox {

namespace {

[[nodiscard]] bool write_proc_file(const std::string &path, const std::string &text,
                                   bool missing_ok, std::string &why) {
    const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (!fd.Valid()) {
        if (missing_ok && errno == ENOENT) {
            return true;
        }
        why = errno_text("cannot open", path, errno);
        return false;
    }
    if (::write(fd.Get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        why = errno_text("cannot write", path, errno);
        return false;
    }
    return true;
}

// Without root the only way to a private mount table is a user namespace
// in which the caller is root; its files on disk keep their real owner.
[[nodiscard]] bool enter_user_namespace(int root_errno, std::string &why) {
    const uid_t uid = ::getuid();
    const gid_t gid = ::getgid();
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        why = "the sandbox needs root or unprivileged user namespaces (";
        if (root_errno != 0) {
            why += "mount namespace: ";
            why += std::strerror(root_errno);
            why += "; ";
        }
        why += "user namespace: ";
        why += std::strerror(errno);
        why += ")";
        return false;
    }
    // The kernel accepts a gid map from an unprivileged process only once
    // it can no longer drop supplementary groups.
    return write_proc_file("/proc/self/setgroups", "deny", true, why) &&
           write_proc_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1", false, why) &&
           write_proc_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1", false, why);
}

} // namespace

bool enter_private_mounts(const std::vector<BindMount> &mounts, std::string &why) {
    bool entered = false;
    int root_errno = 0;
    if (::geteuid() == 0) {
        entered = ::unshare(CLONE_NEWNS) == 0;
        root_errno = entered ? 0 : errno;
    }
    if (!entered && !enter_user_namespace(root_errno, why)) {
        return false;
    }

    // Most systems share "/" with the host; without this every bind below
    // would show up in the host's mount table and outlive the sandbox.
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        why = errno_text("cannot make private the mounts under", "/", errno);
        return false;
    }

    for (const BindMount &m : mounts) {
        if (!make_dirs(m.target, 0755, why)) {
            why = "mount point " + m.target + " is missing and cannot be created (" + why + ")";
            return false;
        }
        if (::mount(m.source.c_str(), m.target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            why = errno_text("cannot bind " + m.source + " onto", m.target, errno);
            return false;
        }
    }
    return true;
}

} // namespace sandbox
