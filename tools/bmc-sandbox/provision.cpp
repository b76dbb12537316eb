#include "provision.h"

#include "factory_files.h"
#include "fs_util.h"
#include "layout.h"
#include "spawn.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>

namespace sandbox {

namespace {

constexpr std::array kFactoryDirs = {
    std::string_view{"conf/certs/client"},
    std::string_view{"conf/certs/server/default"},
    std::string_view{"conf/certs/server/user"},
    std::string_view{"conf/adviserd"},
    std::string_view{"conf/lighttpd"},
    kAcmeChallengeBelowRoot,
    std::string_view{"var/certs"},
    std::string_view{"state"},
    kBinDir,
};

struct FactoryFile {
    std::string_view below_root;
    std::string (*content)();
    mode_t mode;
};

const std::array kFactoryFiles = {
    FactoryFile{"conf/certs/server/cert_v3_extfile.ext", server_cert_extensions, 0644},
    FactoryFile{"conf/adviserd/stunnel.conf", tunnel_config, 0644},
    FactoryFile{"conf/lighttpd/lighttpd.conf", web_server_config, 0644},
};

// The sandbox's own programs, written at every run so that a ROOT made by
// an older bmc-sandbox gets the current ones.
const std::array kStandIns = {
    FactoryFile{"bin/systemctl", service_manager_script, 0755},
};

constexpr std::string_view kCertPath = "conf/certs/server/default/server.pem";
constexpr std::string_view kKeyPath = "conf/certs/server/default/privkey.pem";
// What the web server serves: certificate followed by key, as installing a
// certificate leaves it (and as the controller ships it).
constexpr std::string_view kCombinedPath = "conf/certs/server/server.pem";

std::string under(const std::string &root, std::string_view rel) {
    std::string path = root;
    path += '/';
    path += rel;
    return path;
}

[[nodiscard]] bool make_factory_certificate(const std::string &root, std::string &why) {
    const std::string cert = under(root, kCertPath);
    const std::string key = under(root, kKeyPath);
    const std::string config = under(root, kRequestConfig);
    // openssl follows links when it writes; stale files go first so the
    // pair can only land inside the root.
    for (const std::string *path : {&cert, &key}) {
        if (::unlink(path->c_str()) != 0 && errno != ENOENT) {
            why = errno_text("cannot remove", *path, errno);
            return false;
        }
    }
    if (!write_file_atomic(config, factory_request_config(), 0600, why)) {
        return false;
    }
    const std::vector<std::string> argv = {
        "openssl", "req",   "-x509", "-config", config, "-newkey", "rsa:2048", "-nodes",
        "-sha256", "-days", "5475",  "-keyout", key,    "-out",    cert,
    };
    RunOptions options;
    options.umask = 077; // the key is never readable by others, not even briefly
    options.capture_output = true;
    RunResult result;
    const bool started = run_program(argv, options, result, why);
    ::unlink(config.c_str());
    if (!started) {
        return false;
    }
    if (result.exit_code != 0) {
        why = "openssl could not make the factory certificate (exit status " +
              std::to_string(result.exit_code) + "):\n" + result.output;
        return false;
    }
    if (::chmod(cert.c_str(), 0644) != 0 || ::chmod(key.c_str(), 0600) != 0) {
        why = errno_text("cannot set the mode of the factory pair in", root, errno);
        return false;
    }
    std::string cert_text;
    std::string key_text;
    return read_file(cert, cert_text, why) && read_file(key, key_text, why) &&
           write_file_atomic(under(root, kCombinedPath), cert_text + key_text, 0600, why);
}

} // namespace

bool provision_if_needed(const std::string &root, std::string &why) {
    for (const MountPlace &place : kMountPlaces) {
        if (!make_dirs_below(root, place.below_root, 0755, why)) {
            return false;
        }
    }
    if (!make_dirs_below(root, kBinDir, 0755, why)) {
        return false;
    }
    for (const FactoryFile &file : kStandIns) {
        if (!write_file_atomic(under(root, file.below_root), file.content(), file.mode, why)) {
            return false;
        }
    }
    const std::string marker = under(root, kProvisionedMarker);
    if (path_exists(marker)) {
        return true;
    }
    for (const std::string_view dir : kFactoryDirs) {
        if (!make_dirs_below(root, dir, 0755, why)) {
            return false;
        }
    }
    // Served as it is to the certificate authority: readable by the web
    // server whatever the umask.
    if (::chmod(under(root, kAcmeChallengeBelowRoot).c_str(), 0755) != 0) {
        why = errno_text("cannot set the mode of", under(root, kAcmeChallengeBelowRoot), errno);
        return false;
    }
    for (const FactoryFile &file : kFactoryFiles) {
        if (!write_file_atomic(under(root, file.below_root), file.content(), file.mode, why)) {
            return false;
        }
    }
    if (!make_factory_certificate(root, why)) {
        return false;
    }
    return write_file_atomic(marker, "factory-fresh controller provisioned\n", 0644, why);
}

} // namespace sandbox
