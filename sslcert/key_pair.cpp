// Key pairs born on the controller: made with OpenSSL inside the process,
// never by a shell or a configuration file.
#include <openssl/ec.h>
#include <openssl/rsa.h>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr int kP384Bits = 384;

} // namespace

UniquePtr<EVP_PKEY> MakeKeyPair(const SSLCertRequest &request) {
    const bool rsa = request.uiKeyAlgorithm == SSLCERT_EXT_KEY_RSA;
    UniquePtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_id(rsa ? EVP_PKEY_RSA : EVP_PKEY_EC, nullptr));
    bool ready = context != nullptr && EVP_PKEY_keygen_init(context.get()) == 1;
    if (ready && rsa)
        ready = EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(),
                                                 static_cast<int>(request.uiKeyBitLength)) == 1;
    if (ready && !rsa)
        ready = EVP_PKEY_CTX_set_ec_paramgen_curve_nid(
                    context.get(), request.uiKeyCurve == SSLCERT_EXT_CURVE_P384
                                       ? NID_secp384r1
                                       : NID_X9_62_prime256v1) == 1 &&
                EVP_PKEY_CTX_set_ec_param_enc(context.get(), OPENSSL_EC_NAMED_CURVE) == 1;
    EVP_PKEY *made = nullptr;
    if (!ready || EVP_PKEY_keygen(context.get(), &made) != 1) {
        BMCCERT_DIAG(kLevelFailure, "Generate key pair failed! Algorithm = %u, BitLength = %u, "
                                    "Curve = %u.\n",
                     request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve);
        ERR_clear_error();
        return nullptr;
    }
    return UniquePtr<EVP_PKEY>(made);
}

const EVP_MD *SigningDigest(const EVP_PKEY *key) {
    const bool p384 = EVP_PKEY_base_id(key) == EVP_PKEY_EC && EVP_PKEY_bits(key) == kP384Bits;
    return p384 ? EVP_sha384() : EVP_sha256();
}

bool SameKey(const EVP_PKEY *a, const EVP_PKEY *b) {
    if (a == nullptr || b == nullptr) return false;
#if OPENSSL_VERSION_NUMBER >= 0x30000000L
    return EVP_PKEY_eq(a, b) == 1;
#else
    return EVP_PKEY_cmp(a, b) == 1;
#endif
}

} // namespace bmccert::sslcert
