#include "acme/https_url.h"

#include <curl/curl.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace bmccert::acme {
namespace {

struct CurlUrlDeleter {
    void operator()(CURLU *url) const noexcept { curl_url_cleanup(url); }
};
struct CurlTextDeleter {
    void operator()(char *text) const noexcept { curl_free(text); }
};
using CurlText = std::unique_ptr<char, CurlTextDeleter>;

bool PrintableAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

CurlText Part(CURLU *url, CURLUPart part, unsigned flags) {
    char *text = nullptr;
    if (curl_url_get(url, part, &text, flags) != CURLUE_OK) return nullptr;
    return CurlText(text);
}

} // namespace

std::optional<HttpsOrigin> HttpsUrlOrigin(std::string_view url) {
    if (url.empty() || url.size() > kMaxUrlLength || !PrintableAscii(url)) return std::nullopt;
    const std::unique_ptr<CURLU, CurlUrlDeleter> parsed(curl_url());
    const std::string whole(url);
    if (!parsed || curl_url_set(parsed.get(), CURLUPART_URL, whole.c_str(), 0) != CURLUE_OK)
        return std::nullopt;
    const CurlText scheme = Part(parsed.get(), CURLUPART_SCHEME, 0);
    const CurlText host = Part(parsed.get(), CURLUPART_HOST, 0);
    const CurlText port = Part(parsed.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    if (!scheme || std::string_view(scheme.get()) != "https" || !host || !port) return std::nullopt;
    // Credentials in a URL would be sent to whoever the CA names.
    if (Part(parsed.get(), CURLUPART_USER, 0) || Part(parsed.get(), CURLUPART_PASSWORD, 0))
        return std::nullopt;
    HttpsOrigin origin;
    origin.host = host.get();
    if (origin.host.empty()) return std::nullopt;
    std::transform(origin.host.begin(), origin.host.end(), origin.host.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    const std::string_view portText(port.get());
    const auto [end, error] =
        std::from_chars(portText.data(), portText.data() + portText.size(), origin.port);
    if (error != std::errc() || end != portText.data() + portText.size() || origin.port == 0)
        return std::nullopt;
    return origin;
}

bool OnOrigin(std::string_view url, const HttpsOrigin &origin) {
    const std::optional<HttpsOrigin> own = HttpsUrlOrigin(url);
    return own && *own == origin;
}

} // namespace bmccert::acme
