// Derives the configurations that a sandbox runs stunnel and lighttpd
// with from the controller's own files, which keep their controller ports.
// Pure text transforms: every line is copied unchanged except those that
// name a listening address, a pid, log or output path, the foreground mode
// or something a sandbox cannot honour, which are replaced or turned into
// comments. Certificate, key and client verification options are copied
// as they stand.
#ifndef BMC_SANDBOX_SERVICE_CONFIGS_H
#define BMC_SANDBOX_SERVICE_CONFIGS_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sandbox {

// Names of the service sections ("[remote-console]") of a stunnel
// configuration, in the order they appear.
[[nodiscard]] std::vector<std::string> tunnel_sections(const std::string &controller_config);

// stunnel configuration for the sandbox: foreground, pid and output file
// in RUN_DIR, each service accepting on 127.0.0.1 and the port PORTS gives
// for its section (every section must have one), setuid, setgid, chroot
// and syslog dropped.
[[nodiscard]] std::optional<std::string>
derive_tunnel_config(const std::string &controller_config, const std::string &run_dir,
                     const std::map<std::string, int> &ports, std::string &why);

// lighttpd configuration for the sandbox: the controller's plain-HTTP
// listener (port 80) on 127.0.0.1:HTTP_PORT and its ":443" socket block
// moved to 127.0.0.1:HTTPS_PORT; error and access
// logs and document root in RUN_DIR, pid file, user, group, chroot and
// syslog dropped. An ssl.ca-file whose file does not exist is dropped when
// client verification is not enabled (lighttpd refuses to start without
// it, and a fresh controller has no client authority yet).
[[nodiscard]] std::optional<std::string>
derive_web_config(const std::string &controller_config, const std::string &run_dir, int http_port,
                  int https_port, const std::function<bool(const std::string &)> &file_exists,
                  std::string &why);

} // namespace sandbox

#endif
