// Bounded text copies: callers hand fixed-size fields, and an over-long
// source must be cut, never written past the field.
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "sim_internal.h"

extern "C" size_t BMC_Strlcpy(char *pcDst, const char *pcSrc, size_t uiSize) {
    const char *src = pcSrc != nullptr ? pcSrc : "";
    size_t srcLen = std::strlen(src);
    if (pcDst == nullptr || uiSize == 0) return srcLen;
    size_t copied = srcLen < uiSize ? srcLen : uiSize - 1;
    std::memmove(pcDst, src, copied);
    pcDst[copied] = '\0';
    return srcLen;
}

extern "C" size_t BMC_Strlcat(char *pcDst, const char *pcSrc, size_t uiSize) {
    const char *src = pcSrc != nullptr ? pcSrc : "";
    size_t srcLen = std::strlen(src);
    if (pcDst == nullptr) return srcLen;
    // A destination without a terminator inside the field is taken as full.
    size_t dstLen = strnlen(pcDst, uiSize);
    if (dstLen == uiSize) return uiSize + srcLen;
    (void)BMC_Strlcpy(pcDst + dstLen, src, uiSize - dstLen);
    return dstLen + srcLen;
}

extern "C" int32_t BMC_Scnprintf(char *pcBuf, size_t uiSize, const char *pcFormat, ...) {
    if (pcBuf == nullptr || uiSize == 0) return 0;
    pcBuf[0] = '\0';
    if (pcFormat == nullptr) return 0;
    va_list args;
    va_start(args, pcFormat);
    int wanted = std::vsnprintf(pcBuf, uiSize, pcFormat, args);
    va_end(args);
    if (wanted < 0) {
        pcBuf[0] = '\0';
        return 0;
    }
    size_t written = static_cast<size_t>(wanted);
    if (written >= uiSize) written = uiSize - 1;
    return written > INT32_MAX ? INT32_MAX : static_cast<int32_t>(written);
}
