#include "network_namespace.h"

#include "fs_util.h"

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace sandbox {

bool enter_private_network(std::string &why) {
    if (::unshare(CLONE_NEWNET) != 0) {
        why = std::string("cannot make a private network: ") + std::strerror(errno);
        return false;
    }
    // A new namespace's loopback interface starts down.
    const UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::memcpy(request.ifr_name, "lo", 3);
    if (!fd.Valid() || ::ioctl(fd.Get(), SIOCGIFFLAGS, &request) != 0) {
        why = std::string("cannot read the loopback interface: ") + std::strerror(errno);
        return false;
    }
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    if (::ioctl(fd.Get(), SIOCSIFFLAGS, &request) != 0) {
        why = std::string("cannot bring the loopback interface up: ") + std::strerror(errno);
        return false;
    }
    return true;
}

} // namespace sandbox
