#include "sslcert/answer_formats.h"

#include <cstring>
#include <vector>

#include <openssl/pem.h>
#include <openssl/pkcs7.h>

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kCertificateLabel = "CERTIFICATE";
constexpr const char *kPkcs7Label = "PKCS7";
constexpr std::string_view kPemStart = "-----BEGIN ";
constexpr const char *kNotWholePem = "not a whole PEM certificate";

// OpenSSL's parts of one PEM block, freed together.
struct PemBlock {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    PemBlock() = default;
    PemBlock(const PemBlock &) = delete;
    PemBlock &operator=(const PemBlock &) = delete;
    ~PemBlock() {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
};

// Reads the next PEM block; false at the end of the text (ended set) or
// for a damaged block.
bool NextBlock(BIO *text, PemBlock &block, bool &ended) {
    ERR_clear_error();
    if (PEM_read_bio(text, &block.name, &block.header, &block.data, &block.length) == 1)
        return true;
    ended = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    ERR_clear_error();
    return false;
}

// One DER object that fills its bytes whole; null otherwise.
template <typename T, T *(*Decode)(T **, const unsigned char **, long)>
UniquePtr<T> WholeDer(const unsigned char *data, long length) {
    const unsigned char *next = data;
    UniquePtr<T> object(Decode(nullptr, &next, length));
    ERR_clear_error();
    return next == data + length ? std::move(object) : nullptr;
}

UniquePtr<X509> NextCertificate(BIO *text, bool &ended) {
    PemBlock block;
    if (!NextBlock(text, block, ended) || std::strcmp(block.name, kCertificateLabel) != 0)
        return nullptr;
    return WholeDer<X509, d2i_X509>(block.data, block.length);
}

uint32_t Refuse(uint32_t code, const char *why) {
    BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! %s.\n", why);
    return code;
}

uint32_t RefuseCertificate(uint32_t code, const char *why, int index) {
    BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! Certificate %d: %s.\n", index,
                 why);
    return code;
}

constexpr const char *kConvertHint =
    "The answer is not PEM, DER or PKCS#7 certificates (convert it to PEM, e.g. openssl x509 "
    "-inform DER -in FILE -out FILE.pem, or openssl pkcs7 -print_certs -in FILE -out FILE.pem)";

bool Push(STACK_OF(X509) * chain, X509 *cert) {
    if (X509_up_ref(cert) != 1) return false;
    if (sk_X509_push(chain, cert) > 0) return true;
    X509_free(cert);
    return false;
}

// Whether issuer's subject is the name cert gives as its issuer.
bool NamesIssuer(X509 *issuer, X509 *cert) {
    return X509_NAME_cmp(X509_get_subject_name(issuer), X509_get_issuer_name(cert)) == 0;
}

// A bundle's certificates leaf first: the leaf is the one that issued none
// of the others; each next one is the only other that issued the one
// before. False when they do not form one such chain.
bool OrderLeafFirst(const STACK_OF(X509) * bundle, STACK_OF(X509) * chain) {
    const int count = sk_X509_num(bundle);
    std::vector<bool> used(static_cast<size_t>(count), false);
    int current = -1;
    for (int i = 0; i < count; ++i) {
        bool issuedAnother = false;
        for (int j = 0; j < count && !issuedAnother; ++j)
            issuedAnother =
                j != i && NamesIssuer(sk_X509_value(bundle, i), sk_X509_value(bundle, j));
        if (issuedAnother) continue;
        if (current >= 0) return false; // two leaves
        current = i;
    }
    for (int placed = 0; current >= 0; ++placed) {
        used[static_cast<size_t>(current)] = true;
        if (!Push(chain, sk_X509_value(bundle, current))) return false;
        if (placed + 1 == count) return true;
        int next = -1;
        for (int j = 0; j < count; ++j) {
            if (used[static_cast<size_t>(j)] ||
                !NamesIssuer(sk_X509_value(bundle, j), sk_X509_value(bundle, current)))
                continue;
            if (next >= 0) return false; // two issuers by the same name
            next = j;
        }
        current = next;
    }
    return false;
}

uint32_t FromPkcs7(const PKCS7 *bundle, CertChain &chain) {
    const STACK_OF(X509) *certs = nullptr;
    if (PKCS7_type_is_signed(bundle) && bundle->d.sign != nullptr) certs = bundle->d.sign->cert;
    if (certs == nullptr || sk_X509_num(certs) == 0)
        return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "The PKCS#7 answer holds no certificate");
    if (sk_X509_num(certs) > static_cast<int>(SSLCERT_EXT_SIGNED_MAX_CERTS))
        return Refuse(SSLCERT_EXT_ERR_CHAIN_TOO_LONG,
                      "The PKCS#7 answer holds more than 8 certificates");
    if (!OrderLeafFirst(certs, chain.get()))
        return Refuse(SSLCERT_EXT_ERR_CHAIN_ORDER,
                      "The PKCS#7 answer's certificates do not form one chain");
    return SSLCERT_OK;
}

uint32_t FromDer(std::string_view bytes, CertChain &chain) {
    const auto *data = reinterpret_cast<const unsigned char *>(bytes.data());
    const long length = static_cast<long>(bytes.size());
    if (UniquePtr<X509> cert = WholeDer<X509, d2i_X509>(data, length)) {
        if (!Push(chain.get(), cert.get()))
            return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "Out of memory");
        return SSLCERT_OK;
    }
    if (const UniquePtr<PKCS7> bundle = WholeDer<PKCS7, d2i_PKCS7>(data, length))
        return FromPkcs7(bundle.get(), chain);
    return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, kConvertHint);
}

// One "PKCS7" block alone, or certificates only.
uint32_t FromPem(std::string_view text, CertChain &chain) {
    const UniquePtr<BIO> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
    if (!bio) return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "Out of memory");
    for (int index = 0;; ++index) {
        PemBlock block;
        bool ended = false;
        if (!NextBlock(bio.get(), block, ended)) {
            if (ended && index > 0) return SSLCERT_OK;
            return RefuseCertificate(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, kNotWholePem, index);
        }
        if (index == 0 && std::strcmp(block.name, kPkcs7Label) == 0) {
            const UniquePtr<PKCS7> bundle = WholeDer<PKCS7, d2i_PKCS7>(block.data, block.length);
            PemBlock more;
            if (!bundle || NextBlock(bio.get(), more, ended) || !ended)
                return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
                              "The PKCS7 block is damaged or not alone");
            return FromPkcs7(bundle.get(), chain);
        }
        if (std::strcmp(block.name, kCertificateLabel) != 0)
            return RefuseCertificate(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, kNotWholePem, index);
        const UniquePtr<X509> cert = WholeDer<X509, d2i_X509>(block.data, block.length);
        if (!cert) return RefuseCertificate(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, kNotWholePem, index);
        if (index == static_cast<int>(SSLCERT_EXT_SIGNED_MAX_CERTS))
            return RefuseCertificate(SSLCERT_EXT_ERR_CHAIN_TOO_LONG, "more than 8 certificates",
                                     index);
        if (!Push(chain.get(), cert.get()))
            return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "Out of memory");
    }
}

} // namespace

uint32_t ReadAnswerCertificates(std::string_view bytes, CertChain &chain) {
    CertChain certs(sk_X509_new_null());
    if (!certs) return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "Out of memory");
    // Nothing at all is told as no PEM certificate, as before other forms.
    const bool pem = bytes.empty() || bytes.find(kPemStart) != std::string_view::npos;
    const uint32_t result = pem ? FromPem(bytes, certs) : FromDer(bytes, certs);
    if (result == SSLCERT_OK) chain = std::move(certs);
    return result;
}

UniquePtr<X509> ReadOneCertificate(std::string_view pem) {
    if (pem.size() > SSLCERT_EXT_SIGNED_MAX_BYTES) return nullptr;
    const UniquePtr<BIO> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    if (!text) return nullptr;
    bool ended = false;
    UniquePtr<X509> cert = NextCertificate(text.get(), ended);
    if (!cert) return nullptr;
    const UniquePtr<X509> more = NextCertificate(text.get(), ended);
    return ended ? std::move(cert) : nullptr;
}

} // namespace bmccert::sslcert
