#include "acme/http_client.h"

#include <curl/curl.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <mutex>

namespace bmccert::acme {
namespace {

constexpr size_t kMaxHeaderBytes = 32 * 1024;
constexpr const char *kUserAgent = "bmccert-acme/1";

struct CurlEasyDeleter {
    void operator()(CURL *handle) const noexcept { curl_easy_cleanup(handle); }
};
struct CurlListDeleter {
    void operator()(curl_slist *list) const noexcept { curl_slist_free_all(list); }
};
using CurlList = std::unique_ptr<curl_slist, CurlListDeleter>;

bool CurlReady() {
    static std::once_flag once;
    static CURLcode result = CURLE_FAILED_INIT;
    std::call_once(once, [] { result = curl_global_init(CURL_GLOBAL_DEFAULT); });
    return result == CURLE_OK;
}

// What the callbacks of one transfer fill, and why they stopped it.
struct Exchange {
    HttpResponse *response;
    size_t maxBody;
    size_t headerBytes = 0;
    int64_t now;
    bool tooBig = false;
};

size_t OnBody(char *data, size_t size, size_t count, void *context) {
    auto &exchange = *static_cast<Exchange *>(context);
    const size_t bytes = size * count;
    if (bytes > exchange.maxBody - exchange.response->body.size()) {
        exchange.tooBig = true;
        return 0; // stops the transfer
    }
    exchange.response->body.append(data, bytes);
    return bytes;
}

size_t OnHeader(char *data, size_t size, size_t count, void *context) {
    auto &exchange = *static_cast<Exchange *>(context);
    const size_t bytes = size * count;
    exchange.headerBytes += bytes;
    if (exchange.headerBytes > kMaxHeaderBytes) {
        exchange.tooBig = true;
        return 0;
    }
    CaptureHeaderLine(std::string_view(data, bytes), exchange.now, *exchange.response);
    return bytes;
}

TransportError ErrorOf(CURLcode code, bool tooBig) {
    if (tooBig) return TransportError::kTooBig;
    switch (code) {
    case CURLE_OK:
        return TransportError::kNone;
    case CURLE_OPERATION_TIMEDOUT:
        return TransportError::kTimeout;
    case CURLE_FILESIZE_EXCEEDED:
        return TransportError::kTooBig;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
        return TransportError::kTlsVerifyFailed;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
        return TransportError::kBadUrl;
    default:
        return TransportError::kUnreachable;
    }
}

bool IsRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

} // namespace

struct HttpClient::Handle {
    std::unique_ptr<CURL, CurlEasyDeleter> easy;
};

const char *TransportErrorName(TransportError error) {
    switch (error) {
    case TransportError::kNone:
        return "none";
    case TransportError::kBadUrl:
        return "bad URL";
    case TransportError::kUnreachable:
        return "unreachable";
    case TransportError::kTimeout:
        return "time-out";
    case TransportError::kTooBig:
        return "answer too big";
    case TransportError::kRedirectLoop:
        return "redirect loop";
    case TransportError::kOtherOrigin:
        return "redirect to another origin";
    case TransportError::kTlsVerifyFailed:
        return "certificate not trusted";
    }
    return "unknown";
}

HttpClient::HttpClient(HttpSettings settings)
    : settings_(std::move(settings)), origin_(HttpsUrlOrigin(settings_.directoryUrl)),
      handle_(std::make_unique<Handle>()) {
    if (CurlReady()) handle_->easy.reset(curl_easy_init());
}

HttpClient::~HttpClient() = default;

TransportError HttpClient::Get(std::string_view url, size_t maxBody, HttpResponse &response) {
    return Request(Method::kGet, url, {}, maxBody, response);
}

TransportError HttpClient::Head(std::string_view url, HttpResponse &response) {
    return Request(Method::kHead, url, {}, 0, response);
}

TransportError HttpClient::Post(std::string_view url, std::string_view jws, size_t maxBody,
                                HttpResponse &response) {
    return Request(Method::kPost, url, jws, maxBody, response);
}

TransportError HttpClient::Request(Method method, std::string_view url, std::string_view body,
                                   size_t maxBody, HttpResponse &response) {
    response = HttpResponse{};
    if (!origin_) return TransportError::kBadUrl;
    const std::optional<HttpsOrigin> target = HttpsUrlOrigin(url);
    if (!target) return TransportError::kBadUrl;
    if (*target != *origin_) return TransportError::kOtherOrigin;
    if (!handle_->easy) return TransportError::kUnreachable;

    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(settings_.totalTimeoutMs);
    std::vector<std::string> seen{std::string(url)};
    for (int hop = 0;; ++hop) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0) return TransportError::kTimeout;
        std::string redirect;
        const TransportError error =
            Transfer(method, seen.back(), body, maxBody, static_cast<long>(left), response, redirect);
        if (error != TransportError::kNone) return error;
        if (method == Method::kPost || !IsRedirect(response.status) || redirect.empty())
            return TransportError::kNone;
        if (!OnOrigin(redirect, *origin_)) return TransportError::kOtherOrigin;
        if (hop == kMaxRedirects || std::find(seen.begin(), seen.end(), redirect) != seen.end())
            return TransportError::kRedirectLoop;
        seen.push_back(std::move(redirect));
    }
}

TransportError HttpClient::Transfer(Method method, const std::string &url, std::string_view body,
                                    size_t maxBody, long timeoutMs, HttpResponse &response,
                                    std::string &redirect) {
    CURL *easy = handle_->easy.get();
    curl_easy_reset(easy); // keeps the connection cache, drops every option
    response = HttpResponse{};
    Exchange exchange{&response, maxBody, 0, static_cast<int64_t>(std::time(nullptr))};
    CurlList headers(curl_slist_append(nullptr, "Expect:"));
    if (headers && method == Method::kPost) {
        curl_slist *more = curl_slist_append(headers.get(), "Content-Type: application/jose+json");
        if (!more) return TransportError::kUnreachable;
    }
    if (!headers) return TransportError::kUnreachable;

    bool ok = curl_easy_setopt(easy, CURLOPT_URL, url.c_str()) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "https") == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, "https") == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 0L) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_PROXY, settings_.proxy.c_str()) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_NOPROXY, "") == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS,
                               std::min(settings_.connectTimeoutMs, timeoutMs)) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, settings_.verifyCertificate ? 1L : 0L) ==
                  CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, settings_.verifyCertificate ? 2L : 0L) ==
                  CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_USERAGENT, kUserAgent) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers.get()) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_MAXFILESIZE_LARGE,
                               static_cast<curl_off_t>(maxBody)) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, OnBody) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_WRITEDATA, &exchange) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, OnHeader) == CURLE_OK &&
              curl_easy_setopt(easy, CURLOPT_HEADERDATA, &exchange) == CURLE_OK;
    if (ok && !settings_.caFile.empty())
        ok = curl_easy_setopt(easy, CURLOPT_CAINFO, settings_.caFile.c_str()) == CURLE_OK;
    if (ok && method == Method::kHead) ok = curl_easy_setopt(easy, CURLOPT_NOBODY, 1L) == CURLE_OK;
    if (ok && method == Method::kGet) ok = curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L) == CURLE_OK;
    if (ok && method == Method::kPost)
        ok = curl_easy_setopt(easy, CURLOPT_POST, 1L) == CURLE_OK &&
             curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                              static_cast<curl_off_t>(body.size())) == CURLE_OK &&
             // Never null: a null body makes libcurl read standard input.
             curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.empty() ? "" : body.data()) ==
                 CURLE_OK;
    if (!ok) return TransportError::kUnreachable;

    const CURLcode code = curl_easy_perform(easy);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, nullptr); // the list dies with this call
    const TransportError error = ErrorOf(code, exchange.tooBig);
    if (error != TransportError::kNone) {
        response = HttpResponse{};
        return error;
    }
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response.status);
    response.url = url;
    char *next = nullptr;
    if (curl_easy_getinfo(easy, CURLINFO_REDIRECT_URL, &next) == CURLE_OK && next != nullptr)
        redirect = next;
    return TransportError::kNone;
}

} // namespace bmccert::acme
