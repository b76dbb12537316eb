// Pattern checks of user input (e-mail addresses, names...). Callers use a
// handful of fixed patterns over and over, so compiled patterns are kept.
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <map>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "sim_internal.h"

namespace {

using Code = bmcsim::Owned<pcre2_code, pcre2_code_free>;
using MatchData = bmcsim::Owned<pcre2_match_data, pcre2_match_data_free>;

// Enough for the fixed patterns; anything beyond is compiled per call
// rather than letting the cache grow without bound.
constexpr size_t kCacheLimit = 64;

std::mutex g_cacheMutex;
std::map<std::string, Code, std::less<>> g_cache;

// '$' matches at the very end only, as in the controller's extended
// expressions: "name\n" is not a whole match of "^name$".
[[nodiscard]] Code Compile(std::string_view pattern) noexcept {
    int error = 0;
    PCRE2_SIZE offset = 0;
    return Code(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(),
                              PCRE2_DOLLAR_ENDONLY, &error, &offset, nullptr));
}

// A compiled pattern never changes, so matching it needs no lock; the
// cache only ever adds entries, so the pointer stays valid.
[[nodiscard]] const pcre2_code *Cached(std::string_view pattern, Code &uncached) {
    std::lock_guard lock(g_cacheMutex);
    if (auto found = g_cache.find(pattern); found != g_cache.end()) return found->second.get();
    Code code = Compile(pattern);
    if (!code) return nullptr;
    if (g_cache.size() >= kCacheLimit) {
        uncached = std::move(code);
        return uncached.get();
    }
    return g_cache.emplace(std::string(pattern), std::move(code)).first->second.get();
}

} // namespace

extern "C" int32_t BMC_RegularJudge(const char *pcText, const char *pcPattern) {
    if (pcText == nullptr || pcPattern == nullptr) return 0;
    try {
        Code uncached;
        const pcre2_code *code = Cached(pcPattern, uncached);
        if (code == nullptr) return 0;
        MatchData match(pcre2_match_data_create_from_pattern(code, nullptr));
        if (!match) return 0;
        // A match that runs into the engine's limits counts as no match.
        int rc = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(pcText), PCRE2_ZERO_TERMINATED, 0,
                             0, match.get(), nullptr);
        return rc >= 0 ? 1 : 0;
    } catch (const std::bad_alloc &) {
        return 0;
    }
}
