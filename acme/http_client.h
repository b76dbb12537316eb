// HTTPS for the ACME exchanges, with libcurl: https only, to the CA's
// origin only, bounded in size and time, no proxy unless one is
// configured. Redirects are followed here, not by libcurl, so that each
// hop is checked against the directory's origin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "acme/https_url.h"
#include "acme/response_headers.h"

namespace bmccert::acme {

inline constexpr size_t kMaxJsonBody = 64 * 1024;
inline constexpr size_t kMaxChainBody = 1024 * 1024;
inline constexpr int kMaxRedirects = 3;

enum class TransportError {
    kNone,
    kBadUrl,          // not https, too long or malformed; refused before any connection
    kUnreachable,     // no address, no connection, a broken exchange
    kTimeout,         // connection or whole exchange past its time-out
    kTooBig,          // body or headers past their bound
    kRedirectLoop,    // more than kMaxRedirects hops, or back to a URL already seen
    kOtherOrigin,     // a request or a redirect off the directory's scheme, host or port
    kTlsVerifyFailed, // the CA's certificate not trusted or not for its name
};

[[nodiscard]] const char *TransportErrorName(TransportError error);

struct HttpSettings {
    std::string directoryUrl; // every request and every redirect stays on its origin
    std::string caFile;       // PEM roots; empty: the system's
    bool verifyCertificate = true;
    std::string proxy; // empty: none, whatever the environment says
    long connectTimeoutMs = 10'000;
    long totalTimeoutMs = 30'000; // for all hops of one request together
};


// One connection cache per client: a client serves one thread at a time.
class HttpClient {
  public:
    explicit HttpClient(HttpSettings settings);
    ~HttpClient();
    HttpClient(const HttpClient &) = delete;
    HttpClient &operator=(const HttpClient &) = delete;

    [[nodiscard]] TransportError Get(std::string_view url, size_t maxBody, HttpResponse &response);
    [[nodiscard]] TransportError Head(std::string_view url, HttpResponse &response);
    // A JWS body, sent as application/jose+json; a redirect answer is
    // returned, not followed (the signature names the URL it was made for).
    // GET and HEAD follow redirects on the origin; a 3xx without Location
    // is returned as it came.
    [[nodiscard]] TransportError Post(std::string_view url, std::string_view jws, size_t maxBody,
                                      HttpResponse &response);

  private:
    enum class Method { kGet, kHead, kPost };
    TransportError Request(Method method, std::string_view url, std::string_view body,
                           size_t maxBody, HttpResponse &response);
    TransportError Transfer(Method method, const std::string &url, std::string_view body,
                            size_t maxBody, long timeoutMs, HttpResponse &response,
                            std::string &redirect);

    struct Handle;
    HttpSettings settings_;
    std::optional<HttpsOrigin> origin_;
    std::unique_ptr<Handle> handle_;
};

} // namespace bmccert::acme
