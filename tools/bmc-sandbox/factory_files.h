// Contents of the files a controller leaves the factory with.
#ifndef BMC_SANDBOX_FACTORY_FILES_H
#define BMC_SANDBOX_FACTORY_FILES_H

#include <string>

namespace sandbox {

// X.509 v3 extensions of a server certificate, in the form that
// `openssl x509 -req -extfile` reads.
[[nodiscard]] std::string server_cert_extensions();

// Configuration for `openssl req -x509` that issues the factory certificate
// with the same extensions as every later server certificate.
[[nodiscard]] std::string factory_request_config();

// TLS tunnel (stunnel) in front of the remote console and virtual media.
[[nodiscard]] std::string tunnel_config();

// Web server (lighttpd) of the management pages.
[[nodiscard]] std::string web_server_config();

// /bin/sh stand-in of systemctl that records what it is asked to do.
[[nodiscard]] std::string service_manager_script();

} // namespace sandbox

#endif
