// A CA's answer to a signing request over arbitrary bytes, in any of its
// forms (PEM, DER, PKCS#7 in DER or PEM). The sandbox has no pending key,
// so an answer that passes every check of the chain stops at the pending
// key's (or passes as the certificate in force); whatever the bytes, the check answers one of its
// documented codes, writes no pending key, and tells an answer over the
// size limit as such before reading it. The same bytes offered as a CA to
// pin are pinned or refused as not one root CA.
#include <unistd.h>

#include <cstdint>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert_ext.h"

namespace {

constexpr const char *kPending = "/conf/certs/server/pending/csr.pem";

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    (void)unlink(kPending);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > UINT32_MAX) return 0;
    bmcfuzz::KeepDiagLogSmall();
    const uint32_t result =
        LIB_SECURITY_SSL_CheckSignedCert(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size));
    BMCFUZZ_CHECK(bmcfuzz::OneOf(
        result, {SSLCERT_EXT_ERR_SIGNED_TOO_BIG, SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
                 SSLCERT_EXT_ERR_CHAIN_TOO_LONG, SSLCERT_EXT_ERR_CHAIN_ORDER,
                 SSLCERT_EXT_ERR_CHAIN_NOT_CA, SSLCERT_EXT_ERR_CHAIN_INVALID,
                 SSLCERT_EXT_ERR_CHAIN_SIGNATURE, SSLCERT_EXT_ERR_NO_PENDING_KEY, SSLCERT_OK}));
    BMCFUZZ_CHECK((size > SSLCERT_EXT_SIGNED_MAX_BYTES) == (result == SSLCERT_EXT_ERR_SIGNED_TOO_BIG));
    BMCFUZZ_CHECK(access(kPending, F_OK) != 0);
    // The same bytes as a CA to pin: pinned only when they are one root CA.
    const uint32_t pinned =
        LIB_SECURITY_SSL_SetPinnedCA(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size));
    BMCFUZZ_CHECK(bmcfuzz::OneOf(pinned, {SSLCERT_OK, SSLCERT_EXT_ERR_PIN_BAD}));
    if (pinned == SSLCERT_OK) BMCFUZZ_CHECK(LIB_SECURITY_SSL_ClearPinnedCA() == SSLCERT_OK);
    return 0;
}
