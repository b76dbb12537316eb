// An owned reference to a jansson value: the reference is dropped with
// the owner, on every path out.
#pragma once

#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace bmccert::acme {

struct JsonDecref {
    void operator()(json_t *value) const noexcept { json_decref(value); }
};
using JsonRef = std::unique_ptr<json_t, JsonDecref>;

// VALUE as compact JSON text (no spaces); FLAGS adds jansson's, such as
// JSON_SORT_KEYS. Nothing when jansson cannot write it.
[[nodiscard]] inline std::optional<std::string> CompactText(const json_t *value, size_t flags = 0) {
    if (value == nullptr) return std::nullopt;
    const std::unique_ptr<char, decltype(&std::free)> text(json_dumps(value, JSON_COMPACT | flags),
                                                           &std::free);
    if (!text) return std::nullopt;
    return std::string(text.get());
}

} // namespace bmccert::acme
