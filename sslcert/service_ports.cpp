// The ports the controller's TLS services listen on, read from their own
// configuration texts.
#include <cctype>
#include <regex>
#include <string>

#include "sslcert/health_internal.h"

namespace bmccert::health {
namespace {

std::string_view Trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())) != 0)
        s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())) != 0)
        s.remove_suffix(1);
    return s;
}

// Calls each(line) for every line of text.
template <typename Each> void ForEachLine(std::string_view text, Each each) {
    while (!text.empty()) {
        const size_t end = text.find('\n');
        each(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

// The port of "HOST:PORT", ":::PORT", "[::]:PORT" or "PORT".
std::optional<int> AddressPort(std::string_view address) {
    const size_t colon = address.rfind(':');
    return ParsePort(colon == std::string_view::npos ? address : address.substr(colon + 1));
}

// The line up to a '#' comment that is not inside a quoted string.
std::string_view UncommentedWeb(std::string_view line) {
    bool quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        if (line[i] == '"' && (i == 0 || line[i - 1] != '\\')) quoted = !quoted;
        if (line[i] == '#' && !quoted) return line.substr(0, i);
    }
    return line;
}

const std::regex kWebSetting(R"(^\s*([A-Za-z][A-Za-z0-9_.-]*)\s*(=|:=)\s*(.*?)\s*$)");
const std::regex kWebSocket(R"RE(^\s*\$SERVER\["socket"\]\s*==\s*"([^"]*)")RE");

// A setting's value: a quoted string, or a bare word such as a number
// (a closing brace may follow on the same line).
std::string ValueOf(const std::string &value) {
    if (!value.empty() && value.front() == '"') {
        const size_t end = value.find('"', 1);
        if (end != std::string::npos) return value.substr(1, end - 1);
    }
    return value.substr(0, value.find_first_of(" \t}"));
}

} // namespace

std::optional<int> ParsePort(std::string_view text) {
    if (text.empty() || text.size() > 5) return std::nullopt;
    int port = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return std::nullopt;
        port = port * 10 + (c - '0');
    }
    if (port < 1 || port > 65535) return std::nullopt;
    return port;
}

std::optional<int> TunnelPort(std::string_view config) {
    bool inService = false;
    std::optional<int> port;
    ForEachLine(config, [&](std::string_view line) {
        line = Trim(line);
        if (port || line.empty() || line.front() == ';' || line.front() == '#') return;
        if (line.front() == '[') {
            inService = true;
            return;
        }
        const size_t eq = line.find('=');
        if (!inService || eq == std::string_view::npos) return;
        std::string option(Trim(line.substr(0, eq)));
        for (char &c : option)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (option == "accept") port = AddressPort(Trim(line.substr(eq + 1)));
    });
    return port;
}

std::optional<int> WebTlsPort(std::string_view config) {
    int depth = 0;
    std::optional<std::string> nextSocket; // named by a condition whose block has not opened
    std::optional<std::string> socket;     // the socket block being read
    int socketDepth = 0;
    std::optional<std::string> found;
    bool topLevelTls = false;
    std::optional<int> topLevelPort;
    ForEachLine(config, [&](std::string_view raw) {
        if (found) return;
        const std::string line(UncommentedWeb(raw));
        std::smatch m;
        const bool condition = std::regex_search(line, m, kWebSocket);
        if (condition) nextSocket = m.str(1);
        const auto braces = [&] {
            for (const char c : line) {
                if (c == '{') {
                    ++depth;
                    if (nextSocket && !socket) {
                        socket = std::move(nextSocket);
                        socketDepth = depth;
                    }
                    nextSocket.reset();
                } else if (c == '}') {
                    if (socket && depth == socketDepth) socket.reset();
                    depth = depth > 0 ? depth - 1 : 0;
                }
            }
        };
        // A condition's block opens on its line; a setting comes before a
        // closing brace on the same line.
        if (condition) braces();
        if (std::regex_match(line, m, kWebSetting)) {
            const std::string name = m.str(1);
            const std::string value = ValueOf(m.str(3));
            if (name == "ssl.engine" && value == "enable") {
                if (socket)
                    found = *socket;
                else if (depth == 0)
                    topLevelTls = true;
            } else if (name == "server.port" && depth == 0) {
                topLevelPort = ParsePort(value);
            }
        }
        if (!condition) braces();
    });
    if (found) return AddressPort(*found);
    if (topLevelTls) return topLevelPort ? topLevelPort : std::optional<int>(443);
    return std::nullopt;
}

} // namespace bmccert::health
