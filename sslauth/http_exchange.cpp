// The HTTP client of the revocation checks. Deliberately small: HTTP/1.0,
// so that the server closes the connection after one answer and sends no
// chunked body; every wait bounded by one deadline.
#include "sslauth/http_exchange.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cctype>
#include <cerrno>
#include <charconv>
#include <chrono>

#include "frame/unique_fd.h"

namespace bmccert::sslauth {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxHeaderBytes = 16384;

bool IsPrintable(std::string_view text) {
    for (const char c : text)
        if (c <= ' ' || c > '~') return false;
    return true;
}

bool ParsePort(std::string_view text, uint16_t &port) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value == 0 || value > 65535)
        return false;
    port = static_cast<uint16_t>(value);
    return true;
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

int MillisecondsLeft(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

bool WaitFor(int fd, short events, Clock::time_point deadline) {
    pollfd waiting{fd, events, 0};
    for (;;) {
        const int ready = ::poll(&waiting, 1, MillisecondsLeft(deadline));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

UniqueFd Connect(const HttpTarget &target, Clock::time_point deadline) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const std::string port = std::to_string(target.port);
    if (::getaddrinfo(target.host.c_str(), port.c_str(), &hints, &found) != 0 || found == nullptr)
        return UniqueFd();
    // Only the first address: the deadline is the whole exchange's.
    UniqueFd fd(::socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const bool started =
        fd.Valid() &&
        (::connect(fd.Get(), found->ai_addr, found->ai_addrlen) == 0 || errno == EINPROGRESS);
    ::freeaddrinfo(found);
    int error = 0;
    socklen_t length = sizeof error;
    if (!started || !WaitFor(fd.Get(), POLLOUT, deadline) ||
        ::getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0)
        return UniqueFd();
    return fd;
}

bool SendAll(int fd, std::string_view bytes, Clock::time_point deadline) {
    while (!bytes.empty()) {
        if (!WaitFor(fd, POLLOUT, deadline)) return false;
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(sent));
    }
    return true;
}

// Reads to the end of the connection, at most limit + 1 bytes (one more
// than allowed tells an answer that is too big).
bool ReceiveAll(int fd, size_t limit, Clock::time_point deadline, std::string &raw) {
    char chunk[8192];
    while (raw.size() <= limit) {
        if (!WaitFor(fd, POLLIN, deadline)) return false;
        const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        raw.append(chunk, static_cast<size_t>(got));
    }
    return true;
}

} // namespace

bool ParseHttpUrl(std::string_view url, size_t maxLength, HttpTarget &target) {
    constexpr std::string_view kScheme = "http://";
    if (url.size() > maxLength || !url.starts_with(kScheme) || !IsPrintable(url)) return false;
    std::string_view rest = url.substr(kScheme.size());
    const size_t slash = rest.find('/');
    std::string_view authority = rest.substr(0, slash);
    target.path = slash == std::string_view::npos ? "/" : std::string(rest.substr(slash));
    if (authority.find('@') != std::string_view::npos || authority.empty()) return false;
    target.port = 80;
    if (authority.front() == '[') {
        const size_t close = authority.find(']');
        if (close == std::string_view::npos) return false;
        target.host = std::string(authority.substr(1, close - 1));
        authority.remove_prefix(close + 1);
        if (!authority.empty() &&
            (authority.front() != ':' || !ParsePort(authority.substr(1), target.port)))
            return false;
    } else {
        const size_t colon = authority.find(':');
        target.host = std::string(authority.substr(0, colon));
        if (colon != std::string_view::npos && !ParsePort(authority.substr(colon + 1), target.port))
            return false;
    }
    return !target.host.empty();
}

HttpAnswer ParseHttpAnswer(std::string_view raw, size_t maxBody) {
    HttpAnswer answer;
    answer.outcome = HttpOutcome::kMalformed;
    const size_t headerEnd = raw.find("\r\n\r\n");
    if (headerEnd == std::string_view::npos || headerEnd > kMaxHeaderBytes) return answer;
    const std::string_view head = raw.substr(0, headerEnd);
    std::string_view body = raw.substr(headerEnd + 4);
    // "HTTP/1.x NNN reason"
    if (head.size() < 12 || !(head.starts_with("HTTP/1.0 ") || head.starts_with("HTTP/1.1 ")))
        return answer;
    int status = 0;
    const auto [end, error] = std::from_chars(head.data() + 9, head.data() + 12, status);
    if (error != std::errc() || end != head.data() + 12 || status < 100) return answer;
    answer.status = status;
    size_t lineStart = head.find("\r\n");
    bool lengthGiven = false;
    size_t length = 0;
    while (lineStart != std::string_view::npos) {
        lineStart += 2;
        const size_t lineEnd = head.find("\r\n", lineStart);
        const std::string_view line = head.substr(lineStart, lineEnd - lineStart);
        lineStart = lineEnd;
        const size_t colon = line.find(':');
        if (colon == std::string_view::npos) return answer;
        const std::string_view name = line.substr(0, colon);
        std::string_view value = line.substr(colon + 1);
        while (!value.empty() && (value.front() == ' ' || value.front() == '\t'))
            value.remove_prefix(1);
        while (!value.empty() && (value.back() == ' ' || value.back() == '\t'))
            value.remove_suffix(1);
        if (EqualsIgnoringCase(name, "Transfer-Encoding")) return answer; // HTTP/1.0 asked
        if (EqualsIgnoringCase(name, "Content-Length")) {
            size_t given = 0;
            const auto [at, bad] =
                std::from_chars(value.data(), value.data() + value.size(), given);
            if (bad != std::errc() || at != value.data() + value.size() ||
                (lengthGiven && given != length))
                return answer;
            lengthGiven = true;
            length = given;
        }
    }
    if (status != 200) {
        answer.outcome = HttpOutcome::kRefused;
        return answer;
    }
    if ((lengthGiven ? length : body.size()) > maxBody) {
        answer.outcome = HttpOutcome::kTooBig;
        return answer;
    }
    if (lengthGiven && body.size() != length) return answer; // cut short or padded
    answer.body.assign(body);
    answer.outcome = HttpOutcome::kOk;
    return answer;
}

HttpAnswer HttpExchange(const HttpTarget &target, std::string_view contentType,
                        std::string_view body, size_t maxBody, uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    const UniqueFd fd = Connect(target, deadline);
    if (!fd.Valid()) return {};
    const bool ipv6 = target.host.find(':') != std::string::npos;
    std::string request = std::string(body.empty() ? "GET " : "POST ") + target.path +
                          " HTTP/1.0\r\nHost: " + (ipv6 ? "[" + target.host + "]" : target.host) +
                          ":" + std::to_string(target.port) + "\r\nConnection: close\r\n";
    if (!body.empty())
        request += "Content-Type: " + std::string(contentType) +
                   "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    request += "\r\n";
    request += body;
    std::string raw;
    if (!SendAll(fd.Get(), request, deadline) ||
        !ReceiveAll(fd.Get(), kMaxHeaderBytes + maxBody, deadline, raw))
        return {};
    if (raw.size() > kMaxHeaderBytes + maxBody) {
        HttpAnswer answer = ParseHttpAnswer(raw, maxBody);
        if (answer.outcome == HttpOutcome::kOk || answer.outcome == HttpOutcome::kMalformed)
            answer.outcome = HttpOutcome::kTooBig; // the read stopped before the end
        answer.body.clear();
        return answer;
    }
    return ParseHttpAnswer(raw, maxBody);
}

} // namespace bmccert::sslauth
