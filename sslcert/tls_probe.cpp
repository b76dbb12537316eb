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
#include <memory>

#include "frame/unique_fd.h"
#include "sslcert/health_internal.h"

namespace bmccert::health {
namespace {

using SslOwner = std::unique_ptr<SSL, decltype(&SSL_free)>;

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

// Waits until fd is ready for events or the deadline passes.
bool WaitFor(int fd, short events, Clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return false;
        pollfd entry{fd, events, 0};
        const int ready = ::poll(&entry, 1, static_cast<int>(left.count()));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
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

UniquePtr<SSL_CTX> NewProbeContext() {
    UniquePtr<SSL_CTX> context(SSL_CTX_new(TLS_client_method()));
    // The served certificate is compared, not trusted: a weak key or
    // signature must still be seen, so that the check can name it.
    if (context) SSL_CTX_set_security_level(context.get(), 0);
    ERR_clear_error();
    return context;
}

ProbeResult ProbeServedCertificate(SSL_CTX *context, int port, std::chrono::milliseconds timeout) {
    const SigpipeHeld noSigpipe;
    const Clock::time_point deadline = Clock::now() + timeout;
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd.Valid()) return Failed(std::string("no socket: ") + std::strerror(errno));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd.Get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno == ECONNREFUSED) return Failed("connection refused", true);
        if (errno != EINPROGRESS) return Failed(std::strerror(errno));
        if (!WaitFor(fd.Get(), POLLOUT, deadline)) return Failed(TimeoutText(timeout));
        int error = 0;
        socklen_t length = sizeof error;
        if (::getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
        if (error == ECONNREFUSED) return Failed("connection refused", true);
        if (error != 0) return Failed(std::strerror(error));
    }

    ERR_clear_error();
    if (context == nullptr) return Failed("no TLS context");
    const SslOwner ssl(SSL_new(context), SSL_free);
    if (!ssl || SSL_set_fd(ssl.get(), fd.Get()) != 1)
        return Failed("no TLS client: " + OpenSslReason());
    for (;;) {
        const int done = SSL_connect(ssl.get());
        if (done == 1) break;
        const int error = SSL_get_error(ssl.get(), done);
        short events = 0;
        if (error == SSL_ERROR_WANT_READ)
            events = POLLIN;
        else if (error == SSL_ERROR_WANT_WRITE)
            events = POLLOUT;
        else
            return Failed("TLS handshake failed: " + OpenSslReason());
        if (!WaitFor(fd.Get(), events, deadline)) return Failed(TimeoutText(timeout));
    }
    // The client side's chain starts with the server's own certificate.
    STACK_OF(X509) *chain = SSL_get_peer_cert_chain(ssl.get());
    X509 *leaf = chain != nullptr && sk_X509_num(chain) > 0 ? sk_X509_value(chain, 0) : nullptr;
    if (leaf == nullptr) return Failed("the server sent no certificate");
    X509_up_ref(leaf);
    (void)SSL_shutdown(ssl.get()); // a close_notify, not waited for
    ERR_clear_error();
    return {UniquePtr<X509>(leaf), false, {}};
}

} // namespace bmccert::health
