// The one check for a path that is written into a service's configuration
// file (the tunnel's, the web server's). Header-only, so that the library,
// the stand-in and the sandbox share it.
#pragma once

#include <cstddef>
#include <string_view>

namespace bmccert {

// True when the path may stand as the value of one configuration line:
// absolute, free of control bytes (a line feed or carriage return would
// start a directive of its own, a NUL or escape would cut or garble the
// line), and no longer than the room the line's buffer leaves for it, so
// that it is never written cut.
[[nodiscard]] constexpr bool IsConfigLinePath(std::string_view path, size_t room) noexcept {
    if (path.empty() || path.front() != '/' || path.size() > room) return false;
    for (const char c : path) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) return false;
    }
    return true;
}

} // namespace bmccert
