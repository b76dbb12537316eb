// Owners of the OpenSSL objects the health check holds, each freed by its
// own function on every path.
#pragma once

#include <memory>

#include <openssl/bn.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace bmccert::cli {

template <auto Free> struct FreedBy {
    template <typename T> void operator()(T *object) const noexcept { Free(object); }
};
// OPENSSL_free is a macro that names its caller's place.
struct OpenSslFree {
    void operator()(void *memory) const noexcept { OPENSSL_free(memory); }
};

using X509Owner = std::unique_ptr<X509, FreedBy<X509_free>>;
using PkeyOwner = std::unique_ptr<EVP_PKEY, FreedBy<EVP_PKEY_free>>;
using BioOwner = std::unique_ptr<BIO, FreedBy<BIO_free>>;
using SslCtxOwner = std::unique_ptr<SSL_CTX, FreedBy<SSL_CTX_free>>;
using SslOwner = std::unique_ptr<SSL, FreedBy<SSL_free>>;
using BignumOwner = std::unique_ptr<BIGNUM, FreedBy<BN_free>>;
using NamesOwner = std::unique_ptr<GENERAL_NAMES, FreedBy<GENERAL_NAMES_free>>;
using CharOwner = std::unique_ptr<char, OpenSslFree>;
using BytesOwner = std::unique_ptr<unsigned char, OpenSslFree>;

} // namespace bmccert::cli
