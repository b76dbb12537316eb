// The test certificate authority of `bmc-sandbox --acme`: Debian's pebble,
// validating http-01 challenges for real against the sandbox's web server,
// and pebble-challtestsrv as the DNS server through which pebble resolves
// every name to 127.0.0.1. The package ships no TLS pair and no usable
// configuration, so both are made here at run time.
#ifndef BMC_SANDBOX_ACME_CA_H
#define BMC_SANDBOX_ACME_CA_H

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sandbox {

struct AcmeOptions {
    bool enabled = false;
    // Accounts need an external account binding, with the MAC keys of the
    // package's example configuration.
    bool eab = false;
    // Lifetime of the certificates issued; pebble's own (about 5 years)
    // when not given.
    std::optional<long> validity_seconds;
};

struct AcmePorts {
    int directory = 0;
    int management = 0;
    int http = 0;     // the web server's plain-HTTP listener: where http-01 is fetched
    int tls_alpn = 0; // held, never listened on: tls-alpn-01 always fails
    int dns = 0;
    int dns_management = 0;
};

// The files of the authority, in the run directory.
inline constexpr std::string_view kAcmeTlsCa = "tls-ca.pem";     // authority of its HTTPS listeners
inline constexpr std::string_view kAcmeTlsCert = "tls-cert.pem"; // for localhost and 127.0.0.1
inline constexpr std::string_view kAcmeTlsKey = "tls-key.pem";
inline constexpr std::string_view kAcmeConfig = "pebble-config.json";
inline constexpr std::string_view kAcmeRoot = "root.pem"; // its issuing root, fetched at each start
inline constexpr std::string_view kAcmeEabKey = "eab-key"; // the first account's MAC key, 0600
[[nodiscard]] std::string acme_file(std::string_view name);

// Makes the authority and leaf of pebble's HTTPS listeners unless this run
// already made them.
[[nodiscard]] bool make_acme_tls(std::string &why);

// pebble's configuration; with EAB also writes the kAcmeEabKey file and
// sets EAB_KID to its key identifier.
[[nodiscard]] std::optional<std::string> acme_ca_config(const AcmeOptions &options,
                                                        const AcmePorts &ports,
                                                        std::string &eab_kid, std::string &why);

[[nodiscard]] std::vector<std::string> acme_dns_argv(const std::string &program,
                                                     const AcmePorts &ports);
[[nodiscard]] std::vector<std::string> acme_ca_argv(const std::string &program,
                                                    const AcmePorts &ports);

// Waits until pebble's directory answers, then stores its root in
// the kAcmeRoot file.
[[nodiscard]] bool fetch_acme_root(const AcmePorts &ports,
                                   std::chrono::steady_clock::time_point deadline,
                                   std::string &why);

// The MAC keys object of the package's example configuration, rebuilt from
// the identifiers and keys it holds (each checked to be base64url).
struct MacKey {
    std::string kid;
    std::string key;
};
[[nodiscard]] std::vector<MacKey> parse_mac_keys(const std::string &example_config);

} // namespace sandbox

#endif
