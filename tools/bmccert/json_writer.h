// A compact JSON writer for the tool's structured output, and the escape of
// untrusted text for a terminal.
//
// Certificate texts come from the certificate itself and may hold any byte.
// Strings are written so that the output is always valid JSON in valid
// UTF-8: quotes, backslashes and bytes below 0x20 are escaped (the control
// bytes as \u00XX), well-formed UTF-8 sequences pass through unchanged, and
// every byte that is not part of a well-formed sequence becomes \ufffd, the
// replacement character. A reader can tell a damaged byte from a real one.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bmccert::cli {

// Appends the JSON string literal of text, quotes included.
void AppendJsonString(std::string &out, std::string_view text);

// Appends text for a terminal: printable bytes pass, so that UTF-8 names
// show as the terminal renders them; control bytes and DEL become \xNN so
// that a certificate cannot drive the terminal.
void AppendTerminalSafe(std::string &out, std::string_view text);

class JsonWriter {
  public:
    void BeginObject() { Open('{', false); }
    void EndObject() { Close('}'); }
    void BeginArray() { Open('[', true); }
    void EndArray() { Close(']'); }
    // The name of the next member of the object being written; its value
    // follows as the next call.
    JsonWriter &Key(std::string_view name);
    void String(std::string_view text);
    void Int(int64_t value) { Literal(std::to_string(value)); }
    void Uint(uint64_t value) { Literal(std::to_string(value)); }
    void Bool(bool value) { Literal(value ? "true" : "false"); }
    void Null() { Literal("null"); }
    // One member of the object being written: its name, then its value.
    void String(std::string_view key, std::string_view text) { Key(key).String(text); }
    void Int(std::string_view key, int64_t value) { Key(key).Int(value); }
    void Uint(std::string_view key, uint64_t value) { Key(key).Uint(value); }
    void Bool(std::string_view key, bool value) { Key(key).Bool(value); }

    // The document so far; complete once every object is ended.
    [[nodiscard]] const std::string &Text() const { return out_; }

  private:
    std::string out_;
    // Before a value: the comma that separates it from an earlier element
    // of the array being written.
    void Separate();
    // A number, true, false or null.
    void Literal(std::string_view text);
    void Open(char bracket, bool array);
    void Close(char bracket);

    struct Level {
        bool array;   // an array, else an object
        bool written; // a member or element came before
    };
    std::vector<Level> open_;
};

} // namespace bmccert::cli
