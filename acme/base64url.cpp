#include "acme/base64url.h"

#include <cstdint>

namespace bmccert::acme {
namespace {

constexpr char kUrlAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";

enum class Alphabet { Url, Standard };
enum class Padding { Refused, Optional, Required };

// The value of C in the alphabet, or -1.
int SextetOf(char c, Alphabet alphabet) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (alphabet == Alphabet::Url) return c == '-' ? 62 : c == '_' ? 63 : -1;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::optional<std::string> Decode(std::string_view text, Alphabet alphabet, Padding padding) {
    size_t padded = 0;
    while (padded < text.size() && padded < 2 && text[text.size() - 1 - padded] == '=')
        ++padded;
    if (padded > 0 && padding == Padding::Refused) return std::nullopt;
    // A padded text is whole quartets; its padding fills exactly the last one.
    if ((padded > 0 || padding == Padding::Required) && text.size() % 4 != 0) return std::nullopt;
    const std::string_view body = text.substr(0, text.size() - padded);
    // One character alone carries fewer than eight bits.
    if (body.size() % 4 == 1) return std::nullopt;

    std::string bytes;
    bytes.reserve(body.size() / 4 * 3 + 2);
    uint32_t bits = 0;
    int held = 0;
    for (char c : body) {
        const int sextet = SextetOf(c, alphabet);
        if (sextet < 0) return std::nullopt;
        bits = (bits << 6) | static_cast<uint32_t>(sextet);
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes.push_back(static_cast<char>((bits >> held) & 0xFF));
        }
    }
    // Two encodings of the same bytes would let a signed value change
    // without changing what it decodes to.
    if ((bits & ((1U << held) - 1)) != 0) return std::nullopt;
    return bytes;
}

} // namespace

std::string Base64UrlEncode(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    uint32_t bits = 0;
    int held = 0;
    for (char c : bytes) {
        bits = (bits << 8) | static_cast<unsigned char>(c);
        held += 8;
        while (held >= 6) {
            held -= 6;
            text.push_back(kUrlAlphabet[(bits >> held) & 0x3F]);
        }
    }
    if (held > 0) text.push_back(kUrlAlphabet[(bits << (6 - held)) & 0x3F]);
    return text;
}

std::optional<std::string> Base64UrlDecode(std::string_view text) {
    return Decode(text, Alphabet::Url, Padding::Refused);
}

std::optional<std::string> DecodeMacKey(std::string_view text) {
    if (text.empty()) return std::nullopt;
    if (text.find_first_of("-_") != std::string_view::npos)
        return Decode(text, Alphabet::Url, Padding::Optional);
    // Without '+', '/' or padding both alphabets read the same.
    if (text.find_first_of("+/=") != std::string_view::npos)
        return Decode(text, Alphabet::Standard, Padding::Required);
    return Decode(text, Alphabet::Url, Padding::Refused);
}

} // namespace bmccert::acme
