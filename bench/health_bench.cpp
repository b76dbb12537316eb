// Cost of the health check, in one run:
//   - LIB_SECURITY_SSL_CheckHealthOffline (files and certificates only),
//   - LIB_SECURITY_SSL_CheckHealth against two TLS servers on loopback
//     that serve the factory pair, as the tunnel and the web server would,
//   - one bare TLS handshake with each of those servers (what the check
//     cannot avoid), and one bare `openssl x509` run (a tool start).
// Targets: the offline check at least 50 times faster than the tool run;
// the whole check at most 1.2 times the two handshakes together.
#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <thread>

#include "bench/bench_support.h"
#include "lib_security_sslcert_ext.h"

namespace {

using bmcbench::BM_BareOpensslDump;

// A TLS server on 127.0.0.1 that completes each handshake and hangs up.
class LoopbackServer {
  public:
    LoopbackServer() {
        context_ = SSL_CTX_new(TLS_server_method());
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        ok_ = context_ != nullptr && listener_ >= 0 &&
              SSL_CTX_use_certificate_chain_file(context_,
                                                 "/conf/certs/server/default/server.pem") == 1 &&
              SSL_CTX_use_PrivateKey_file(context_, "/conf/certs/server/default/privkey.pem",
                                          SSL_FILETYPE_PEM) == 1 &&
              ::bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
              ::listen(listener_, 16) == 0 &&
              ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length) == 0;
        port_ = ntohs(address.sin_port);
        if (ok_) thread_ = std::thread([this] { Serve(); });
    }
    LoopbackServer(const LoopbackServer &) = delete;
    LoopbackServer &operator=(const LoopbackServer &) = delete;
    ~LoopbackServer() {
        stop_ = true;
        if (listener_ >= 0) ::shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        if (listener_ >= 0) ::close(listener_);
        SSL_CTX_free(context_);
    }
    [[nodiscard]] bool Ok() const { return ok_; }
    [[nodiscard]] uint32_t Port() const { return port_; }

  private:
    void Serve() {
        while (!stop_) {
            const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) continue;
            SSL *ssl = SSL_new(context_);
            if (ssl != nullptr && SSL_set_fd(ssl, fd) == 1 && SSL_accept(ssl) == 1)
                (void)SSL_shutdown(ssl);
            SSL_free(ssl);
            ::close(fd);
            ERR_clear_error();
        }
    }
    SSL_CTX *context_ = nullptr;
    int listener_ = -1;
    uint32_t port_ = 0;
    bool ok_ = false;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

LoopbackServer &Tunnel() {
    static LoopbackServer server;
    return server;
}
LoopbackServer &Web() {
    static LoopbackServer server;
    return server;
}

// What a client that only wants the certificate pays: connect, handshake.
bool Handshake(uint32_t port) {
    static SSL_CTX *context = SSL_CTX_new(TLS_client_method());
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool done = false;
    if (::connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0) {
        SSL *ssl = SSL_new(context);
        done = ssl != nullptr && SSL_set_fd(ssl, fd) == 1 && SSL_connect(ssl) == 1;
        if (done) (void)SSL_shutdown(ssl);
        SSL_free(ssl);
    }
    ::close(fd);
    ERR_clear_error();
    return done;
}

void BM_CheckHealthOffline(benchmark::State &state) {
    const auto record = std::make_unique<SSLHealthRecord>();
    for (auto _ : state)
        if (LIB_SECURITY_SSL_CheckHealthOffline(record.get()) != 0 || record->uiCount == 0)
            state.SkipWithError("offline check failed");
}

void BM_CheckHealth(benchmark::State &state) {
    if (!Tunnel().Ok() || !Web().Ok()) state.SkipWithError("no loopback servers");
    const SSLHealthProbe probe{Tunnel().Port(), Web().Port(), 2000};
    const auto record = std::make_unique<SSLHealthRecord>();
    for (auto _ : state)
        if (LIB_SECURITY_SSL_CheckHealth(&probe, record.get()) != 0 ||
            record->astFindings[1].uiSeverity != SSLCERT_EXT_SEVERITY_OK)
            state.SkipWithError("check failed or a service not seen");
}

void BM_TwoHandshakes(benchmark::State &state) {
    if (!Tunnel().Ok() || !Web().Ok()) state.SkipWithError("no loopback servers");
    for (auto _ : state)
        if (!Handshake(Tunnel().Port()) || !Handshake(Web().Port()))
            state.SkipWithError("handshake failed");
}

BENCHMARK(BM_CheckHealthOffline)->Unit(benchmark::kMicrosecond)->UseRealTime()->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_CheckHealth)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_TwoHandshakes)->Unit(benchmark::kMillisecond)->UseRealTime()->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_BareOpensslDump)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime()
    ->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char **argv) {
    // The servers' own writes to a client that already hung up.
    (void)std::signal(SIGPIPE, SIG_IGN);
    bmcbench::InitializeInterleaved(argc, argv);
    bmcbench::TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double offline = reporter.Seconds("BM_CheckHealthOffline/median");
    const double whole = reporter.Seconds("BM_CheckHealth/median");
    const double handshakes = reporter.Seconds("BM_TwoHandshakes/median");
    const double tool = reporter.Seconds("BM_BareOpensslDump/median");
    if (offline <= 0 || whole <= 0 || handshakes <= 0 || tool <= 0) {
        std::printf("health: not all benchmarks ran\n");
        return 1;
    }
    const bool fast = tool / offline >= 50;
    const bool near = whole / handshakes <= 1.2;
    std::printf("health: offline check %.1f us, %.0fx faster than one openssl tool run (%.2f ms; "
                "target >= 50x): %s\n",
                offline * 1e6, tool / offline, tool * 1e3, fast ? "met" : "MISSED");
    std::printf("health: whole check %.2f ms, %.2fx the two handshakes it makes (%.2f ms; "
                "target <= 1.2x): %s\n",
                whole * 1e3, whole / handshakes, handshakes * 1e3, near ? "met" : "MISSED");
    return fast && near ? 0 : 1;
}
