// Fault switch: lets a test make one platform call fail (or answer a chosen
// value) without breaking the machinery behind it. The variable is read at
// each call so that a test can switch faults on and off while running.
#include <cstdlib>

#include "sim_internal.h"

namespace bmcsim {

std::optional<uint32_t> ParseNumber(std::string_view text) noexcept {
    unsigned base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    if (text.empty()) return std::nullopt;
    uint64_t value = 0;
    for (char c : text) {
        unsigned digit;
        if (c >= '0' && c <= '9') {
            digit = static_cast<unsigned>(c - '0');
        } else if (base == 16 && c >= 'a' && c <= 'f') {
            digit = static_cast<unsigned>(c - 'a' + 10);
        } else if (base == 16 && c >= 'A' && c <= 'F') {
            digit = static_cast<unsigned>(c - 'A' + 10);
        } else {
            return std::nullopt;
        }
        value = value * base + digit;
        if (value > UINT32_MAX) return std::nullopt;
    }
    return static_cast<uint32_t>(value);
}

namespace {

// The value of the first entry of the switch whose name the predicate
// accepts. An unreadable value switches nothing rather than guessing.
template <typename NameMatches>
std::optional<uint32_t> FirstFault(const NameMatches &matches) noexcept {
    const char *env = std::getenv(BMCSIM_ENV_FAULTS);
    if (env == nullptr || *env == '\0') return std::nullopt;
    std::string_view rest(env);
    while (!rest.empty()) {
        const size_t comma = rest.find(',');
        const std::string_view item = rest.substr(0, comma);
        rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
        const size_t eq = item.find('=');
        if (eq == std::string_view::npos || !matches(item.substr(0, eq))) continue;
        if (auto value = ParseNumber(item.substr(eq + 1))) return value;
    }
    return std::nullopt;
}

} // namespace

std::optional<uint32_t> InjectedFault(std::string_view call) noexcept {
    return FirstFault([&](std::string_view name) { return name == call; });
}

std::optional<uint32_t> InjectedFault(std::string_view call, uint32_t qualifier) noexcept {
    return FirstFault([&](std::string_view name) {
        return name.size() > call.size() + 1 && name.substr(0, call.size()) == call &&
               name[call.size()] == '.' && ParseNumber(name.substr(call.size() + 1)) == qualifier;
    });
}

} // namespace bmcsim
