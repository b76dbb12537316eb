#include "tests/acme/tls_test_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/pem.h>

#include <stdexcept>

namespace bmctest {
namespace {

std::string HeaderValue(const std::string &head, const std::string &name) {
    const size_t at = head.find("\r\n" + name + ": ");
    if (at == std::string::npos) return {};
    const size_t start = at + name.size() + 4;
    return head.substr(start, head.find("\r\n", start) - start);
}

} // namespace

TlsTestServer::TlsTestServer(const std::string &certPem, const std::string &keyPem,
                             Handler handler)
    : context_(SSL_CTX_new(TLS_server_method())), handler_(std::move(handler)) {
    const bmccert::UniquePtr<BIO> certBio(BIO_new_mem_buf(certPem.data(), static_cast<int>(certPem.size())));
    const bmccert::UniquePtr<BIO> keyBio(BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size())));
    const bmccert::UniquePtr<X509> cert(PEM_read_bio_X509(certBio.get(), nullptr, nullptr, nullptr));
    const bmccert::UniquePtr<EVP_PKEY> key(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (!context_ || !cert || !key || SSL_CTX_use_certificate(context_.get(), cert.get()) != 1 ||
        SSL_CTX_use_PrivateKey(context_.get(), key.get()) != 1 || listener_ < 0 ||
        ::bind(listener_, reinterpret_cast<sockaddr *>(&address), length) != 0 ||
        ::listen(listener_, 8) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        if (listener_ >= 0) ::close(listener_);
        throw std::runtime_error("TLS test server did not start");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { Serve(); });
}

TlsTestServer::~TlsTestServer() {
    stopping_ = true;
    thread_.join();
    ::close(listener_);
}

std::string TlsTestServer::Origin() const { return "https://127.0.0.1:" + std::to_string(port_); }

void TlsTestServer::Serve() {
    while (!stopping_) {
        pollfd waiting{listener_, POLLIN, 0};
        if (::poll(&waiting, 1, 50) != 1) continue;
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0) continue;
        Answer(client);
        ::close(client);
    }
}

void TlsTestServer::Answer(int client) {
    const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(context_.get()), SSL_free);
    if (!ssl || SSL_set_fd(ssl.get(), client) != 1 || SSL_accept(ssl.get()) != 1) return;
    std::string request;
    char buffer[4096];
    size_t headEnd = std::string::npos;
    while (headEnd == std::string::npos ||
           request.size() < headEnd + 4 + std::stoul("0" + HeaderValue(request, "Content-Length"))) {
        const int read = SSL_read(ssl.get(), buffer, sizeof buffer);
        if (read <= 0) return;
        request.append(buffer, static_cast<size_t>(read));
        headEnd = request.find("\r\n\r\n");
    }
    TlsRequest parsed;
    const size_t space = request.find(' ');
    parsed.method = request.substr(0, space);
    parsed.path = request.substr(space + 1, request.find(' ', space + 1) - space - 1);
    parsed.contentType = HeaderValue(request, "Content-Type");
    parsed.body = request.substr(headEnd + 4);
    const std::string answer = handler_(parsed);
    if (answer == kHang) {
        pollfd peer{client, POLLIN, 0}; // until the client gives up
        while (!stopping_ && ::poll(&peer, 1, 20) == 0) {
        }
        return;
    }
    (void)SSL_write(ssl.get(), answer.data(), static_cast<int>(answer.size()));
    (void)SSL_shutdown(ssl.get());
}

} // namespace bmctest
