// Text fields of the library's records: NUL-terminated byte arrays that a
// damaged record may fill to the last byte without a terminator.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace bmccert::cli {

// The text of a field up to its first NUL, bounded by the array.
template <std::size_t N> [[nodiscard]] std::string_view FieldText(const char (&field)[N]) {
    const void *const nul = std::memchr(field, '\0', N);
    const std::size_t length =
        nul == nullptr ? N : static_cast<std::size_t>(static_cast<const char *>(nul) - field);
    return {field, length};
}

} // namespace bmccert::cli
