// Signing requests for keys born on the controller: the pending key with
// its request in one private file under /conf, replaced whole by a rename,
// and the two entries that make and describe it.
#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <openssl/pem.h>

#include "frame/unique_fd.h"
#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr uint32_t kP256Bits = 256;

UniquePtr<X509_REQ> MakeSigningRequest(const SSLCertRequest &request, EVP_PKEY *key) {
    UniquePtr<X509_REQ> signingRequest(X509_REQ_new());
    UniquePtr<X509_NAME> subject = SubjectName(request);
    if (!signingRequest || !subject || X509_REQ_set_version(signingRequest.get(), 0) != 1 ||
        X509_REQ_set_subject_name(signingRequest.get(), subject.get()) != 1 ||
        X509_REQ_set_pubkey(signingRequest.get(), key) != 1)
        return nullptr;
    const ExtensionStack extensions = ServerExtensions(request, key, nullptr);
    if (!extensions || X509_REQ_add_extensions(signingRequest.get(), extensions.get()) != 1 ||
        X509_REQ_sign(signingRequest.get(), key, SigningDigest(key)) <= 0)
        return nullptr;
    return signingRequest;
}

// The new pending file reaches the disk before it replaces the old one, so
// that a power cut leaves one whole pending request, old or new.
bool StorePendingRequest(EVP_PKEY *key, X509_REQ *signingRequest) {
    PemText text;
    if (text.bio() == nullptr ||
        PEM_write_bio_PrivateKey(text.bio(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
        PEM_write_bio_X509_REQ(text.bio(), signingRequest) != 1) {
        BMCCERT_DIAG(kLevelFailure, "Encode the pending key failed!\n");
        return false;
    }
    if (mkdir(kPendingRequestDir, S_IRWXU) != 0 && errno != EEXIST) {
        BMCCERT_DIAG(kLevelHandling, "Create %s failed! strerrno:%s\n", kPendingRequestDir,
                     std::strerror(errno));
        return false;
    }
    if (!WriteSyncedFile(kPendingStagingPath, text.view(), S_IRUSR | S_IWUSR)) {
        (void)unlink(kPendingStagingPath);
        return false;
    }
    if (rename(kPendingStagingPath, kPendingRequestPath) != 0 ||
        !SyncDirectory(kPendingRequestDir)) {
        BMCCERT_DIAG(kLevelHandling, "Replace the pending key %s failed! strerrno:%s\n",
                     kPendingRequestPath, std::strerror(errno));
        (void)unlink(kPendingStagingPath);
        return false;
    }
    return true;
}

template <size_t N> void CopyText(char (&field)[N], const char (&from)[N]) {
    (void)BMC_Strlcpy(field, FieldText(from).c_str(), N);
}

void DescribeSubject(X509_REQ *signingRequest, SSLCertRequest &request) {
    SSLCertGenParam subject{};
    (void)SECURITY_SSL_ParseSSLCert(X509_REQ_get_subject_name(signingRequest), &subject);
    CopyText(request.szCommonName, subject.szCommonName);
    CopyText(request.szOrganisation, subject.szOrganisation);
    CopyText(request.szOrganisationUnit, subject.szOrganisationUnit);
    CopyText(request.szLocalityName, subject.szLocalityName);
    CopyText(request.szStateName, subject.szStateName);
    CopyText(request.szCountryCode, subject.szCountryCode);
    CopyText(request.szEmailAddress, subject.szEmailAddress);
}

void DescribeKey(const EVP_PKEY *key, SSLCertRequest &request) {
    request.uiKeyBitLength = static_cast<uint32_t>(EVP_PKEY_bits(key));
    if (EVP_PKEY_base_id(key) == EVP_PKEY_RSA) {
        request.uiKeyAlgorithm = SSLCERT_EXT_KEY_RSA;
        return;
    }
    request.uiKeyAlgorithm = SSLCERT_EXT_KEY_EC;
    request.uiKeyCurve =
        request.uiKeyBitLength == kP256Bits ? SSLCERT_EXT_CURVE_P256 : SSLCERT_EXT_CURVE_P384;
}

// One alternative name as text: a host name as stored, an address in the
// usual notation of its family. False for other kinds of name.
bool DescribeAltName(const GENERAL_NAME *general, SSLCertAltName &name) {
    int kind = 0;
    const auto *value = static_cast<const ASN1_STRING *>(GENERAL_NAME_get0_value(general, &kind));
    const int length = ASN1_STRING_length(value);
    const unsigned char *bytes = ASN1_STRING_get0_data(value);
    if (kind == GEN_DNS && length >= 0 && static_cast<size_t>(length) < sizeof name.szName) {
        name.uiType = SSLCERT_EXT_ALT_NAME_DNS;
        std::memcpy(name.szName, bytes, static_cast<size_t>(length));
        return true;
    }
    const int family = length == 4 ? AF_INET : AF_INET6;
    if (kind == GEN_IPADD && (length == 4 || length == 16) &&
        inet_ntop(family, bytes, name.szName, sizeof name.szName) != nullptr) {
        name.uiType = SSLCERT_EXT_ALT_NAME_IP;
        return true;
    }
    return false;
}

void DescribeAltNames(X509_REQ *signingRequest, SSLCertRequest &request) {
    const ExtensionStack extensions(X509_REQ_get_extensions(signingRequest));
    auto *names = static_cast<GENERAL_NAMES *>(
        X509V3_get_d2i(extensions.get(), NID_subject_alt_name, nullptr, nullptr));
    for (int i = 0; names != nullptr && i < sk_GENERAL_NAME_num(names) &&
                    request.uiAltNameCount < SSLCERT_EXT_MAX_ALT_NAMES;
         ++i) {
        if (DescribeAltName(sk_GENERAL_NAME_value(names, i),
                            request.astAltNames[request.uiAltNameCount]))
            ++request.uiAltNameCount;
    }
    GENERAL_NAMES_free(names);
}

// The request's PEM in the caller's buffer, or the buffer's refusal.
uint32_t HandOutPem(X509_REQ *signingRequest, char *buffer, uint32_t size) {
    PemText text;
    if (text.bio() == nullptr || PEM_write_bio_X509_REQ(text.bio(), signingRequest) != 1) {
        BMCCERT_DIAG(kLevelFailure, "Encode the signing request failed!\n");
        return SSLCERT_EXT_ERR_KEY_GENERATION;
    }
    if (!CopyOut(text.view(), buffer, size)) {
        BMCCERT_DIAG(kLevelFailure,
                     "The signing request (%zu bytes) does not fit the buffer of %u bytes!\n",
                     text.view().size() + 1, size);
        return SSLCERT_EXT_ERR_BUFFER_SMALL;
    }
    return SSLCERT_OK;
}

} // namespace

PendingRequest LoadPendingRequest() {
    PendingRequest pending;
    const UniquePtr<BIO> file(BIO_new_file(kPendingRequestPath, "r"));
    if (!file) {
        ERR_clear_error();
        return pending;
    }
    pending.key.reset(PEM_read_bio_PrivateKey(file.get(), nullptr, SupplyNoPassphrase, nullptr));
    if (pending.key)
        pending.request.reset(PEM_read_bio_X509_REQ(file.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    if (!pending.request || !SameKey(X509_REQ_get0_pubkey(pending.request.get()), pending.key.get())) {
        BMCCERT_DIAG(kLevelFailure, "The pending key %s is damaged!\n", kPendingRequestPath);
        return {};
    }
    return pending;
}

void ConsumePendingRequest() {
    if ((unlink(kPendingRequestPath) != 0 && errno != ENOENT) || !SyncDirectory(kPendingRequestDir))
        BMCCERT_DIAG(kLevelNotice, "Remove the pending key %s failed! strerrno:%s\n",
                     kPendingRequestPath, std::strerror(errno));
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_GenerateCSR(const SSLCertRequest *pstRequest,
                                                 char *pcCsrPem, uint32_t uiCsrPemSize) {
    BMCCERT_CHECK_NULL(pstRequest, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcCsrPem, SSLCERT_ERR_NULL_POINTER);
    if (const uint32_t result = CheckCertRequest(*pstRequest, false); result != SSLCERT_OK)
        return result;

    // The key is made outside the installation lock: an RSA key can take
    // seconds, and nothing installed depends on it until it is stored.
    const UniquePtr<EVP_PKEY> key = MakeKeyPair(*pstRequest);
    const UniquePtr<X509_REQ> signingRequest =
        key ? MakeSigningRequest(*pstRequest, key.get()) : nullptr;
    if (!signingRequest) {
        if (key) BMCCERT_DIAG(kLevelFailure, "Make the signing request failed!\n");
        ERR_clear_error();
        return SSLCERT_EXT_ERR_KEY_GENERATION;
    }
    // Answered before the key is stored, so that a buffer too small leaves
    // the earlier pending key in place.
    if (const uint32_t result = HandOutPem(signingRequest.get(), pcCsrPem, uiCsrPemSize);
        result != SSLCERT_OK)
        return result;

    const InstallationLock installing; // an installation may be consuming the pending key
    if (!installing.Held()) {
        pcCsrPem[0] = '\0';
        return SSLCERT_EXT_ERR_LOCK;
    }
    if (!StorePendingRequest(key.get(), signingRequest.get())) {
        pcCsrPem[0] = '\0';
        return SSLCERT_EXT_ERR_PENDING_WRITE;
    }
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SECURITY_SSL_GetPendingCSR(SSLCertRequest *pstRequest, char *pcCsrPem,
                                                   uint32_t uiCsrPemSize) {
    BMCCERT_CHECK_NULL(pstRequest, SSLCERT_ERR_NULL_POINTER);
    *pstRequest = SSLCertRequest{};
    const PendingRequest pending = LoadPendingRequest();
    if (!pending.key) return SSLCERT_EXT_ERR_NO_PENDING_KEY;

    DescribeSubject(pending.request.get(), *pstRequest);
    DescribeKey(pending.key.get(), *pstRequest);
    DescribeAltNames(pending.request.get(), *pstRequest);
    if (pcCsrPem == nullptr) return SSLCERT_OK;
    return HandOutPem(pending.request.get(), pcCsrPem, uiCsrPemSize);
}

extern "C" uint32_t LIB_SECURITY_SSL_DropPendingCSR(void) {
    const InstallationLock installing; // an installation may be consuming the pending key
    if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
    // What a request cut short left beside it goes too; it was never pending.
    (void)unlink(kPendingStagingPath);
    if (unlink(kPendingRequestPath) != 0) {
        if (errno == ENOENT) return SSLCERT_EXT_ERR_NO_PENDING_KEY;
        BMCCERT_DIAG(kLevelHandling, "Remove the pending key %s failed! strerrno:%s\n",
                     kPendingRequestPath, std::strerror(errno));
        return SSLCERT_EXT_ERR_PENDING_WRITE;
    }
    // Until the directory is on disk a power cut could bring the key back.
    if (!SyncDirectory(kPendingRequestDir)) {
        BMCCERT_DIAG(kLevelHandling, "Remove the pending key %s failed! strerrno:%s\n",
                     kPendingRequestPath, std::strerror(errno));
        return SSLCERT_EXT_ERR_PENDING_WRITE;
    }
    return SSLCERT_OK;
}
