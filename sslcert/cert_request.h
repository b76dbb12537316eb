// Internal declarations of the certificate requests of the extension:
// keys born on the controller, signing requests, the pending key, signed
// answers and self-signed certificates for a request.
#pragma once

#include <sys/types.h>

#include <string_view>
#include <vector>

#include <openssl/x509v3.h>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {

// Checks a request in this order: the seven texts (with the generation
// request's rules and reports; uiValidDays only for a self-signed
// certificate), the alternative names, the key type. Returns 0 or the
// extension's code of the first refusal, after its report.
[[nodiscard]] uint32_t CheckCertRequest(const SSLCertRequest &request, bool selfSigned);
// The same, with field the first field refused (SSLCERT_EXT_FIELD_*).
[[nodiscard]] uint32_t CheckCertRequest(const SSLCertRequest &request, bool selfSigned,
                                        uint32_t &field);
// The generation request's own check, one field at a time in the check's
// order, so that the first refused field is named: the check's result and
// its report of that field alone.
[[nodiscard]] uint32_t CheckGenRequest(const SSLCertGenParam &request, uint32_t &field);

// A new key pair of the request's (checked) type; null after a report.
[[nodiscard]] UniquePtr<EVP_PKEY> MakeKeyPair(const SSLCertRequest &request);

// SHA-384 for a P-384 key, SHA-256 for every other.
[[nodiscard]] const EVP_MD *SigningDigest(const EVP_PKEY *key);

// The request's subject, in the order the openssl tool writes one.
[[nodiscard]] UniquePtr<X509_NAME> SubjectName(const SSLCertRequest &request);

// The extensions a server certificate asks for: key usage, serverAuth and
// the alternative names (none when the request lists none). With
// selfSigned, also CA:FALSE and the subject key identifier of cert. Null
// after a report.
struct ExtensionStackFree {
    void operator()(STACK_OF(X509_EXTENSION) * stack) const noexcept {
        sk_X509_EXTENSION_pop_free(stack, X509_EXTENSION_free);
    }
};
using ExtensionStack = std::unique_ptr<STACK_OF(X509_EXTENSION), ExtensionStackFree>;
[[nodiscard]] ExtensionStack ServerExtensions(const SSLCertRequest &request, const EVP_PKEY *key,
                                              X509 *selfSignedCert);

// PEM text of an object in memory; the holder wipes what it held.
class PemText {
  public:
    PemText();
    PemText(const PemText &) = delete;
    PemText &operator=(const PemText &) = delete;
    ~PemText();

    [[nodiscard]] BIO *bio() const { return bio_.get(); }
    [[nodiscard]] std::string_view view() const;

  private:
    UniquePtr<BIO> bio_;
};

// Copies a text with its terminator into the caller's buffer; false when it
// does not fit (the buffer is then left empty).
[[nodiscard]] bool CopyOut(std::string_view text, char *buffer, uint32_t size);

// The pending key and its request, read from their file; empty holders
// when none is pending or the file is damaged (reported).
struct PendingRequest {
    UniquePtr<EVP_PKEY> key;
    UniquePtr<X509_REQ> request;
};
[[nodiscard]] PendingRequest LoadPendingRequest();
// Removes the pending key once its certificate is installed.
void ConsumePendingRequest();

// Whether two public keys are the same key.
[[nodiscard]] bool SameKey(const EVP_PKEY *a, const EVP_PKEY *b);

// A signed answer's certificates, leaf first.
struct CertChainFree {
    void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_pop_free(stack, X509_free); }
};
using CertChain = std::unique_ptr<STACK_OF(X509), CertChainFree>;

// Reads and checks a CA's answer without the pending key's check; fills
// chain when it is acceptable so far. Returns 0 or the first refusal's code.
[[nodiscard]] uint32_t ReadSignedChain(std::string_view pem, CertChain &chain);
// The checks that need the pending key and the leaf's own rules.
[[nodiscard]] uint32_t CheckLeafForPendingKey(X509 *leaf, const EVP_PKEY *pendingKey);

// Exactly one whole PEM certificate, within the size of an answer; null
// for anything else.
[[nodiscard]] UniquePtr<X509> ReadOneCertificate(std::string_view pem);

// A CA's answer as checked: its certificates, the request pending when it
// was checked, and whether the leaf's issuer is missing from it (clients
// that lack that issuer cannot verify the leaf).
struct SignedAnswer {
    CertChain chain;
    PendingRequest pending;
    bool issuerMissing = false;
    // No key pending and the leaf is the certificate in force: a retry of
    // an installed answer, with nothing to install.
    bool alreadyInForce = false;
};
// Every check of LIB_SECURITY_SSL_CheckSignedCert, in its order; 0 or the
// first refusal's code after its report.
[[nodiscard]] uint32_t CheckSignedAnswer(std::string_view pem, SignedAnswer &answer);

// The pinned CA (pinned_ca.cpp). A pin whose file is damaged is present
// without a certificate (reported): every answer is then refused rather
// than trusted unpinned.
struct PinnedCa {
    bool present = false;
    UniquePtr<X509> cert;
};
[[nodiscard]] PinnedCa LoadPinnedCa();

// Writes a file whole and synchronised, with the given mode whatever the
// umask (0600 for key material). False after a report.
[[nodiscard]] bool WriteSyncedFile(const char *path, std::string_view content, mode_t mode);
// Syncs a directory, so that a rename or removal in it survives a power cut.
[[nodiscard]] bool SyncDirectory(const char *dir);

} // namespace bmccert::sslcert
