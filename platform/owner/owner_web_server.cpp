// What switching client-certificate authentication means for the web
// server: its authority file (ssl.ca-file) holds the trusted root, and it
// asks HTTPS clients for a certificate only while authentication is on
// (ssl.verifyclient.activate). A client without one still gets through
// the handshake when ssl.verifyclient.enforce is "disable", so that the
// login pages can tell it why it is refused.
#include <fstream>
#include <regex>
#include <sstream>

#include "platform/owner/record_owner.h"

namespace bmcsim::owner {
namespace {

const std::regex kActivate(R"RE(^(\s*ssl\.verifyclient\.activate\s*=\s*)"[^"]*"(.*)$)RE");

[[nodiscard]] bool ReadText(const std::string &path, std::string &text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream out;
    out << in.rdbuf();
    text = out.str();
    return !in.bad();
}

} // namespace

bool SetClientVerification(bool on) {
    std::string text;
    if (!ReadText(kWebServerConfigPath, text)) return false;
    std::istringstream lines(text);
    std::string out;
    bool found = false;
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (std::regex_match(line, m, kActivate)) {
            line = m.str(1) + (on ? "\"enable\"" : "\"disable\"") + m.str(2);
            found = true;
        }
        out += line + '\n';
    }
    return found && WriteFileAtomically(kWebServerConfigPath, out);
}

void RestartWebServer() {
    // The switch is done when the records are; a web server that does not
    // come back is the service manager's report, not the switch's failure.
    (void)systemd_run(__FILE__, __func__, __LINE__, 0, 0, "systemctl restart lighttpd.service");
}

} // namespace bmcsim::owner
