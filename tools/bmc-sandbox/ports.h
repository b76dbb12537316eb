// Free loopback ports for the services of one sandbox.
//
// A port is taken by binding 127.0.0.1:0 (the kernel picks a free port)
// and kept: the socket stays bound, never listening, for as long as the
// supervisor lives, with SO_REUSEADDR set after the bind. The kernel then
// hands that port to no other automatic bind and refuses it to any plain
// bind, while stunnel and lighttpd, which set SO_REUSEADDR on their
// listeners, can still listen on it, at every restart. Only a program that
// binds that very port with SO_REUSEADDR could take it in between.
#ifndef BMC_SANDBOX_PORTS_H
#define BMC_SANDBOX_PORTS_H

#include "fs_util.h"

#include <map>
#include <string>

namespace sandbox {

class PortBook {
  public:
    // The port held under NAME, taking a new one on first use; 0 on
    // failure, WHY then says why.
    [[nodiscard]] int port_for(const std::string &name, std::string &why);

    [[nodiscard]] const std::map<std::string, int> &ports() const { return ports_; }

  private:
    std::map<std::string, int> ports_;
    std::map<std::string, UniqueFd> holders_;
};

// True when something accepts TCP connections on 127.0.0.1:PORT now.
[[nodiscard]] bool loopback_port_listening(int port);

} // namespace sandbox

#endif
