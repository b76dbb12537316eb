// Operation log and diagnostic events: one line per entry, in files that a
// person or a test reads like the controller's own logs.
#include <cstdio>
#include <cstring>
#include <string>

#include "sim_internal.h"
#include "sim_log.h"

namespace {

// Texts of an entry are bounded: a careless caller's unterminated field
// must not run the log line past it.
constexpr size_t kTextLimit = 1024;

// Tag and length as two little-endian 16-bit words, then the value.
constexpr uint32_t kTlvHeaderSize = 4;
constexpr uint32_t kTlvAreaSize = sizeof(QdrRecord::aucTlv);

} // namespace

extern "C" int32_t OPERATELOG_AddLogComm(uint32_t uiInterface, uint32_t uiResultKind,
                                         const char *pcDesc, const char *pcText1,
                                         const char *pcText2, int32_t iLine,
                                         uint8_t ucLogClass) {
    if (auto fault = bmcsim::InjectedFault("OPERATELOG_AddLogComm"))
        return static_cast<int32_t>(*fault);
    if (pcDesc == nullptr || pcText1 == nullptr || pcText2 == nullptr) return bmcsim::kFailSigned;
    try {
        std::string line = std::to_string(uiInterface) + '\t' + std::to_string(uiResultKind) + '\t';
        bmcsim::AppendEscaped(line, pcDesc, kTextLimit);
        line += '\t';
        bmcsim::AppendEscaped(line, pcText1, kTextLimit);
        line += '\t';
        bmcsim::AppendEscaped(line, pcText2, kTextLimit);
        line += '\t' + std::to_string(iLine) + '\t' + std::to_string(ucLogClass);
        bmcsim::AppendLogLine(BMCSIM_OPERATE_LOG, std::move(line));
        return 0;
    } catch (...) {
        return bmcsim::kFailSigned;
    }
}

extern "C" int32_t QDX_QDRTLVSet(uint32_t uiTag, uint32_t uiLen, const void *pValue,
                                 uint32_t *puiCursor, uint8_t *pucTlvArea) {
    if (puiCursor == nullptr || pucTlvArea == nullptr || uiTag > 0xFFFF || uiLen > 0xFFFF ||
        (uiLen > 0 && pValue == nullptr))
        return bmcsim::kFailSigned;
    const uint32_t cursor = *puiCursor;
    if (cursor > kTlvAreaSize || kTlvAreaSize - cursor < kTlvHeaderSize + uiLen)
        return bmcsim::kFailSigned;
    uint8_t *item = pucTlvArea + cursor;
    item[0] = static_cast<uint8_t>(uiTag);
    item[1] = static_cast<uint8_t>(uiTag >> 8);
    item[2] = static_cast<uint8_t>(uiLen);
    item[3] = static_cast<uint8_t>(uiLen >> 8);
    if (uiLen > 0) std::memcpy(item + kTlvHeaderSize, pValue, uiLen);
    *puiCursor = cursor + kTlvHeaderSize + uiLen;
    return 0;
}

extern "C" int32_t QDX_Internal_AddQdrFromBmc(QdrRecord *pstRecord, const char *pcFile,
                                              const char *pcFunc) {
    if (auto fault = bmcsim::InjectedFault("QDX_Internal_AddQdrFromBmc"))
        return static_cast<int32_t>(*fault);
    if (pstRecord == nullptr || pcFile == nullptr || pcFunc == nullptr) return bmcsim::kFailSigned;
    try {
        std::string line =
            std::to_string(pstRecord->usEventCode) + '\t' + std::to_string(pstRecord->ucByte3) + '\t';
        bmcsim::AppendEscaped(line, pcFile, kTextLimit);
        line += '\t';
        bmcsim::AppendEscaped(line, pcFunc, kTextLimit);
        line += '\t';
        bmcsim::AppendHex(line, pstRecord, sizeof *pstRecord);
        bmcsim::AppendLogLine(BMCSIM_QDR_LOG, std::move(line));
        return 0;
    } catch (...) {
        return bmcsim::kFailSigned;
    }
}
