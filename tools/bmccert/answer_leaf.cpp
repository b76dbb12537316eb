#include "answer_leaf.h"

#include <fstream>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include "lib_security_sslcert_ext.h"
#include "frame/cert_texts.h"
#include "frame/frame.h"

namespace bmccert::cli {
namespace {

// The certificate of a bundle that issued none of the others.
X509 *BundleLeaf(const PKCS7 *bundle) {
    if (!PKCS7_type_is_signed(bundle) || bundle->d.sign == nullptr) return nullptr;
    const STACK_OF(X509) *certs = bundle->d.sign->cert;
    for (int i = 0; i < sk_X509_num(certs); ++i) {
        bool issued = false;
        for (int j = 0; j < sk_X509_num(certs) && !issued; ++j)
            issued = i != j && X509_NAME_cmp(X509_get_subject_name(sk_X509_value(certs, i)),
                                             X509_get_issuer_name(sk_X509_value(certs, j))) == 0;
        if (!issued) return sk_X509_value(certs, i);
    }
    return nullptr;
}

UniquePtr<X509> FromBundle(UniquePtr<PKCS7> bundle) {
    X509 *leaf = bundle ? BundleLeaf(bundle.get()) : nullptr;
    return UniquePtr<X509>(leaf != nullptr ? X509_dup(leaf) : nullptr);
}

// The leaf of an answer in any form the library takes.
UniquePtr<X509> ReadLeaf(std::string_view answer) {
    const UniquePtr<BIO> bio(BIO_new_mem_buf(answer.data(), static_cast<int>(answer.size())));
    if (!bio) return nullptr;
    if (answer.find("-----BEGIN PKCS7") != std::string_view::npos)
        return FromBundle(
            UniquePtr<PKCS7>(PEM_read_bio_PKCS7(bio.get(), nullptr, nullptr, nullptr)));
    if (answer.find("-----BEGIN ") != std::string_view::npos)
        return UniquePtr<X509>(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    const auto *data = reinterpret_cast<const unsigned char *>(answer.data());
    const unsigned char *next = data;
    if (UniquePtr<X509> cert{d2i_X509(nullptr, &next, static_cast<long>(answer.size()))})
        return cert;
    next = data;
    return FromBundle(
        UniquePtr<PKCS7>(d2i_PKCS7(nullptr, &next, static_cast<long>(answer.size()))));
}

} // namespace

bool ReadCertFile(const std::string &path, std::string &bytes, size_t maxBytes) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return false;
    bytes.assign(maxBytes + 1, '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(file.gcount()));
    return !file.bad();
}

std::string RefusalDetails(std::string_view answer, uint32_t code) {
    if (code != SSLCERT_EXT_ERR_NOT_VALID_NOW && code != SSLCERT_EXT_ERR_BAD_KEY_TYPE &&
        code != SSLCERT_EXT_ERR_KEY_MISMATCH)
        return {};
    const UniquePtr<X509> leaf = ReadLeaf(answer);
    ERR_clear_error();
    if (!leaf) return {};
    if (code == SSLCERT_EXT_ERR_NOT_VALID_NOW)
        return "; valid from " + UtcText(X509_get0_notBefore(leaf.get())) + " until " +
               UtcText(X509_get0_notAfter(leaf.get())) + "; the controller's clock says " +
               UtcNowText();
    const EVP_PKEY *key = X509_get0_pubkey(leaf.get());
    return key != nullptr ? "; its key is " + KeyText(key) : std::string();
}

} // namespace bmccert::cli
