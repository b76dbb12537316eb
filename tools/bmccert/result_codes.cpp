#include "result_codes.h"

#include <array>
#include <charconv>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {
namespace {

#define BMCCERT_CODE(constant, meaning)                                                            \
    ResultCode {                                                                                   \
        constant, #constant, meaning                                                               \
    }

constexpr std::array kCodes = {
    BMCCERT_CODE(SSLCERT_OK, "success"),
    BMCCERT_CODE(SSLCERT_ERR_GENERAL,
                 "general failure: a bad type code or argument, or a step failed (the "
                 "diagnostics log names it)"),
    BMCCERT_CODE(SSLCERT_ERR_NULL_POINTER, "a pointer argument was null"),
    BMCCERT_CODE(SSLCERT_ERR_NO_DB, "no handle to the configuration database"),
    BMCCERT_CODE(SSLCERT_ERR_DB_READ, "reading from the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_DB_WRITE, "writing to the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TIME, "a file's modification time could not be read"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_OPEN, "a file could not be opened"),
    BMCCERT_CODE(SSLCERT_ERR_EXT_FILE_MISSING,
                 "the extension file /conf/certs/server/cert_v3_extfile.ext is missing"),
    BMCCERT_CODE(SSLCERT_ERR_NOT_SERVER_CERT, "the certificate cannot serve as an SSL server"),
    BMCCERT_CODE(SSLCERT_ERR_TMP_CERT_UNREAD, "the temporary certificate could not be read"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_PARSE,
                 "the certificate could not be parsed or a field could not be extracted"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_EXPIRED, "the certificate has expired"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TOO_BIG, "an uploaded file is larger than 8191 bytes"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_ENCRYPTED,
                 "the private key is protected by a pass phrase, which is not supported"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_MISMATCH,
                 "certificate and key are refused by a TLS context or do not match"),
    BMCCERT_CODE(SSLCERT_ERR_GEN_REQUEST, "the generation request was refused by its check"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_MISSING, "the uploaded certificate or key file is missing"),
    BMCCERT_CODE(SSLCERT_ERR_MD5_SIGNATURE, "the certificate is signed with MD5"),
    BMCCERT_CODE(SSLCERT_MGMT_INFO_UNAVAILABLE,
                 "management: the certificate information could not be obtained"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_FAILED, "management: generating the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_IMPORT_FAILED, "management: importing the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_BAD_REQUEST,
                 "management: the generation request was refused (a field broke its rule)"),
    BMCCERT_CODE(SSLCERT_MGMT_PLATFORM_BUSY,
                 "management: the platform refused the operation (0x82000001 or 0x82000002)"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_INSTALL_PENDING,
                 "an interrupted installation could not be completed; it stays recorded and "
                 "the next installation tries again"),
    BMCCERT_CODE(BMC_PLATFORM_ERR_1, "a failure reported by the platform libraries"),
    BMCCERT_CODE(BMC_PLATFORM_ERR_2, "a failure reported by the platform libraries"),
};

#undef BMCCERT_CODE

} // namespace

std::optional<ResultCode> FindResultCode(uint32_t code) {
    for (const ResultCode &entry : kCodes)
        if (entry.code == code) return entry;
    return std::nullopt;
}

std::optional<uint32_t> ParseResultCode(std::string_view text) {
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text.remove_prefix(2);
    uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value, 16);
    if (text.empty() || error != std::errc() || next != end) return std::nullopt;
    return value;
}

} // namespace bmccert::cli
