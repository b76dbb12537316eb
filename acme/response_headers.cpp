#include "acme/response_headers.h"

#include <algorithm>
#include <charconv>

#include "acme/https_url.h"
#include "acme/time_stamps.h"

namespace bmccert::acme {
namespace {

constexpr std::string_view kWhitespace = " \t";

std::string_view Trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(kWhitespace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kWhitespace) - first + 1);
}

char Lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool SameLetters(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return Lower(x) == Lower(y); });
}

bool Printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7f; });
}

bool Base64Url(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_';
    });
}

bool TokenChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

// Reads a token or a quoted string at pos into value.
bool ParamValue(std::string_view text, size_t &pos, std::string &value) {
    value.clear();
    if (pos < text.size() && text[pos] == '"') {
        for (++pos; pos < text.size() && text[pos] != '"'; ++pos) {
            if (text[pos] == '\\' && ++pos == text.size()) return false;
            value.push_back(text[pos]);
        }
        if (pos == text.size()) return false;
        ++pos;
        return true;
    }
    while (pos < text.size() && TokenChar(text[pos])) value.push_back(text[pos++]);
    return !value.empty();
}

void SkipWhitespace(std::string_view text, size_t &pos) {
    while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
}

// The relations of one entry, from its parameters up to the next entry.
bool ReadRelations(std::string_view text, size_t &pos, bool &up, bool &alternate) {
    for (;;) {
        SkipWhitespace(text, pos);
        if (pos == text.size() || text[pos] == ',') return true;
        if (text[pos] != ';') return false;
        ++pos;
        SkipWhitespace(text, pos);
        const size_t nameStart = pos;
        while (pos < text.size() && TokenChar(text[pos])) ++pos;
        const std::string_view name = text.substr(nameStart, pos - nameStart);
        if (name.empty()) return false;
        SkipWhitespace(text, pos);
        std::string value;
        if (pos < text.size() && text[pos] == '=') {
            ++pos;
            SkipWhitespace(text, pos);
            if (!ParamValue(text, pos, value)) return false;
        }
        if (!SameLetters(name, "rel")) continue;
        for (size_t start = 0; start < value.size();) {
            size_t end = value.find(' ', start);
            if (end == std::string::npos) end = value.size();
            const std::string_view relation = std::string_view(value).substr(start, end - start);
            up = up || SameLetters(relation, "up");
            alternate = alternate || SameLetters(relation, "alternate");
            start = end + 1;
        }
    }
}

} // namespace

std::optional<int64_t> ParseRetryAfter(std::string_view value, int64_t now) {
    value = Trimmed(value);
    if (!value.empty() && value.front() >= '0' && value.front() <= '9') {
        int64_t seconds = 0;
        const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
        if (error != std::errc() || end != value.data() + value.size() ||
            seconds > kMaxRetryAfterSeconds)
            return std::nullopt;
        return seconds;
    }
    const std::optional<int64_t> when = ParseHttpDate(value);
    if (!when || *when - now > kMaxRetryAfterSeconds) return std::nullopt;
    return std::max<int64_t>(*when - now, 0);
}

bool ReadLinkHeader(std::string_view value, HttpResponse &response) {
    std::string up = response.linkUp;
    std::vector<std::string> alternates = response.linkAlternates;
    size_t pos = 0;
    for (;;) {
        while (pos < value.size() && (value[pos] == ' ' || value[pos] == '\t' || value[pos] == ','))
            ++pos;
        if (pos == value.size()) break;
        if (value[pos] != '<') return false;
        const size_t close = value.find('>', pos);
        if (close == std::string_view::npos) return false;
        const std::string_view target = value.substr(pos + 1, close - pos - 1);
        if (target.empty() || target.size() > kMaxUrlLength || !Printable(target)) return false;
        pos = close + 1;
        bool isUp = false, isAlternate = false;
        if (!ReadRelations(value, pos, isUp, isAlternate)) return false;
        if (isUp && up.empty()) up = target;
        if (isAlternate) {
            if (alternates.size() == kMaxAlternateLinks) return false;
            alternates.emplace_back(target);
        }
    }
    response.linkUp = std::move(up);
    response.linkAlternates = std::move(alternates);
    return true;
}

void CaptureHeaderLine(std::string_view line, int64_t now, HttpResponse &response) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
    if (line.substr(0, 5) == "HTTP/") {
        const long status = response.status;
        response = HttpResponse{};
        response.status = status;
        return;
    }
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const std::string_view name = line.substr(0, colon);
    const std::string_view value = Trimmed(line.substr(colon + 1));
    if (SameLetters(name, "Replay-Nonce")) {
        if (!value.empty() && value.size() <= kMaxNonceLength && Base64Url(value))
            response.replayNonce = value;
    } else if (SameLetters(name, "Location")) {
        if (!value.empty() && value.size() <= kMaxUrlLength && Printable(value))
            response.location = value;
    } else if (SameLetters(name, "Content-Type")) {
        if (value.size() <= kMaxContentTypeLength && Printable(value)) response.contentType = value;
    } else if (SameLetters(name, "Retry-After")) {
        response.retryAfterSeconds = ParseRetryAfter(value, now);
    } else if (SameLetters(name, "Link")) {
        (void)ReadLinkHeader(value, response);
    }
}

} // namespace bmccert::acme
