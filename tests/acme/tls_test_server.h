// A small HTTPS server on loopback for the transport's tests, built on
// OpenSSL's SSL API: one thread, one connection at a time, every answer
// closes its connection. The test maps each request's path to the raw
// answer; kHang keeps the connection open without answering.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "frame/frame.h"

namespace bmctest {

inline constexpr const char *kHang = "hang";

struct TlsRequest {
    std::string method;
    std::string path;
    std::string contentType;
    std::string body;
};

class TlsTestServer {
  public:
    using Handler = std::function<std::string(const TlsRequest &)>;
    // certPem/keyPem: what the server presents.
    TlsTestServer(const std::string &certPem, const std::string &keyPem, Handler handler);
    TlsTestServer(const TlsTestServer &) = delete;
    TlsTestServer &operator=(const TlsTestServer &) = delete;
    ~TlsTestServer();
    [[nodiscard]] std::string Origin() const; // "https://127.0.0.1:PORT"

  private:
    void Serve();
    void Answer(int client);
    bmccert::UniquePtr<SSL_CTX> context_;
    Handler handler_;
    int listener_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

} // namespace bmctest
