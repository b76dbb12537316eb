// Validation of an uploaded certificate and key in the temporary upload
// location, in a fixed order: both exist, sizes, no pass-phrase encrypted
// key, the certificate's fitness, both read as PEM, and both load and match
// in a TLS server context.
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <openssl/pem.h>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr int32_t kMaxUploadBytes = SSLCERT_UPLOAD_MAX_BYTES;
constexpr size_t kCommandSize = 256;
constexpr size_t kFirstLineSize = 256;
constexpr int kFirstLineReadLimit = 255; // at most 254 characters a read

bool Exists(const char *path) {
    return access(path, F_OK) == 0;
}

uint32_t CheckExistence() {
    for (const char *path : {kUploadCertPath, kUploadKeyPath}) {
        if (Exists(path)) continue;
        BMCCERT_DIAG(kLevelFailure, "File %s is not exist!\n", path);
        BMCCERT_DIAG(kLevelFailure, "SSL verify file exist failed! iRet = %d.\n",
                     SSLCERT_ERR_FILE_MISSING);
        return SSLCERT_ERR_FILE_MISSING;
    }
    return SSLCERT_OK;
}

struct SizeRule {
    const char *path;
    const char *unreadableReport;
    const char *tooBigReport;
};

uint32_t CheckSizes() {
    const SizeRule rules[] = {
        {kUploadCertPath, "Get cert file size failed!Err:%s\n", "Cert %s stat size exceeds!"},
        {kUploadKeyPath, "Get privkey file size failed!Err:%s\n", "Privkey %s stat size exceeds!"},
    };
    for (const SizeRule &rule : rules) {
        const int32_t size = BMC_GetFileSize(rule.path);
        uint32_t result = SSLCERT_OK;
        // Both reports are constants of the table above with one %s.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        if (size <= 0) {
            BMCCERT_DIAG(kLevelFailure, rule.unreadableReport, std::strerror(errno));
            result = SSLCERT_ERR_GENERAL;
        } else if (size > kMaxUploadBytes) {
            BMCCERT_DIAG(kLevelFailure, rule.tooBigReport, rule.path);
            result = SSLCERT_ERR_FILE_TOO_BIG;
        }
#pragma GCC diagnostic pop
        if (result != SSLCERT_OK) {
            BMCCERT_DIAG(kLevelFailure, "SSL verify file size failed! iRet = %d.\n", result);
            return result;
        }
    }
    return SSLCERT_OK;
}

uint32_t MergeFailure() {
    BMCCERT_DIAG(kLevelFailure, "Error in validating the CombinedTmpCert::%d", SSLCERT_ERR_GENERAL);
    return SSLCERT_ERR_GENERAL;
}

// The certificate file followed by the key file, as one PEM file.
uint32_t MergePair() {
    char command[kCommandSize] = {};
    (void)BMC_Scnprintf(command, sizeof command, "cat %s %s > %s", kUploadCertPath, kUploadKeyPath,
                        kUploadCombinedPath);
    // The redirection fills a file of this call's own, 0600 from its first
    // byte, in a directory no one else can add a link to.
    if (!MakeScratchDirPrivate() || !CreateScratchFile(kUploadCombinedPath) ||
        BMC_System(command) != 0) {
        BMCCERT_DIAG(kLevelHandling, "Merging tmp cert file and tmp privkey failed! strerrno:%s.",
                     std::strerror(errno));
        return MergeFailure();
    }
    return SSLCERT_OK;
}

// A certificate and then, after it, a private key must read from the
// merged file; nothing read here outlives the step.
bool ReadMergedPair() {
    if (!Exists(kUploadCombinedPath)) {
        BMCCERT_DIAG(kLevelFailure, "File %s is not exist!", kUploadCombinedPath);
        return false;
    }
    UniquePtr<BIO> bio(BIO_new(BIO_s_file()));
    if (!bio) {
        BMCCERT_DIAG(kLevelHandling, "Failed to BIO_new(BIO_s_file()).");
        return false;
    }
    if (BIO_read_filename(bio.get(), kUploadCombinedPath) <= 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to BIO_read_filename.");
        return false;
    }
    UniquePtr<X509> cert(PEM_read_bio_X509(bio.get(), nullptr, SupplyNoPassphrase, nullptr));
    if (!cert) {
        BMCCERT_DIAG(kLevelHandling, "Failed to read X509 certificate.");
        return false;
    }
    UniquePtr<EVP_PKEY> key(
        PEM_read_bio_PrivateKey(bio.get(), nullptr, SupplyNoPassphrase, nullptr));
    if (!key) {
        BMCCERT_DIAG(kLevelHandling, "Failed to read private key.");
        return false;
    }
    return true;
}

uint32_t CheckMergedPair() {
    if (ReadMergedPair()) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelHandling, "Failed to verify cert and privatekey, iRet=%d.",
                 SSLCERT_ERR_GENERAL);
    return MergeFailure();
}

// The pair must load into a TLS server context and the key must match the
// certificate there, as the web server and the tunnel will load them.
uint32_t CheckInTlsContext() {
    (void)OPENSSL_init_ssl(0, nullptr);
    const SSL_METHOD *method = TLS_server_method();
    if (method == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "SSLv23_server_method is NULL\n");
        return SSLCERT_ERR_KEY_MISMATCH;
    }
    UniquePtr<SSL_CTX> ctx(SSL_CTX_new(method));
    if (!ctx) {
        BMCCERT_DIAG(kLevelFailure, "SSLCTX is NULL\n");
        return SSLCERT_ERR_KEY_MISMATCH;
    }
    SSL_CTX_set_default_passwd_cb(ctx.get(), SupplyNoPassphrase);
    const char *refusal = nullptr;
    if (SSL_CTX_load_verify_locations(ctx.get(), kUploadCertPath, kScratchDir) == 0)
        refusal = "SSL CTX load verify locations failed!\n";
    else if (SSL_CTX_use_certificate_file(ctx.get(), kUploadCertPath, SSL_FILETYPE_PEM) < 1)
        refusal = "SSL CTX use certificate file failed!\n";
    else if (SSL_CTX_use_PrivateKey_file(ctx.get(), kUploadKeyPath, SSL_FILETYPE_PEM) < 1)
        refusal = "SSL CTX use privateKey file failed!\n";
    else if (SSL_CTX_check_private_key(ctx.get()) == 0)
        refusal = "SSL CTX check_private_key failed!\n";
    if (refusal == nullptr) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelHandling, "%s", refusal);
    return SSLCERT_ERR_KEY_MISMATCH;
}

} // namespace

uint32_t SECURITY_SSL_VerifyEncryptedStatus() {
    StdioFile key(kUploadKeyPath, "r");
    if (!key.IsOpen()) {
        BMCCERT_DIAG(kLevelFailure, "Unable to open private key file.. retry.");
        return SSLCERT_ERR_FILE_OPEN;
    }
    char firstLine[kFirstLineSize] = {};
    // An empty key file reads no line and holds no marker.
    if (std::fgets(firstLine, kFirstLineReadLimit, key.get()) != nullptr &&
        std::strstr(firstLine, "ENCRYPTED") != nullptr) {
        BMCCERT_DIAG(kLevelFailure,
                     "The certificate is encrypted.  PEM pass phrase encrypted certificates are "
                     "not supported.  Please upload unencrypted certificates.\n");
        key.Close();
        return SSLCERT_ERR_KEY_ENCRYPTED;
    }
    key.Close();
    return SSLCERT_OK;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_VerifyUploadTmpCert(void) {
    const uint32_t result = SECURITY_SSL_VerifyTmpCert(SSL_CERT_TYPE_UPLOAD_TMP);
    if (result != SSLCERT_OK)
        BMCCERT_DIAG(kLevelFailure, "Failed to verify Upload TMP certificate. iRet=%d.\n", result);
    return result;
}

namespace {

uint32_t ValidateChain() {
    if (const uint32_t result = CheckExistence(); result != SSLCERT_OK) return result;
    if (const uint32_t result = CheckSizes(); result != SSLCERT_OK) return result;
    if (const uint32_t result = SECURITY_SSL_VerifyEncryptedStatus(); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure,
                     "SSL verify private key file encrypted status failed! iRet = %d.\n", result);
        return result;
    }
    if (const uint32_t result = SECURITY_SSL_VerifyUploadTmpCert(); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Error in validating the SSL Certificate::%d", result);
        return result;
    }
    if (const uint32_t result = MergePair(); result != SSLCERT_OK) return result;
    if (const uint32_t result = CheckMergedPair(); result != SSLCERT_OK) return result;
    return CheckInTlsContext();
}

} // namespace

extern "C" uint32_t SECURITY_SSL_ValidateSSLCert(void) {
    const InstallationLock installing; // the temporary pair must not change under the checks
    if (!installing.Held()) return SSLCERT_ERR_GENERAL;
    const uint32_t result = ValidateChain();
    // Refusals leave OpenSSL's error queue filled on this thread; the
    // caller's next OpenSSL call must not see them.
    ERR_clear_error();
    return result;
}
