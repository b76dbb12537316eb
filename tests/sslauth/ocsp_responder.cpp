#include "tests/sslauth/ocsp_responder.h"

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "tests/support/test_certs.h"

namespace bmctest {

OcspResponder::OcspResponder(const std::string &dir, const std::string &issuerPem,
                             const std::vector<IndexEntry> &entries, Signer signer) {
    std::string index;
    for (const IndexEntry &e : entries)
        index += std::string(1, e.status) + "\t340101000000Z\t" +
                 (e.status == 'R' ? "240601000000Z" : "") + "\t" + e.serial + "\tunknown\t/CN=x\n";
    WriteFile(dir + "/index.txt", index);
    WriteFile(dir + "/issuer.pem", issuerPem);
    CertRecipe responder;
    responder.subject = {{"CN", "OCSP Responder"}};
    responder.key = KeyKind::Rsa1024;
    if (signer != Signer::kRogue) {
        responder.issuer = NameEntries{{"O", "Test Works"}, {"CN", "Test Root CA"}};
        responder.signer = KeyKind::Rsa2048;
    }
    responder.extendedKeyUsage = signer == Signer::kWithoutOcspSigning ? "" : "OCSPSigning";
    WriteFile(dir + "/responder.pem", MakeCertPem(responder));
    WriteFile(dir + "/responder.key", KeyPem(KeyKind::Rsa1024));

    // The responder is the machine's own tool whatever openssl the suite
    // tests (it may be an older one first on PATH): a peer, not the code
    // under test, and one that reports the port it was given. The shell
    // prints its pid, which the tool takes over, then the tool its first
    // line: "ACCEPT [::]:PORT PID=N". The pipe stays open while it runs: a
    // write to a closed pipe would end it.
    output_ = ::popen(("echo $$; exec /usr/bin/openssl ocsp -index " + dir + "/index.txt -port 0" +
                       " -rsigner " + dir + "/responder.pem -rkey " + dir + "/responder.key -CA " +
                       dir + "/issuer.pem -ignore_err 2>/dev/null")
                          .c_str(),
                      "r");
    char line[256] = {};
    if (output_ != nullptr && std::fgets(line, sizeof line, output_) != nullptr)
        pid_ = std::atoi(line);
    const std::string accept =
        pid_ > 0 && std::fgets(line, sizeof line, output_) != nullptr ? line : "";
    const size_t colon = accept.rfind(':', accept.find(" PID="));
    if (accept.rfind("ACCEPT ", 0) == 0 && colon != std::string::npos)
        port_ = std::atoi(accept.c_str() + colon + 1);
    if (port_ == 0) {
        Stop(); // a constructor that throws gets no destructor call
        throw std::runtime_error("openssl ocsp responder did not start");
    }
}

OcspResponder::~OcspResponder() {
    Stop();
}

void OcspResponder::Stop() noexcept {
    if (pid_ > 0) ::kill(pid_, SIGTERM);
    if (output_ != nullptr) ::pclose(output_);
    pid_ = -1;
    output_ = nullptr;
}

std::string OcspResponder::Url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/";
}

CannedServer::CannedServer(std::string raw) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (listener_ < 0 || ::bind(listener_, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        ::listen(listener_, 1) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        throw std::runtime_error("canned server did not start");
    port_ = ntohs(address.sin_port);
    server_ = std::thread([this, raw = std::move(raw)] {
        pollfd waiting{listener_, POLLIN, 0};
        if (::poll(&waiting, 1, 10000) != 1) return; // nobody asked
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0) return;
        char request[4096];
        (void)::recv(client, request, sizeof request, 0);
        (void)::send(client, raw.data(), raw.size(), MSG_NOSIGNAL);
        ::close(client);
    });
}

CannedServer::~CannedServer() {
    ::shutdown(listener_, SHUT_RDWR);
    if (server_.joinable()) server_.join();
    ::close(listener_);
}

std::string CannedServer::Url() const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/";
}

std::string FetchOcspAnswer(const std::string &issuerPath, const std::string &certPath,
                            const std::string &url, bool nonce) {
    const std::string out = certPath + ".answer";
    const std::string command = "/usr/bin/openssl ocsp -issuer " + issuerPath + " -cert " +
                                certPath + " -url " + url + " -noverify -respout " + out +
                                (nonce ? "" : " -no_nonce") + " >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("no answer fetched");
    const std::string der = ReadFile(out);
    return "HTTP/1.0 200 OK\r\nContent-Type: application/ocsp-response\r\nContent-Length: " +
           std::to_string(der.size()) + "\r\n\r\n" + der;
}

} // namespace bmctest
