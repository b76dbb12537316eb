#include "json_writer.h"

#include <array>
#include <cstddef>

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

void AppendControlEscape(std::string &out, unsigned char c) {
    static constexpr std::array<char, 16> kHex = {'0', '1', '2', '3', '4', '5', '6', '7',
                                                  '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};
    switch (c) {
    case '\b':
        out += "\\b";
        return;
    case '\f':
        out += "\\f";
        return;
    case '\n':
        out += "\\n";
        return;
    case '\r':
        out += "\\r";
        return;
    case '\t':
        out += "\\t";
        return;
    default:
        break;
    }
    out += "\\u00";
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

void JsonWriter::BeforeValue() {
    if (open_.empty() || !open_.back().array) return;
    if (open_.back().written) out_ += ',';
    open_.back().written = true;
}

void JsonWriter::BeginObject() {
    BeforeValue();
    out_ += '{';
    open_.push_back({false, false});
}

void JsonWriter::EndObject() {
    out_ += '}';
    if (!open_.empty()) open_.pop_back();
}

void JsonWriter::BeginArray() {
    BeforeValue();
    out_ += '[';
    open_.push_back({true, false});
}

void JsonWriter::EndArray() {
    out_ += ']';
    if (!open_.empty()) open_.pop_back();
}

void JsonWriter::Key(std::string_view name) {
    if (!open_.empty()) {
        if (open_.back().written) out_ += ',';
        open_.back().written = true;
    }
    AppendJsonString(out_, name);
    out_ += ':';
}

void JsonWriter::String(std::string_view text) {
    BeforeValue();
    AppendJsonString(out_, text);
}

void JsonWriter::Int(int64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
}

void JsonWriter::Uint(uint64_t value) {
    BeforeValue();
    out_ += std::to_string(value);
}

void JsonWriter::String(std::string_view key, std::string_view text) {
    Key(key);
    String(text);
}

void JsonWriter::Int(std::string_view key, int64_t value) {
    Key(key);
    Int(value);
}

void JsonWriter::Uint(std::string_view key, uint64_t value) {
    Key(key);
    Uint(value);
}

} // namespace bmccert::cli
