// What a TLS service on this controller presents, probed in process.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <pthread.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <array>
#include <memory>

#include "frame/unique_fd.h"
#include "sslcert/health_internal.h"

namespace bmccert::health {
namespace {

// A library must not change how the process treats SIGPIPE, yet a server
// that hangs up mid-handshake makes OpenSSL's write raise it: the signal
// is blocked on this thread for the probe, and one it raised is taken
// back before the thread's mask is restored.
class SigpipeHeld {
  public:
    SigpipeHeld() noexcept {
        (void)sigemptyset(&pipe_);
        (void)sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        (void)sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        (void)pthread_sigmask(SIG_BLOCK, &pipe_, &previous_);
    }
    SigpipeHeld(const SigpipeHeld &) = delete;
    SigpipeHeld &operator=(const SigpipeHeld &) = delete;
    ~SigpipeHeld() {
        sigset_t pending;
        if (!wasPending_ && sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1) {
            const timespec now{0, 0};
            (void)sigtimedwait(&pipe_, nullptr, &now);
        }
        (void)pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }

  private:
    sigset_t pipe_{};
    sigset_t previous_{};
    bool wasPending_ = false;
};

using Clock = std::chrono::steady_clock;

ProbeResult Failed(std::string reason, bool refused = false) {
    return {UniquePtr<X509>(), refused, std::move(reason)};
}

std::string OpenSslReason() {
    const unsigned long error = ERR_peek_last_error();
    ERR_clear_error();
    if (error == 0) return "the server closed the connection";
    char text[256];
    ERR_error_string_n(error, text, sizeof text);
    return text;
}

std::string TimeoutText(std::chrono::milliseconds timeout) {
    return "no answer within " + std::to_string(timeout.count()) + " ms";
}

} // namespace

SSL_CTX *ProbeContext() {
    // Made once per process and never changed afterwards, so that threads
    // share it safely: OpenSSL 3 takes a millisecond to make a context,
    // which is a third of the two handshakes a check makes.
    static SSL_CTX *const context = [] {
        SSL_CTX *made = SSL_CTX_new(TLS_client_method());
        // The served certificate is compared, not trusted: a weak key or
        // signature must still be seen, so that the check can name it.
        if (made != nullptr) SSL_CTX_set_security_level(made, 0);
        ERR_clear_error();
        return made;
    }();
    return context;
}

namespace {

// One service's probe as a state machine over a non-blocking socket, so
// that one thread carries both services' handshakes at once: a check then
// waits about as long as the slower handshake, not for both in turn.
class Probe {
  public:
    Probe(SSL_CTX *context, int port) { Start(context, port); }
    [[nodiscard]] bool Done() const noexcept { return done_; }
    [[nodiscard]] int Fd() const noexcept { return fd_.Get(); }
    [[nodiscard]] short Events() const noexcept { return events_; }
    ProbeResult Take() { return std::move(result_); }
    void Fail(std::string reason, bool refused = false) {
        result_ = Failed(std::move(reason), refused);
        done_ = true;
    }

    // Moves on after the socket became ready.
    void Advance() {
        if (connecting_) {
            int error = 0;
            socklen_t length = sizeof error;
            if (::getsockopt(fd_.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
            if (error == ECONNREFUSED) return Fail("connection refused", true);
            if (error != 0) return Fail(std::strerror(error));
            connecting_ = false;
        }
        Handshake();
    }

  private:
    void Start(SSL_CTX *context, int port) {
        fd_.Reset(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        if (!fd_.Valid()) return Fail(std::string("no socket: ") + std::strerror(errno));
        ERR_clear_error();
        if (context == nullptr) return Fail("no TLS context");
        ssl_.reset(SSL_new(context));
        if (!ssl_ || SSL_set_fd(ssl_.get(), fd_.Get()) != 1)
            return Fail("no TLS client: " + OpenSslReason());
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(fd_.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) ==
            0)
            return Handshake();
        if (errno == ECONNREFUSED) return Fail("connection refused", true);
        if (errno != EINPROGRESS) return Fail(std::strerror(errno));
        connecting_ = true;
        events_ = POLLOUT;
    }

    void Handshake() {
        const int done = SSL_connect(ssl_.get());
        if (done != 1) {
            const int error = SSL_get_error(ssl_.get(), done);
            if (error == SSL_ERROR_WANT_READ)
                events_ = POLLIN;
            else if (error == SSL_ERROR_WANT_WRITE)
                events_ = POLLOUT;
            else
                Fail("TLS handshake failed: " + OpenSslReason());
            return;
        }
        // The client side's chain starts with the server's own certificate.
        STACK_OF(X509) *chain = SSL_get_peer_cert_chain(ssl_.get());
        X509 *leaf =
            chain != nullptr && sk_X509_num(chain) > 0 ? sk_X509_value(chain, 0) : nullptr;
        if (leaf == nullptr) return Fail("the server sent no certificate");
        X509_up_ref(leaf);
        (void)SSL_shutdown(ssl_.get()); // a close_notify, not waited for
        ERR_clear_error();
        result_ = {UniquePtr<X509>(leaf), false, {}};
        done_ = true;
    }

    UniqueFd fd_;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, SSL_free};
    ProbeResult result_;
    short events_ = 0;
    bool connecting_ = false;
    bool done_ = false;
};

} // namespace

std::array<ProbeResult, 2> ProbeServedCertificates(SSL_CTX *context, std::array<int, 2> ports,
                                                   std::chrono::milliseconds timeout) {
    const SigpipeHeld noSigpipe;
    const Clock::time_point deadline = Clock::now() + timeout;
    std::array<Probe, 2> probes{Probe(context, ports[0]), Probe(context, ports[1])};
    for (;;) {
        std::array<pollfd, 2> waiting{};
        std::array<Probe *, 2> owners{};
        nfds_t count = 0;
        for (Probe &probe : probes)
            if (!probe.Done()) {
                waiting[count] = {probe.Fd(), probe.Events(), 0};
                owners[count++] = &probe;
            }
        if (count == 0) break;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const int ready = left.count() > 0
                              ? ::poll(waiting.data(), count, static_cast<int>(left.count()))
                              : 0;
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) {
            for (nfds_t i = 0; i < count; ++i) owners[i]->Fail(TimeoutText(timeout));
            break;
        }
        for (nfds_t i = 0; i < count; ++i)
            if (waiting[i].revents != 0) owners[i]->Advance();
    }
    return {probes[0].Take(), probes[1].Take()};
}

} // namespace bmccert::health
