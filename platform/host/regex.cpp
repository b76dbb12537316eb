// Pattern checks of user input (e-mail addresses, names...). Callers use a
// handful of fixed patterns over and over, so compiled patterns are kept.
// 1 is a match, 0 a clear no match, -1 no answer (see below): a caller that
// refuses on a match must refuse on -1 as well.
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
using MatchContext = bmcsim::Owned<pcre2_match_context, pcre2_match_context_free>;

// No answer: the pattern did not compile, memory ran out, or the match ran
// into the limits below. Neither a match nor a clear "no match".
constexpr int32_t kEngineError = -1;
// Bounds of one match: the fixed patterns need a few hundred steps on the
// longest field, while the e-mail pattern's backtracking over a long last
// label grows without bound; a call stays within tens of milliseconds.
constexpr uint32_t kMatchLimit = 1000000;
constexpr uint32_t kDepthLimit = 10000;

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
    if (pcText == nullptr || pcPattern == nullptr) return kEngineError;
    try {
        Code uncached;
        const pcre2_code *code = Cached(pcPattern, uncached);
        if (code == nullptr) return kEngineError;
        MatchData match(pcre2_match_data_create_from_pattern(code, nullptr));
        MatchContext context(pcre2_match_context_create(nullptr));
        if (!match || !context) return kEngineError;
        // A test may squeeze the engine to see a check that it gives up on.
        const uint32_t limit = bmcsim::InjectedFault("BMC_RegularJudge").value_or(kMatchLimit);
        (void)pcre2_set_match_limit(context.get(), limit);
        (void)pcre2_set_depth_limit(context.get(), kDepthLimit);
        const int rc = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(pcText),
                                   PCRE2_ZERO_TERMINATED, 0, 0, match.get(), context.get());
        if (rc >= 0) return 1;
        return rc == PCRE2_ERROR_NOMATCH ? 0 : kEngineError;
    } catch (const std::bad_alloc &) {
        return kEngineError;
    }
}
