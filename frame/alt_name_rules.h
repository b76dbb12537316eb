// The rules of a subject alternative name, shared by the library's check of
// a certificate request and the tool, which names the value it refuses.
#pragma once

#include <arpa/inet.h>

#include <cstddef>
#include <string_view>

namespace bmccert {

inline constexpr size_t kMaxHostNameLength = 253;
inline constexpr size_t kMaxLabelLength = 63;

// A DNS label: 1 to 63 ASCII letters, digits and '-', neither first nor last.
[[nodiscard]] inline bool IsHostLabel(std::string_view label) {
    if (label.empty() || label.size() > kMaxLabelLength) return false;
    if (label.front() == '-' || label.back() == '-') return false;
    for (const char c : label)
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '-'))
            return false;
    return true;
}

// A host name of at most 253 characters; a wildcard stands only for the
// whole leftmost label ("*.example.org").
[[nodiscard]] inline bool IsHostName(std::string_view name) {
    if (name.empty() || name.size() > kMaxHostNameLength) return false;
    if (name.starts_with("*.")) name.remove_prefix(2);
    while (true) {
        const size_t dot = name.find('.');
        if (!IsHostLabel(name.substr(0, dot))) return false;
        if (dot == std::string_view::npos) return true;
        name.remove_prefix(dot + 1);
    }
}

// An IPv4 address in dotted decimal or an IPv6 address, as inet_pton reads them.
[[nodiscard]] inline bool IsIpAddress(const char *text) {
    unsigned char address[sizeof(struct in6_addr)];
    return inet_pton(AF_INET, text, address) == 1 || inet_pton(AF_INET6, text, address) == 1;
}

} // namespace bmccert
