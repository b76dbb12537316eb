// The ports the controller's TLS services listen on, read from their own
// configuration files (pure text, no file access).
#pragma once

#include <optional>
#include <string_view>

namespace bmccert::cli {

// A decimal port 1..65535, nothing else.
[[nodiscard]] std::optional<int> ParsePort(std::string_view text);

// The port of the tunnel's first service: the first "accept =" line inside
// a "[service]" section ("7582", ":::7582" or "HOST:PORT").
[[nodiscard]] std::optional<int> TunnelPort(std::string_view config);

// The port the web server serves TLS on: that of the first
// $SERVER["socket"] block that sets ssl.engine = "enable", else, when
// ssl.engine is enabled outside any block, server.port (443 when unset).
[[nodiscard]] std::optional<int> WebTlsPort(std::string_view config);

} // namespace bmccert::cli
