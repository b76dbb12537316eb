// Where a sandboxed controller keeps its files: the directories under the
// sandbox root and the places the controller's software finds them.
#ifndef BMC_SANDBOX_LAYOUT_H
#define BMC_SANDBOX_LAYOUT_H

#include <array>
#include <string_view>

namespace sandbox {

// Name the factory certificate is issued to. ".local" is never delegated
// in public DNS, so the name cannot clash with a real host's certificate.
inline constexpr std::string_view kControllerHostName = "bmc.local";

struct MountPlace {
    std::string_view below_root;
    std::string_view target;
};

inline constexpr std::array kMountPlaces{
    MountPlace{"conf", "/conf"},
    MountPlace{"var/certs", "/var/certs"},
    MountPlace{"state", "/var/lib/bmc-sim"},
};

// Stand-ins of controller programs; first on PATH inside the sandbox.
inline constexpr std::string_view kBinDir = "bin";

// Written last by provisioning, so that an interrupted one is done again.
inline constexpr std::string_view kProvisionedMarker = ".provisioned";

// Configuration of the factory certificate request, present only while
// provisioning runs.
inline constexpr std::string_view kRequestConfig = ".factory-request.cnf";

// Everything a sandbox ever has directly under its root; temporary files
// of interrupted writes end in ".tmp".
inline constexpr std::array kRootEntries{
    std::string_view{"conf"}, std::string_view{"var"}, std::string_view{"state"}, kBinDir,
    kProvisionedMarker,       kRequestConfig,
};

// Where the enrolment writes the http-01 challenge files that the web
// server's plain-HTTP listener serves (its factory configuration names it).
inline constexpr std::string_view kAcmeChallengeBelowRoot = "conf/acme/challenge";

// Paths inside the sandbox of the services that `--services` runs.
inline constexpr std::string_view kTunnelControllerConfig = "/conf/adviserd/stunnel.conf";
inline constexpr std::string_view kWebControllerConfig = "/conf/lighttpd/lighttpd.conf";
// Shell-sourceable BMC_SIM_*_PORT lines.
inline constexpr std::string_view kServicesEnv = "/var/lib/bmc-sim/services.env";
// Derived configurations, logs, pid file, document root, control socket.
inline constexpr std::string_view kServicesRunDir = "/var/lib/bmc-sim/run";
inline constexpr std::string_view kControlSocket = "/var/lib/bmc-sim/run/control.sock";
// Link to this tool, which the sandbox's systemctl runs as
// `bmc-sandbox --service-restart UNIT...`.
inline constexpr std::string_view kToolLink = "/var/lib/bmc-sim/run/bmc-sandbox";
// The test certificate authority of `--acme`: its TLS pair and
// configuration, its issuing root, the external account MAC key.
inline constexpr std::string_view kAcmeRunDir = "/var/lib/bmc-sim/run/acme";
// Link to the login endpoint program (cert-login, built beside this tool),
// which the web server runs for /login.
inline constexpr std::string_view kLoginLink = "/var/lib/bmc-sim/run/cert-login";

} // namespace sandbox

#endif
