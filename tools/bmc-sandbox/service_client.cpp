#include "service_client.h"

#include "layout.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sandbox {

namespace {

// A restart waits at most 5 seconds for the old process and 10 for the
// new one; this leaves the supervisor ample time to answer.
constexpr int kAnswerTimeoutSeconds = 60;

[[nodiscard]] bool send_all(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return false;
        }
        done += static_cast<size_t>(n);
    }
    return true;
}

} // namespace

UniqueFd connect_control(int &err) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, kControlSocket.data(), kControlSocket.size());
    if (!fd.Valid() || ::connect(fd.Get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        err = errno;
        return {};
    }
    return fd;
}

bool request_unit(const std::string &verb, const std::string &unit, std::string &why) {
    int err = 0;
    const UniqueFd fd = connect_control(err);
    if (!fd.Valid()) {
        why = "the sandbox's service supervisor cannot be reached at " +
              std::string(kControlSocket) + ": " + std::strerror(err);
        return false;
    }
    const timeval timeout{kAnswerTimeoutSeconds, 0};
    ::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    if (!send_all(fd.Get(), verb + " " + unit + "\n")) {
        why = std::string("cannot send the request: ") + std::strerror(errno);
        return false;
    }
    ::shutdown(fd.Get(), SHUT_WR);
    std::string answer;
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            why = std::string("no answer from the service supervisor: ") + std::strerror(errno);
            return false;
        }
        if (n == 0) {
            break;
        }
        answer.append(buf, static_cast<size_t>(n));
    }
    if (answer == "ok\n") {
        return true;
    }
    why = answer.starts_with("error ") ? answer.substr(6) : "unexpected answer: " + answer;
    while (!why.empty() && why.back() == '\n') {
        why.pop_back();
    }
    return false;
}

int request_units(const std::string &verb, const std::vector<std::string> &units) {
    if (units.empty()) {
        std::fprintf(stderr, "systemctl: %s needs a unit name\n", verb.c_str());
        return 1;
    }
    for (std::string unit : units) {
        if (unit.find('.') == std::string::npos) {
            unit += ".service"; // as systemctl does
        }
        std::string why;
        if (!request_unit(verb, unit, why)) {
            std::fprintf(stderr, "systemctl: %s of %s failed: %s\n", verb.c_str(), unit.c_str(),
                         why.c_str());
            return 1;
        }
    }
    return 0;
}

} // namespace sandbox
