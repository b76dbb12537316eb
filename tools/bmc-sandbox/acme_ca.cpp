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

std::string loopback(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

[[nodiscard]] bool run_quietly(const std::vector<std::string> &argv, std::string &why) {
    RunOptions options;
    options.umask = 077; // keys are never readable by others, not even briefly
    options.capture_output = true;
    RunResult result;
    if (!run_program(argv, options, result, why)) {
        return false;
    }
    if (result.exit_code != 0) {
        why = argv[0] + " " + argv[1] + " failed (exit status " + std::to_string(result.exit_code) +
              "):\n" + result.output;
        return false;
    }
    return true;
}

// curl, told to trust only pebble's own authority and to ignore any proxy
// of the environment (everything here is on loopback).
[[nodiscard]] bool fetch(const std::string &url, const std::string &out, std::string &why) {
    return run_quietly({"curl", "--silent", "--show-error", "--fail", "--noproxy", "*",
                        "--max-time", "5", "--cacert", acme_file(kAcmeTlsCa), "--output", out, url},
                       why);
}

} // namespace

std::string acme_file(std::string_view name) {
    return std::string(kAcmeRunDir) + "/" + std::string(name);
}

bool make_acme_tls(std::string &why) {
    if (path_exists(acme_file(kAcmeTlsCert)) && path_exists(acme_file(kAcmeTlsKey))) {
        return true;
    }
    const std::string ca_key = acme_file("tls-ca.key");
    // clang-format off
    // The machine's own tool: a target's older one on PATH lacks req -CA.
    const std::vector<std::string> new_ec_pair{
        "/usr/bin/openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
        "-nodes", "-days", "7"};
    const std::vector<std::string> authority{
        "-subj", "/CN=bmc-sandbox ACME listener authority",
        "-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign",
        "-keyout", ca_key, "-out", acme_file(kAcmeTlsCa)};
    const std::vector<std::string> leaf{
        "-CA", acme_file(kAcmeTlsCa), "-CAkey", ca_key, "-subj", "/CN=localhost",
        "-addext", "basicConstraints=critical,CA:FALSE",
        "-addext", "keyUsage=critical,digitalSignature",
        "-addext", "extendedKeyUsage=serverAuth",
        "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
        "-keyout", acme_file(kAcmeTlsKey), "-out", acme_file(kAcmeTlsCert)};
    // clang-format on
    const auto with = [&new_ec_pair](const std::vector<std::string> &rest) {
        std::vector<std::string> argv = new_ec_pair;
        argv.insert(argv.end(), rest.begin(), rest.end());
        return argv;
    };
    const bool made = make_dirs(std::string(kAcmeRunDir), 0755, why) &&
                      run_quietly(with(authority), why) && run_quietly(with(leaf), why);
    // Nothing else is ever signed with it.
    ::unlink(ca_key.c_str());
    return made && ::chmod(acme_file(kAcmeTlsCa).c_str(), 0644) == 0 &&
           ::chmod(acme_file(kAcmeTlsCert).c_str(), 0644) == 0;
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
    std::string text = "{\n  \"pebble\": {\n";
    const auto field = [&text](std::string_view name, const std::string &json_value) {
        text += "    \"" + std::string(name) + "\": " + json_value + ",\n";
    };
    const auto quoted = [](const std::string &value) { return "\"" + value + "\""; };
    field("listenAddress", quoted(loopback(ports.directory)));
    field("managementListenAddress", quoted(loopback(ports.management)));
    field("certificate", quoted(acme_file(kAcmeTlsCert)));
    field("privateKey", quoted(acme_file(kAcmeTlsKey)));
    field("httpPort", std::to_string(ports.http));
    field("tlsPort", std::to_string(ports.tls_alpn));
    field("ocspResponderURL", quoted(""));
    if (options.validity_seconds) {
        field("certificateValidityPeriod", std::to_string(*options.validity_seconds));
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
        if (!write_file_atomic(acme_file(kAcmeEabKey), keys.front().key, 0600, why)) {
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
    // clang-format off
    return {program, "-dns01", loopback(ports.dns), "-http01", "", "-https01", "", "-tlsalpn01", "",
            "-management", loopback(ports.dns_management),
            "-defaultIPv4", "127.0.0.1", "-defaultIPv6", ""};
    // clang-format on
}

std::vector<std::string> acme_ca_argv(const std::string &program, const AcmePorts &ports) {
    return {program, "-config", acme_file(kAcmeConfig), "-dnsserver", loopback(ports.dns)};
}

bool fetch_acme_root(const AcmePorts &ports, std::chrono::steady_clock::time_point deadline,
                     std::string &why) {
    const std::string base = "https://" + loopback(ports.directory);
    const std::string answer = acme_file("directory.json");
    while (!fetch(base + "/dir", answer, why)) {
        if (std::chrono::steady_clock::now() > deadline) {
            why = "its directory did not answer within 10 seconds: " + why;
            return false;
        }
        std::this_thread::sleep_for(kRetryInterval);
    }
    ::unlink(answer.c_str());
    const std::string fetched = acme_file(kAcmeRoot) + ".fetched";
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
    return write_file_atomic(acme_file(kAcmeRoot), pem, 0644, why);
}

} // namespace sandbox
