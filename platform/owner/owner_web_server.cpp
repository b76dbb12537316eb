// What switching client-certificate authentication means for the web
// server: its authority file (ssl.ca-file) holds the trusted root, and it
// asks HTTPS clients for a certificate only while authentication is on
// (ssl.verifyclient.activate). A client without one still gets through
// the handshake when ssl.verifyclient.enforce is "disable", so that the
// login pages can tell it why it is refused. While the root has a
// revocation list, the web server reads it (ssl.verifyclient.ca-crl-file)
// and enforces the verification: a revoked certificate is then refused at
// the handshake itself, which only enforcement achieves.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <regex>
#include <sstream>

#include "frame/record_file_name.h"
#include "platform/owner/record_owner.h"

namespace bmcsim::owner {
namespace {

const std::regex kActivate(R"RE(^(\s*ssl\.verifyclient\.activate\s*=\s*)"[^"]*"(.*)$)RE");
const std::regex kEnforce(R"RE(^(\s*ssl\.verifyclient\.enforce\s*=\s*)"[^"]*"(.*)$)RE");
// The list's line, given (no '#') or taken away (commented out).
const std::regex kCrlFile(R"RE(^(\s*)#?\s*(ssl\.verifyclient\.ca-crl-file\s*=.*)$)RE");

[[nodiscard]] bool ReadText(const std::string &path, std::string &text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream out;
    out << in.rdbuf();
    text = out.str();
    return !in.bad();
}

// Above what the library installs (4 MiB): a larger file is not a list.
constexpr size_t kMaxListBytes = 8u << 20;

[[nodiscard]] std::string OnOff(bool on) {
    return on ? "\"enable\"" : "\"disable\"";
}

} // namespace

bool SetClientVerification(bool on, bool withList) {
    std::string text;
    if (!ReadText(kWebServerConfigPath, text)) return false;
    std::istringstream lines(text);
    std::string out;
    bool activate = false, listLine = false;
    const bool checkList = on && withList;
    for (std::string line; std::getline(lines, line);) {
        std::smatch m;
        if (std::regex_match(line, m, kActivate)) {
            line = m.str(1) + OnOff(on) + m.str(2);
            activate = true;
        } else if (std::regex_match(line, m, kEnforce)) {
            line = m.str(1) + OnOff(checkList) + m.str(2);
        } else if (std::regex_match(line, m, kCrlFile)) {
            line = m.str(1) + (checkList ? "" : "#") + m.str(2);
            listLine = true;
        }
        out += line + '\n';
    }
    // A configuration without the list's line cannot be given a list.
    return activate && (listLine || !checkList) && WriteFileAtomically(kWebServerConfigPath, out);
}

bool HandOverRootList(const RootCertInfo &root, bool &withList) {
    const std::string name =
        std::string(root.szFileName, strnlen(root.szFileName, sizeof root.szFileName)) + ".crl";
    const bmccert::UniqueFd list = bmccert::OpenPlainFileIn(kRootCertDir, name);
    withList = list.Valid();
    if (!withList) return ::unlink(kWebServerCrlPath) == 0 || errno == ENOENT;
    std::string bytes;
    char chunk[4096];
    for (;;) {
        const ssize_t got = ::read(list.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) break;
        bytes.append(chunk, static_cast<size_t>(got));
        if (bytes.size() > kMaxListBytes) return false;
    }
    return WriteFileAtomically(kWebServerCrlPath, bytes);
}

void RestartWebServer() {
    // The switch is done when the records are; a web server that does not
    // come back is the service manager's report, not the switch's failure.
    (void)systemd_run(__FILE__, __func__, __LINE__, 0, 0, "systemctl restart lighttpd.service");
}

} // namespace bmcsim::owner
