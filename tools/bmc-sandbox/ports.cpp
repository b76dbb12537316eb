#include "ports.h"

#include "fs_util.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>

namespace sandbox {

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

} // namespace

int PortBook::port_for(const std::string &name, std::string &why) {
    if (const auto it = ports_.find(name); it != ports_.end()) {
        return it->second;
    }
    UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in addr = loopback(0);
    socklen_t len = sizeof addr;
    const int on = 1;
    if (!fd.Valid() || ::bind(fd.Get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        ::getsockname(fd.Get(), reinterpret_cast<sockaddr *>(&addr), &len) != 0 ||
        ::setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) {
        why = errno_text("cannot take a free port for", name, errno);
        return 0;
    }
    const int port = ntohs(addr.sin_port);
    ports_[name] = port;
    holders_[name] = std::move(fd);
    return port;
}

bool loopback_port_listening(int port) {
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in addr = loopback(port);
    return fd.Valid() &&
           ::connect(fd.Get(), reinterpret_cast<const sockaddr *>(&addr), sizeof addr) == 0;
}

} // namespace sandbox
