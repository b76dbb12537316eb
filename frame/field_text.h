// Text fields of fixed-layout records: NUL-terminated byte arrays that a
// careless caller or a damaged record may fill to the last byte without a
// terminator. Nothing here reads past a field's array.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace bmccert {

// A field as a terminated text, for handing on as a C string. A field
// filled to its last byte is cut to the field, as bounded copies cut what
// does not fit.
template <size_t N> class FieldText {
  public:
    explicit FieldText(const char (&field)[N]) {
        std::memcpy(text_, field, N);
        text_[N - 1] = '\0';
    }
    [[nodiscard]] const char *c_str() const { return text_; }

  private:
    char text_[N];
};

// A field as it stands, for showing it: its text up to the first NUL, or the
// whole array when there is none.
template <size_t N> [[nodiscard]] std::string_view FieldView(const char (&field)[N]) {
    const void *const nul = std::memchr(field, '\0', N);
    const size_t length =
        nul == nullptr ? N : static_cast<size_t>(static_cast<const char *>(nul) - field);
    return {field, length};
}

// Ends a text field inside its array, in place: a no-op for a field that
// holds a terminator already, a cut to the field for one that does not.
template <size_t N> void EndText(char (&field)[N]) {
    field[N - 1] = '\0';
}

} // namespace bmccert
