// Values that come from certificates, records or configuration files go
// into the openssl command lines as single-quoted words: inside single
// quotes the shell interprets nothing, and a quote of the value itself is
// written as '\'' (close, escaped quote, reopen).
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {

bool SSL_ShellQuote(const char *value, char *out, size_t size) {
    if (value == nullptr || out == nullptr || size == 0) return false;
    size_t used = 0;
    auto put = [&](const char *text, size_t length) {
        if (length >= size - used) return false; // the terminator needs room too
        std::memcpy(out + used, text, length);
        used += length;
        return true;
    };
    bool fits = put("'", 1);
    for (const char *c = value; fits && *c != '\0'; ++c)
        fits = *c == '\'' ? put("'\\''", 4) : put(c, 1);
    fits = fits && put("'", 1);
    out[fits ? used : 0] = '\0';
    return fits;
}

} // namespace bmccert::sslauth
