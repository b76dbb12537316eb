#include "service_configs.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <regex>
#include <string_view>

#include "frame/config_line.h"

namespace sandbox {

namespace {

std::vector<std::string_view> split_lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        lines.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())) != 0) {
        s.remove_prefix(1);
    }
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())) != 0) {
        s.remove_suffix(1);
    }
    return s;
}

std::string lower(std::string_view s) {
    std::string out(s);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

template <size_t N>
bool one_of(const std::string &key, const std::array<std::string_view, N> &keys) {
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

// --- stunnel: "option = value" lines, ";" or "#" comments, "[service]" sections

std::optional<std::string> tunnel_section(std::string_view line) {
    line = trim(line);
    if (line.size() < 2 || line.front() != '[' || line.back() != ']') {
        return std::nullopt;
    }
    return std::string(trim(line.substr(1, line.size() - 2)));
}

// Option name of a line, lower case (stunnel ignores case), or empty.
std::string tunnel_option(std::string_view line) {
    line = trim(line);
    if (line.empty() || line.front() == ';' || line.front() == '#' || line.front() == '[') {
        return {};
    }
    const size_t eq = line.find('=');
    return eq == std::string_view::npos ? std::string{} : lower(trim(line.substr(0, eq)));
}

// Set by the sandbox itself, at the top of the derived file.
constexpr std::array<std::string_view, 3> kTunnelOwnOptions{"foreground", "pid", "output"};
// Meaningless or harmful in a sandbox.
constexpr std::array<std::string_view, 4> kTunnelDropped{"syslog", "setuid", "setgid", "chroot"};

// --- lighttpd: "name = value" settings, conditionals, ( ... ) lists

const std::regex kWebSetting(R"(^\s*([A-Za-z][A-Za-z0-9_.-]*)\s*(\+=|:=|=)\s*(.*)$)");
const std::regex kWebSocket(R"RE(^(\s*)\$SERVER\["socket"\]\s*==\s*"([^"]*)"(.*)$)RE");

constexpr std::array<std::string_view, 5> kWebOwnSettings{
    "server.bind", "server.port", "server.document-root", "server.errorlog", "server.pid-file"};
constexpr std::array<std::string_view, 6> kWebDropped{
    "server.username",      "server.groupname",      "server.chroot", "server.errorlog-use-syslog",
    "accesslog.use-syslog", "server.syslog-facility"};

std::string unquote(std::string_view value) {
    value = trim(value);
    if (value.size() >= 2 && value.front() == '"') {
        const size_t end = value.find('"', 1);
        if (end != std::string_view::npos) {
            return std::string(value.substr(1, end - 1));
        }
    }
    return std::string(value);
}

// The run directory becomes part of option values in both derived files,
// quoted in lighttpd's: it passes the check of every configuration writer,
// leaves room for the longest file name put after it, and holds no quote
// or backslash that would end or escape lighttpd's string.
bool usable_run_dir(const std::string &run_dir, std::string &why) {
    constexpr size_t kLongestFileName = sizeof "/lighttpd-access.log";
    if (bmccert::IsConfigLinePath(run_dir, PATH_MAX - kLongestFileName) &&
        run_dir.find_first_of("\"\\") == std::string::npos) {
        return true;
    }
    why = "run directory refused: it must be absolute, of printable characters other than a "
          "quote or backslash, and fit a path";
    return false;
}

bool client_verification_enabled(const std::vector<std::string_view> &lines) {
    for (const std::string_view line : lines) {
        std::match_results<std::string_view::const_iterator> m;
        if (std::regex_match(line.begin(), line.end(), m, kWebSetting) &&
            m.str(1) == "ssl.verifyclient.activate" && unquote(m.str(3)) == "enable") {
            return true;
        }
    }
    return false;
}

} // namespace

std::vector<std::string> tunnel_sections(const std::string &controller_config) {
    std::vector<std::string> sections;
    for (const std::string_view line : split_lines(controller_config)) {
        if (auto name = tunnel_section(line)) {
            sections.push_back(std::move(*name));
        }
    }
    return sections;
}

std::optional<std::string> derive_tunnel_config(const std::string &controller_config,
                                                const std::string &run_dir,
                                                const std::map<std::string, int> &ports,
                                                std::string &why) {
    if (!usable_run_dir(run_dir, why)) {
        return std::nullopt;
    }
    std::string out = "; Derived by bmc-sandbox from /conf/adviserd/stunnel.conf at the last\n"
                      "; (re)start of stunnel.service; changes here are lost.\n"
                      "foreground = yes\n"
                      "pid = " +
                      run_dir +
                      "/stunnel.pid\n"
                      "output = " +
                      run_dir + "/stunnel.log\n\n";
    std::string section;
    for (const std::string_view line : split_lines(controller_config)) {
        if (auto name = tunnel_section(line)) {
            section = std::move(*name);
            out.append(line) += '\n';
            continue;
        }
        const std::string option = tunnel_option(line);
        if (one_of(option, kTunnelOwnOptions) || one_of(option, kTunnelDropped)) {
            out += "; bmc-sandbox: ";
            out.append(line) += '\n';
        } else if (option == "accept") {
            const auto port = ports.find(section);
            if (section.empty() || port == ports.end()) {
                why = "stunnel.conf: \"accept\" outside a service section";
                return std::nullopt;
            }
            out += "accept = 127.0.0.1:" + std::to_string(port->second) + '\n';
        } else {
            out.append(line) += '\n';
        }
    }
    return out;
}

std::optional<std::string>
derive_web_config(const std::string &controller_config, const std::string &run_dir, int http_port,
                  int https_port, const std::function<bool(const std::string &)> &file_exists,
                  std::string &why) {
    if (!usable_run_dir(run_dir, why)) {
        return std::nullopt;
    }
    const std::string address = "127.0.0.1:" + std::to_string(https_port);
    std::string out = "# Derived by bmc-sandbox from /conf/lighttpd/lighttpd.conf at the last\n"
                      "# (re)start of lighttpd.service; changes here are lost.\n"
                      "server.bind = \"127.0.0.1\"\n"
                      "server.port = " +
                      std::to_string(http_port) +
                      "\n"
                      "server.document-root = \"" +
                      run_dir +
                      "/www\"\n"
                      "server.errorlog = \"" +
                      run_dir + "/lighttpd.log\"\n\n";
    const std::vector<std::string_view> lines = split_lines(controller_config);
    const bool verify_clients = client_verification_enabled(lines);
    for (const std::string_view line : lines) {
        std::match_results<std::string_view::const_iterator> m;
        if (std::regex_match(line.begin(), line.end(), m, kWebSocket)) {
            const std::string listen = m.str(2);
            if (listen.substr(listen.rfind(':') + 1) != "443") {
                why = "lighttpd.conf listens on \"" + listen +
                      "\"; a sandbox serves only the :443 listener";
                return std::nullopt;
            }
            out += m.str(1) + "$SERVER[\"socket\"] == \"" + address + "\"" + m.str(3) + '\n';
            continue;
        }
        if (!std::regex_match(line.begin(), line.end(), m, kWebSetting)) {
            out.append(line) += '\n';
            continue;
        }
        const std::string name = m.str(1);
        if (one_of(name, kWebOwnSettings) || one_of(name, kWebDropped)) {
            out += "# bmc-sandbox: ";
            out.append(line) += '\n';
        } else if (name == "accesslog.filename") {
            out += "accesslog.filename = \"" + run_dir + "/lighttpd-access.log\"\n";
        } else if (name == "ssl.ca-file" && !verify_clients && !file_exists(unquote(m.str(3)))) {
            out += "# bmc-sandbox: no such file, and clients are not verified: ";
            out.append(line) += '\n';
        } else {
            out.append(line) += '\n';
        }
    }
    // The sandbox's own login endpoint, after the controller's module list
    // so that it adds to it.
    out += "\n# bmc-sandbox: login by client certificate at https://127.0.0.1:" +
           std::to_string(https_port) +
           "/login\n"
           "server.modules += ( \"mod_alias\", \"mod_cgi\" )\n"
           "alias.url += ( \"/login\" => \"" +
           run_dir +
           "/cert-login\" )\n"
           "$HTTP[\"url\"] == \"/login\" {\n"
           "    cgi.assign = ( \"\" => \"\" )\n"
           "}\n";
    return out;
}

} // namespace sandbox
