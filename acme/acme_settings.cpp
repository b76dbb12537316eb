// The enrolment settings: checked whole before they are stored, the
// binding's MAC key and the CA's root kept in files of their own.
#include "acme/acme_settings.h"

#include <unistd.h>

#include <cctype>
#include <cstring>

#include <openssl/pem.h>

#include "acme/acme_store.h"
#include "acme/base64url.h"
#include "frame/field_text.h"
#include "platform/controller_paths.h"

namespace bmccert::acme {
namespace {

using namespace controller_paths;
constexpr uint32_t kLongestDays = 3650;
constexpr size_t kMaxCaPemBytes = 65536;
constexpr size_t kMaxMacKeyText = 1024;

template <size_t N> [[nodiscard]] std::string_view Ended(const char (&field)[N], bool &ends) {
    const size_t length = strnlen(field, N);
    ends = length < N;
    return {field, length};
}

[[nodiscard]] bool Printable(std::string_view text) {
    for (const char c : text)
        if (c <= 0x20 || c >= 0x7f) return false;
    return true;
}

uint32_t Refuse(const char *what) {
    BMCCERT_DIAG(kLevelHandling, "ACME:setting refused: %s.\n", what);
    return SSLCERT_EXT_ERR_ACME_SETTING;
}

// One or more PEM certificates and nothing unreadable.
[[nodiscard]] bool IsCaPem(std::string_view pem) {
    if (pem.size() > kMaxCaPemBytes) return false;
    const UniquePtr<BIO> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    int count = 0;
    while (bio) {
        UniquePtr<X509> cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
        if (!cert) break;
        ++count;
    }
    ERR_clear_error();
    return count > 0;
}

} // namespace

HttpSettings TransportOf(const SSLAcmeEnrollment &settings) {
    HttpSettings transport;
    transport.directoryUrl = settings.szServerUri;
    transport.verifyCertificate = settings.ucVerifyCertificate == 1;
    if (::access(kAcmeServerCaPath, F_OK) == 0) transport.caFile = kAcmeServerCaPath;
    return transport;
}

uint32_t CheckSettings(const SSLAcmeEnrollment &settings) {
    bool ends = false;
    const std::string_view uri = Ended(settings.szServerUri, ends);
    if (!ends || !uri.starts_with("https://") || !HttpsUrlOrigin(uri))
        return Refuse("ServerURI is not an https:// URL ending inside its 256 bytes");
    const std::string_view email = Ended(settings.szEmail, ends);
    if (!ends || !Printable(email) || (!email.empty() && email.find('@') == std::string_view::npos))
        return Refuse("Email is not an address ending inside its 128 bytes");
    const std::string_view keyId = Ended(settings.szEabKeyId, ends);
    if (!ends || !Printable(keyId))
        return Refuse("EABKeyId is not printable text ending inside its 128 bytes");
    if (settings.ucEnabled > 1 || settings.ucVerifyCertificate > 1 || settings.ucAgreeToTerms > 1)
        return Refuse("a flag is neither 0 nor 1");
    if (settings.ucChallengeType == SSLCERT_EXT_ACME_DNS01)
        return Refuse("ChallengeType Dns01: the controller cannot publish DNS records");
    if (settings.ucChallengeType != SSLCERT_EXT_ACME_HTTP01) return Refuse("ChallengeType unknown");
    if (settings.uiRenewBeforeExpiryDays > kLongestDays || settings.uiWarnDaysLeft > kLongestDays ||
        settings.uiReserved != 0)
        return Refuse("a number of days above 3650, or a reserved field not zero");
    // A request is the order's: none may be stored yet (all zero), but
    // one that is stored holds the rules of a signing request.
    static const SSLCertRequest kNone{};
    if (std::memcmp(&settings.stRequest, &kNone, sizeof kNone) == 0) return SSLCERT_OK;
    uint32_t field = 0;
    if (const uint32_t request =
            LIB_SECURITY_SSL_CheckCertRequestField(&settings.stRequest, 0, &field);
        request != SSLCERT_OK)
        return request;
    if (settings.stRequest.uiAltNameCount == 0)
        return Refuse("the request names no DNS name or IP address to order");
    return SSLCERT_OK;
}

} // namespace bmccert::acme

using namespace bmccert;
using namespace bmccert::acme;

extern "C" uint32_t LIB_SECURITY_SSL_AcmeSetEnrollment(const SSLAcmeEnrollment *pstSettings,
                                                       const char *pcEabMacKey,
                                                       const char *pcServerCaPem) {
    BMCCERT_CHECK_NULL(pstSettings, SSLCERT_ERR_NULL_POINTER);
    if (const uint32_t checked = CheckSettings(*pstSettings); checked != SSLCERT_OK) return checked;
    const std::string_view macKey =
        pcEabMacKey == nullptr
            ? std::string_view()
            : std::string_view(pcEabMacKey, strnlen(pcEabMacKey, kMaxMacKeyText + 1));
    if (pcEabMacKey != nullptr && !macKey.empty()) {
        std::optional<std::string> decoded =
            macKey.size() <= kMaxMacKeyText ? DecodeMacKey(macKey) : std::nullopt;
        if (!decoded || decoded->empty()) return Refuse("EABKey is neither base64url nor Base64");
        OPENSSL_cleanse(decoded->data(), decoded->size());
    }
    const std::string_view caPem =
        pcServerCaPem == nullptr
            ? std::string_view()
            : std::string_view(pcServerCaPem, strnlen(pcServerCaPem, kMaxCaPemBytes + 1));
    if (pcServerCaPem != nullptr && !caPem.empty() && !IsCaPem(caPem))
        return Refuse("the CA's root is not PEM certificates of at most 64 KiB");
    const AcmeLock lock;
    if (!lock.Held()) return SSLCERT_EXT_ERR_ACME_BUSY;
    if (pcEabMacKey != nullptr &&
        !(macKey.empty() ? (::unlink(kAcmeMacKeyPath) == 0 || errno == ENOENT)
                         : WritePrivateFile(kAcmeMacKeyPath, macKey)))
        return Refuse("EABKey could not be stored");
    if (pcServerCaPem != nullptr &&
        !(caPem.empty() ? (::unlink(kAcmeServerCaPath) == 0 || errno == ENOENT)
                        : WritePublicFile(kAcmeServerCaPath, caPem)))
        return Refuse("the CA's root could not be stored");
    if (!StoreSettings(*pstSettings)) return Refuse("the database did not store them");
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SECURITY_SSL_AcmeGetEnrollment(SSLAcmeEnrollment *pstSettings,
                                                       SSLAcmeStatus *pstStatus) {
    BMCCERT_CHECK_NULL(pstSettings, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstStatus, SSLCERT_ERR_NULL_POINTER);
    (void)LoadSettings(*pstSettings);
    *pstStatus = LoadStatus();
    pstStatus->ucHasEabKey = ::access(kAcmeMacKeyPath, F_OK) == 0 ? 1 : 0;
    pstStatus->ucHasServerCa = ::access(kAcmeServerCaPath, F_OK) == 0 ? 1 : 0;
    return SSLCERT_OK;
}
