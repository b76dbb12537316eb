#include "acme_ca.h"

#include "fs_util.h"
#include "layout.h"
#include "spawn.h"

#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <thread>

namespace sandbox {

namespace {

constexpr std::string_view kExampleEabConfig =
    "/usr/share/doc/pebble/examples/pebble-config-external-account-bindings.json";
constexpr auto kRetryInterval = std::chrono::milliseconds(100);

std::string in_dir(std::string_view name) { return AcmeFiles::dir() + "/" + std::string(name); }

std::string loopback(int port) { return "127.0.0.1:" + std::to_string(port); }

[[nodiscard]] bool run_quietly(const std::vector<std::string> &argv, std::string &why) {
    RunOptions options;
    options.umask = 077; // keys are never readable by others, not even briefly
    options.capture_output = true;
    RunResult result;
    if (!run_program(argv, options, result, why)) {
        return false;
    }
    if (result.exit_code != 0) {
        why = argv[0] + " " + argv[1] + " failed (exit status " +
              std::to_string(result.exit_code) + "):\n" + result.output;
        return false;
    }
    return true;
}

// curl, told to trust only pebble's own authority and to ignore any proxy
// of the environment (everything here is on loopback).
[[nodiscard]] bool fetch(const std::string &url, const std::string &out, std::string &why) {
    return run_quietly({"curl", "--silent", "--show-error", "--fail", "--noproxy", "*",
                        "--max-time", "5", "--cacert", AcmeFiles::tls_ca(), "--output", out, url},
                       why);
}

} // namespace

std::string AcmeFiles::dir() { return std::string(kAcmeRunDir); }
std::string AcmeFiles::tls_ca() { return in_dir("tls-ca.pem"); }
std::string AcmeFiles::tls_cert() { return in_dir("tls-cert.pem"); }
std::string AcmeFiles::tls_key() { return in_dir("tls-key.pem"); }
std::string AcmeFiles::config() { return in_dir("pebble-config.json"); }
std::string AcmeFiles::root() { return in_dir("root.pem"); }
std::string AcmeFiles::eab_key() { return in_dir("eab-key"); }

bool make_acme_tls(std::string &why) {
    if (path_exists(AcmeFiles::tls_cert()) && path_exists(AcmeFiles::tls_key())) {
        return true;
    }
    const std::string ca_key = in_dir("tls-ca.key");
    const bool made =
        make_dirs(AcmeFiles::dir(), 0755, why) &&
        run_quietly({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                     "ec_paramgen_curve:P-256", "-nodes", "-days", "7", "-subj",
                     "/CN=bmc-sandbox ACME listener authority", "-addext",
                     "basicConstraints=critical,CA:TRUE", "-addext",
                     "keyUsage=critical,keyCertSign", "-keyout", ca_key, "-out",
                     AcmeFiles::tls_ca()},
                    why) &&
        run_quietly({"openssl", "req", "-x509", "-CA", AcmeFiles::tls_ca(), "-CAkey", ca_key,
                     "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days",
                     "7", "-subj", "/CN=localhost", "-addext",
                     "basicConstraints=critical,CA:FALSE", "-addext",
                     "keyUsage=critical,digitalSignature", "-addext",
                     "extendedKeyUsage=serverAuth", "-addext",
                     "subjectAltName=DNS:localhost,IP:127.0.0.1", "-keyout",
                     AcmeFiles::tls_key(), "-out", AcmeFiles::tls_cert()},
                    why);
    // Nothing else is ever signed with it.
    ::unlink(ca_key.c_str());
    return made && ::chmod(AcmeFiles::tls_ca().c_str(), 0644) == 0 &&
           ::chmod(AcmeFiles::tls_cert().c_str(), 0644) == 0;
}

std::vector<MacKey> parse_mac_keys(const std::string &example_config) {
    std::vector<MacKey> keys;
    const size_t name = example_config.find("\"externalAccountMACKeys\"");
    const size_t open = example_config.find('{', name);
    const size_t close = example_config.find('}', open);
    if (name == std::string::npos || open == std::string::npos || close == std::string::npos) {
        return keys;
    }
    static const std::regex kPair(R"re("([A-Za-z0-9_-]{1,64})"\s*:\s*"([A-Za-z0-9_-]{16,512})")re");
    const std::string object = example_config.substr(open + 1, close - open - 1);
    for (auto it = std::sregex_iterator(object.begin(), object.end(), kPair);
         it != std::sregex_iterator(); ++it) {
        keys.push_back({(*it)[1].str(), (*it)[2].str()});
    }
    return keys;
}

std::optional<std::string> acme_ca_config(const AcmeOptions &options, const AcmePorts &ports,
                                          std::string &eab_kid, std::string &why) {
    std::string text = "{\n  \"pebble\": {\n"
                       "    \"listenAddress\": \"" +
                       loopback(ports.directory) +
                       "\",\n"
                       "    \"managementListenAddress\": \"" +
                       loopback(ports.management) +
                       "\",\n"
                       "    \"certificate\": \"" +
                       AcmeFiles::tls_cert() +
                       "\",\n"
                       "    \"privateKey\": \"" +
                       AcmeFiles::tls_key() +
                       "\",\n"
                       "    \"httpPort\": " +
                       std::to_string(ports.http) +
                       ",\n"
                       "    \"tlsPort\": " +
                       std::to_string(ports.tls_alpn) +
                       ",\n"
                       "    \"ocspResponderURL\": \"\",\n";
    if (options.validity_seconds) {
        text += "    \"certificateValidityPeriod\": " + std::to_string(*options.validity_seconds) +
                ",\n";
    }
    if (options.eab) {
        std::string example;
        if (!read_file(std::string(kExampleEabConfig), example, why)) {
            return std::nullopt;
        }
        const std::vector<MacKey> keys = parse_mac_keys(example);
        if (keys.empty()) {
            why = std::string(kExampleEabConfig) + " holds no MAC key";
            return std::nullopt;
        }
        if (!write_file_atomic(AcmeFiles::eab_key(), keys.front().key, 0600, why)) {
            return std::nullopt;
        }
        eab_kid = keys.front().kid;
        text += "    \"externalAccountMACKeys\": {";
        for (size_t i = 0; i < keys.size(); ++i) {
            text += std::string(i == 0 ? "\n" : ",\n") + "      \"" + keys[i].kid + "\": \"" +
                    keys[i].key + "\"";
        }
        text += "\n    },\n";
    }
    text += std::string("    \"externalAccountBindingRequired\": ") +
            (options.eab ? "true" : "false") + "\n  }\n}\n";
    return text;
}

std::vector<std::string> acme_dns_argv(const std::string &program, const AcmePorts &ports) {
    // Its own challenge listeners are off: they would take pebble's ports.
    return {program,      "-dns01",          loopback(ports.dns),
            "-http01",    "",                "-https01",
            "",           "-tlsalpn01",      "",
            "-management", loopback(ports.dns_management), "-defaultIPv4",
            "127.0.0.1",  "-defaultIPv6",    ""};
}

std::vector<std::string> acme_ca_argv(const std::string &program, const AcmePorts &ports) {
    return {program, "-config", AcmeFiles::config(), "-dnsserver", loopback(ports.dns)};
}

bool fetch_acme_root(const AcmePorts &ports, std::chrono::steady_clock::time_point deadline,
                     std::string &why) {
    const std::string base = "https://" + loopback(ports.directory);
    const std::string answer = in_dir("directory.json");
    while (!fetch(base + "/dir", answer, why)) {
        if (std::chrono::steady_clock::now() > deadline) {
            why = "its directory did not answer within 10 seconds: " + why;
            return false;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    ::unlink(answer.c_str());
    const std::string fetched = AcmeFiles::root() + ".fetched";
    std::string pem;
    if (!fetch("https://" + loopback(ports.management) + "/roots/0", fetched, why) ||
        !read_file(fetched, pem, why)) {
        why = "cannot fetch its root: " + why;
        return false;
    }
    ::unlink(fetched.c_str());
    if (!pem.starts_with("-----BEGIN CERTIFICATE-----")) {
        why = "its management port answered /roots/0 with no PEM certificate";
        return false;
    }
    return write_file_atomic(AcmeFiles::root(), pem, 0644, why);
}

} // namespace sandbox
