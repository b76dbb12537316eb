#include "tests/sslauth/ocsp_responder.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "tests/support/test_certs.h"

extern char **environ;

namespace bmctest {
namespace {

constexpr const char *kResponderTool = "/usr/bin/openssl";

// The responder's first line: "ACCEPT [::]:PORT PID=N".
int ReadPort(int fd) {
    std::string line;
    char c;
    pollfd wait{fd, POLLIN, 0};
    while (line.size() < 200 && ::poll(&wait, 1, 10000) == 1 && ::read(fd, &c, 1) == 1 &&
           c != '\n')
        line += c;
    const size_t colon = line.rfind(':', line.find(" PID="));
    return line.rfind("ACCEPT ", 0) == 0 && colon != std::string::npos
               ? std::atoi(line.c_str() + colon + 1)
               : 0;
}

} // namespace

OcspResponder::OcspResponder(const std::string &dir, const std::string &issuerPem,
                             const std::vector<IndexEntry> &entries) {
    std::string index;
    for (const IndexEntry &e : entries)
        index += std::string(1, e.status) + "\t340101000000Z\t" +
                 (e.status == 'R' ? "240601000000Z" : "") + "\t" + e.serial + "\tunknown\t/CN=x\n";
    WriteFile(dir + "/index.txt", index);
    WriteFile(dir + "/issuer.pem", issuerPem);
    CertRecipe responder;
    responder.subject = {{"CN", "OCSP Responder"}};
    responder.issuer = NameEntries{{"O", "Test Works"}, {"CN", "Test Root CA"}};
    responder.key = KeyKind::Rsa1024;
    responder.signer = KeyKind::Rsa2048;
    responder.extendedKeyUsage = "OCSPSigning";
    WriteFile(dir + "/responder.pem", MakeCertPem(responder));
    WriteFile(dir + "/responder.key", KeyPem(KeyKind::Rsa1024));

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string idx = dir + "/index.txt", ca = dir + "/issuer.pem",
                      rsigner = dir + "/responder.pem", rkey = dir + "/responder.key";
    const char *argv[] = {kResponderTool, "ocsp", "-index", idx.c_str(), "-port", "0",
                          "-rsigner", rsigner.c_str(), "-rkey", rkey.c_str(), "-CA", ca.c_str(),
                          "-ignore_err", nullptr};
    // The responder is the machine's own tool whatever openssl the suite
    // tests (it may be an older one first on PATH): a peer, not the code
    // under test, and one that reports the port it was given.
    const int spawned = posix_spawn(&pid_, kResponderTool, &actions, nullptr,
                                     const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (spawned != 0) pid_ = -1;
    // Kept open while it runs: a write to a closed pipe would end it.
    output_ = ends[0];
    port_ = spawned == 0 ? ReadPort(output_) : 0;
    if (port_ == 0) {
        Stop(); // a constructor that throws gets no destructor call
        throw std::runtime_error("openssl ocsp responder did not start");
    }
}

OcspResponder::~OcspResponder() {
    Stop();
}

void OcspResponder::Stop() noexcept {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
    }
    if (output_ >= 0) ::close(output_);
    output_ = -1;
}

std::string OcspResponder::Url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/";
}

SilentListener::SilentListener() {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof addr;
    if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        ::listen(fd_, 4) != 0 ||
        ::getsockname(fd_, reinterpret_cast<sockaddr *>(&addr), &length) != 0) {
        if (fd_ >= 0) ::close(fd_);
        throw std::runtime_error("silent listener");
    }
    port_ = ntohs(addr.sin_port);
}

SilentListener::~SilentListener() {
    ::close(fd_);
}

} // namespace bmctest
