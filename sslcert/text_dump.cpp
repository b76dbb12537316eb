// Fields of a server certificate read from the openssl tool's text dump:
// serial number, signature algorithm, public key line, validity dates and
// fitness as an SSL server certificate.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kScratchLock = "sslcert_tmp_file.lock";
constexpr size_t kCommandSize = 256;
constexpr size_t kLineSize = 1024;
constexpr size_t kSlotSize = 256;
constexpr size_t kFieldSize = 64;

enum Slot : size_t { kSerial, kSigAlgorithm, kPublicKey, kNotBefore, kNotAfter, kSslServer };

// A row's position is its slot; each slot ends in one field of SSLConfig.
constexpr std::array<CertTextParseRow, 6> CertTextParseTable = {{
    {"serial=", 1, '='},
    {"Signature Algorithm:", 2, ':'},
    {"Public Key:", 2, ':'},
    {"notBefore=", 1, '='},
    {"notAfter=", 1, '='},
    {"SSL server :", 2, ':'},
}};

using Slots = std::array<std::array<char, kSlotSize>, CertTextParseTable.size()>;

// Reads the dump line by line; every row is applied to every line, so the
// last matching line of the dump decides a slot.
void ParseDump(FILE *dump, Slots &slots) {
    if (std::feof(dump)) return;
    char line[kLineSize];
    do {
        std::memset(line, 0, sizeof line);
        // Up to 1023 bytes a read: a line of 1022 characters comes whole,
        // with its line feed.
        if (std::fgets(line, sizeof line, dump) == nullptr) break;
        for (size_t slot = 0; slot < CertTextParseTable.size(); ++slot)
            SECURITY_SSL_ParseCommon(line, &CertTextParseTable[slot], kSlotSize,
                                     slots[slot].data());
    } while (!std::feof(dump));
}

// The conversion's result is not examined: a date that does not convert
// keeps the time stamp 0 and is written as its rendering.
void WriteDate(const char *slot, char *field) {
    BMC_TimeStamp stamp = 0;
    (void)BMC_EnTimeToTimeStamp(slot, &stamp);
    (void)BMC_TimeStampToIsoTime(stamp, kFieldSize, field);
}

void RemoveScratchFile() {
    if (unlink(kDumpScratchPath) != 0)
        BMCCERT_DIAG(kLevelFailure, "Unable to remove: %s", kDumpScratchPath);
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" int32_t SECURITY_SSL_GetSSLCertCommon(uint32_t uiCertType, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstSSLConfig, static_cast<int32_t>(SSLCERT_ERR_NULL_POINTER));

    CertKeyPaths paths;
    if (!LookupCertKeyPaths(uiCertType, paths, "SECURITY_SSL_GetSSLCertCommon"))
        return static_cast<int32_t>(SSLCERT_ERR_GENERAL);

    // The certificate path comes from the fixed location table, never from
    // outside, so it is safe on the command line as it stands.
    char command[kCommandSize] = {};
    (void)BMC_Scnprintf(
        command, sizeof command,
        "openssl x509 -text -serial -startdate -enddate -purpose -noout -in %s > %s", paths.cert,
        kDumpScratchPath);

    // Every dump of every thread and process shares the one scratch file.
    NamedFileLock scratchLock(kScratchLock);

    // The redirection follows a link at the name: it fills a file of this
    // dump's own, in a directory no one else can add to.
    if (!MakeScratchDirPrivate() || !CreateScratchFile(kDumpScratchPath))
        return static_cast<int32_t>(SSLCERT_ERR_GENERAL);
    if (BMC_System(command) == BMC_PLATFORM_FAIL) {
        BMCCERT_DIAG(kLevelFailure, "Error spawning x509 in order to get certificate info or "
                                    "invalid certfiicate on SSL.\n");
        return static_cast<int32_t>(SSLCERT_ERR_GENERAL);
    }

    StdioFile dump(kDumpScratchPath, "r");
    if (!dump.IsOpen()) {
        BMCCERT_DIAG(kLevelFailure, "Error in Opening File %s\n", kDumpScratchPath);
        RemoveScratchFile();
        return static_cast<int32_t>(SSLCERT_ERR_FILE_OPEN);
    }
    Slots slots{};
    ParseDump(dump.get(), slots);
    dump.Close();

    (void)BMC_Strlcpy(pstSSLConfig->szSerialNum, slots[kSerial].data(), kFieldSize);
    (void)BMC_Strlcpy(pstSSLConfig->szSigAlgorithm, slots[kSigAlgorithm].data(), kFieldSize);
    (void)BMC_Strlcpy(pstSSLConfig->szPublicKey, slots[kPublicKey].data(), kFieldSize);
    (void)BMC_Strlcpy(pstSSLConfig->szSSLServer, slots[kSslServer].data(), kFieldSize);
    WriteDate(slots[kNotBefore].data(), pstSSLConfig->szStartDate);
    WriteDate(slots[kNotAfter].data(), pstSSLConfig->szExpDate);

    RemoveScratchFile();
    return static_cast<int32_t>(SSLCERT_OK);
}

extern "C" void SECURITY_SSL_ParseCommon(const char *pcReadline,
                                         const CertTextParseRow *pstParseTable,
                                         uint32_t uiBufferSize, char *pcBuffer) {
    if (pcReadline == nullptr) {
        BMCCERT_REPORT_NULL(pcReadline);
        return;
    }
    if (pstParseTable == nullptr) {
        BMCCERT_REPORT_NULL(pstParseTable);
        return;
    }
    if (pcBuffer == nullptr) {
        BMCCERT_REPORT_NULL(pcBuffer);
        return;
    }
    if (pstParseTable->pcKeyword == nullptr ||
        std::strstr(pcReadline, pstParseTable->pcKeyword) == nullptr)
        return;

    // The first delimiter of the whole line counts, even one before the keyword.
    const char *delimiter = std::strchr(pcReadline, static_cast<int>(pstParseTable->uiDelimiter));
    if (delimiter == nullptr) return;
    // Never read past the line's terminator, however large the skip.
    if (std::strlen(delimiter) < pstParseTable->uiSkip) return;
    const char *value = delimiter + pstParseTable->uiSkip;

    // Copying one byte less than the value keeps its line feed out.
    const size_t length = std::min<size_t>(std::strlen(value), uiBufferSize);
    if (length == 0) return;
    (void)BMC_Strlcpy(pcBuffer, value, length);
}
