// One bounded HTTP/1.0 exchange with an OCSP responder or a CRL
// distribution point: plain http only, one address, a deadline for the
// whole exchange, a limit on the answer's size, no redirect followed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace bmccert::sslauth {

// Where a request goes: "http://host[:port][/path]", host a name, an IPv4
// address or a bracketed IPv6 address.
struct HttpTarget {
    std::string host;
    uint16_t port = 80;
    std::string path; // "/" at least
};

enum class HttpOutcome {
    kOk,          // status 200, the body whole
    kUnreachable, // no address, no connection, or no whole answer in time
    kRefused,     // another status, a redirect among them
    kTooBig,      // the body exceeds the limit
    kMalformed,   // not an HTTP answer, or a length that does not match
};

struct HttpAnswer {
    HttpOutcome outcome = HttpOutcome::kUnreachable;
    int status = 0;
    std::string body;
};

// False for anything but a whole http:// address of at most maxLength
// bytes with printable characters only.
[[nodiscard]] bool ParseHttpUrl(std::string_view url, size_t maxLength, HttpTarget &target);

// The answer's status line, headers and body, as read whole off the
// connection (the server closes it: HTTP/1.0).
[[nodiscard]] HttpAnswer ParseHttpAnswer(std::string_view raw, size_t maxBody);

// POST (body non-empty) or GET; the answer parsed as above.
[[nodiscard]] HttpAnswer HttpExchange(const HttpTarget &target, std::string_view contentType,
                                      std::string_view body, size_t maxBody, uint32_t timeoutMs);

} // namespace bmccert::sslauth
