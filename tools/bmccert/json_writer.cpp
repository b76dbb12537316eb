#include "json_writer.h"

#include <cstddef>
#include <cstdio>

namespace bmccert::cli {
namespace {

constexpr std::string_view kReplacement = "\\ufffd";

// Length of the well-formed UTF-8 sequence at the start of text, or 0 when
// it does not start with one. Overlong forms, surrogates and code points
// past U+10FFFF are not well-formed.
[[nodiscard]] std::size_t Utf8SequenceLength(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto continuation = [&](std::size_t i) {
        return i < text.size() && (byte(i) & 0xC0u) == 0x80u;
    };
    const unsigned char lead = byte(0);
    if (lead < 0x80u) return 1;
    if (lead >= 0xC2u && lead <= 0xDFu) return continuation(1) ? 2 : 0;
    if (lead >= 0xE0u && lead <= 0xEFu) {
        if (!continuation(1) || !continuation(2)) return 0;
        if (lead == 0xE0u && byte(1) < 0xA0u) return 0;  // overlong
        if (lead == 0xEDu && byte(1) >= 0xA0u) return 0; // surrogate
        return 3;
    }
    if (lead >= 0xF0u && lead <= 0xF4u) {
        if (!continuation(1) || !continuation(2) || !continuation(3)) return 0;
        if (lead == 0xF0u && byte(1) < 0x90u) return 0;  // overlong
        if (lead == 0xF4u && byte(1) >= 0x90u) return 0; // past U+10FFFF
        return 4;
    }
    return 0;
}

// JSON's short escape where it has one, else \u00XX.
void AppendControlEscape(std::string &out, unsigned char c) {
    constexpr std::string_view kShortEscaped = "\b\f\n\r\t";
    constexpr std::string_view kShortNames = "bfnrt";
    out += '\\';
    if (const std::size_t at = kShortEscaped.find(static_cast<char>(c));
        at != std::string_view::npos) {
        out += kShortNames[at];
        return;
    }
    constexpr std::string_view kHex = "0123456789abcdef";
    out += "u00";
    out += kHex[c >> 4];
    out += kHex[c & 0x0Fu];
}

} // namespace

void AppendJsonString(std::string &out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        const auto c = static_cast<unsigned char>(text.front());
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
            text.remove_prefix(1);
        } else if (c < 0x20u) {
            AppendControlEscape(out, c);
            text.remove_prefix(1);
        } else if (const std::size_t length = Utf8SequenceLength(text); length != 0) {
            out.append(text.substr(0, length));
            text.remove_prefix(length);
        } else {
            out += kReplacement;
            text.remove_prefix(1);
        }
    }
    out += '"';
}

void AppendTerminalSafe(std::string &out, std::string_view text) {
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c >= 0x20u && c != 0x7Fu) {
            out += ch;
            continue;
        }
        char escaped[5] = {};
        (void)std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
        out += escaped;
    }
}

void JsonWriter::Separate() {
    if (open_.empty() || !open_.back().array) return;
    if (open_.back().written) out_ += ',';
    open_.back().written = true;
}

void JsonWriter::Open(char bracket, bool array) {
    Separate();
    out_ += bracket;
    open_.push_back({array, false});
}

void JsonWriter::Close(char bracket) {
    out_ += bracket;
    if (!open_.empty()) open_.pop_back();
}

JsonWriter &JsonWriter::Key(std::string_view name) {
    if (!open_.empty()) {
        if (open_.back().written) out_ += ',';
        open_.back().written = true;
    }
    AppendJsonString(out_, name);
    out_ += ':';
    return *this;
}

void JsonWriter::String(std::string_view text) {
    Separate();
    AppendJsonString(out_, text);
}

void JsonWriter::Literal(std::string_view text) {
    Separate();
    out_ += text;
}

} // namespace bmccert::cli
