// A compact JSON writer for the tool's structured output.
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

class JsonWriter {
  public:
    void BeginObject();
    void EndObject();
    // An array as the next value; its elements are the values written
    // until EndArray.
    void BeginArray();
    void EndArray();
    // The name of the next member of the object being written; its value
    // follows as the next call.
    void Key(std::string_view name);
    void String(std::string_view text);
    void Int(int64_t value);
    void Uint(uint64_t value);
    // One member of the object being written: its name, then its value.
    void String(std::string_view key, std::string_view text);
    void Int(std::string_view key, int64_t value);
    void Uint(std::string_view key, uint64_t value);

    // The document so far; complete once every object is ended.
    [[nodiscard]] const std::string &Text() const { return out_; }

  private:
    struct Open {
        bool array;   // an array, else an object
        bool written; // a member or element came before
    };
    // Before a value: the comma that separates it from an earlier element.
    void BeforeValue();

    std::string out_;
    std::vector<Open> open_;
};

} // namespace bmccert::cli
