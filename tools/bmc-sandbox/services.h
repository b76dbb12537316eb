// The controller services that `bmc-sandbox --services` really runs:
// stunnel.service and lighttpd.service, each derived afresh from the
// controller's configuration at every (re)start, started in the
// foreground as a child of the caller (the supervisor) in a process group
// of its own, and bound to 127.0.0.1 on ports held by a PortBook. With
// --acme also the test certificate authority (pebble.service) and its DNS
// server (pebble-challtestsrv.service), which a test may stop and start.
#ifndef BMC_SANDBOX_SERVICES_H
#define BMC_SANDBOX_SERVICES_H

#include "acme_ca.h"
#include "ports.h"

#include <sys/types.h>

#include <array>
#include <optional>
#include <string>

namespace sandbox {

class Services {
  public:
    explicit Services(AcmeOptions acme);
    Services(const Services &) = delete;
    Services &operator=(const Services &) = delete;
    ~Services() { stop_all(); }

    // Starts every service; on failure stops those already started.
    [[nodiscard]] bool start_all(std::string &why);

    // Stops UNIT if it runs and starts it with its current files. Returns
    // once the new process accepts connections on all its ports, so a
    // client connecting afterwards meets the new process; false (WHY then
    // holds the unit's last log lines) when it exits or does not listen
    // within 10 seconds. services.env is rewritten after a success.
    [[nodiscard]] bool restart(const std::string &unit, std::string &why);

    // What systemctl stop and start do to the certificate authority's
    // units (the controller's own are only restarted): a stopped unit
    // keeps its ports, so a client meets a refused connection until it
    // is started again. Starting a running unit does nothing.
    [[nodiscard]] bool stop_unit(const std::string &unit, std::string &why);
    [[nodiscard]] bool start_unit(const std::string &unit, std::string &why);

    // SIGTERM to each service's process group, SIGKILL after 5 seconds.
    void stop_all();

    // Tells that PID, a child of the caller, ended and was reaped.
    void reaped(pid_t pid);

  private:
    struct Launch;
    [[nodiscard]] std::optional<size_t> find(const std::string &unit, bool acme_only,
                                             std::string &why) const;
    [[nodiscard]] bool acme_ports(AcmePorts &ports, std::string &why);
    [[nodiscard]] bool prepare(size_t unit, Launch &launch, std::string &why);
    [[nodiscard]] bool start(size_t unit, std::string &why);
    void stop(size_t unit);
    [[nodiscard]] bool write_env(std::string &why) const;

    AcmeOptions acme_;
    size_t unit_count_;
    PortBook ports_;
    std::array<pid_t, 4> pids_{-1, -1, -1, -1};
    std::string eab_kid_;
    std::string first_tunnel_section_;
};

} // namespace sandbox

#endif
