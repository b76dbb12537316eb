// The checks of a CA's answer to the pending request: PEM certificates
// only, a chain in order whose every further certificate is a sound CA, a
// leaf for the pending key that may serve TLS now with a sound signature
// and every name the request asked for, and a chain to the pinned CA when
// one is pinned.
#include <strings.h>

#include <string>

#include <openssl/pem.h>

#include "frame/cert_texts.h"
#include "platform/controller_paths.h"
#include "sslcert/answer_formats.h"
#include "sslcert/cert_policy.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

uint32_t Refuse(uint32_t code, const char *why, int index) {
    BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! Certificate %d: %s.\n", index,
                 why);
    return code;
}

// Why a certificate is not valid now, with its dates and the controller's
// clock: on a controller a clock that is wrong is the usual cause.
std::string NotValidNowText(const X509 *cert, std::string_view what) {
    const char *state =
        policy::ValidityNow(cert) == policy::Validity::kNotYetValid ? "is not yet valid"
        : policy::ValidityNow(cert) == policy::Validity::kExpired   ? "has expired"
                                                                    : "has unreadable dates";
    return std::string(what) + ' ' + state + " (valid from " + UtcText(X509_get0_notBefore(cert)) +
           " until " + UtcText(X509_get0_notAfter(cert)) + "; the controller's clock says " +
           UtcNowText() + ")";
}

// The policy's verdict on a CA of the chain as a refusal; 0 when sound.
uint32_t CheckCa(X509 *ca, int index, int casBelow) {
    switch (policy::CheckChainCa(ca, casBelow)) {
    case policy::ChainCaFault::kNone:
        return SSLCERT_OK;
    case policy::ChainCaFault::kNotCa:
        return Refuse(SSLCERT_EXT_ERR_CHAIN_NOT_CA, "not a CA", index);
    case policy::ChainCaFault::kNotValidNow:
        return Refuse(SSLCERT_EXT_ERR_CHAIN_INVALID, "a CA that is not valid now", index);
    case policy::ChainCaFault::kWeakSignature:
        return Refuse(SSLCERT_EXT_ERR_CHAIN_INVALID, "a CA signed with MD5 or SHA-1", index);
    case policy::ChainCaFault::kPathLength:
        return Refuse(SSLCERT_EXT_ERR_CHAIN_INVALID, "a CA whose path length is exceeded", index);
    }
    return Refuse(SSLCERT_EXT_ERR_CHAIN_INVALID, "a CA of unknown fault", index);
}

struct GeneralNamesFree {
    void operator()(GENERAL_NAMES *names) const noexcept { GENERAL_NAMES_free(names); }
};
using GeneralNames = std::unique_ptr<GENERAL_NAMES, GeneralNamesFree>;

// A host name matches in any case, as DNS compares names; an address
// matches byte for byte.
bool SameName(const GENERAL_NAME *a, const GENERAL_NAME *b) {
    if (a->type != b->type) return false;
    if (a->type == GEN_IPADD) return ASN1_STRING_cmp(a->d.iPAddress, b->d.iPAddress) == 0;
    const ASN1_STRING *x = a->d.dNSName;
    const ASN1_STRING *y = b->d.dNSName;
    return ASN1_STRING_length(x) == ASN1_STRING_length(y) &&
           strncasecmp(reinterpret_cast<const char *>(ASN1_STRING_get0_data(x)),
                       reinterpret_cast<const char *>(ASN1_STRING_get0_data(y)),
                       static_cast<size_t>(ASN1_STRING_length(x))) == 0;
}

std::string NameText(const GENERAL_NAME *name) {
    const UniquePtr<BIO> text(BIO_new(BIO_s_mem()));
    char *data = nullptr;
    if (!text || GENERAL_NAME_print(text.get(), const_cast<GENERAL_NAME *>(name)) != 1)
        return "(unprintable)";
    long length = BIO_get_mem_data(text.get(), &data);
    // OpenSSL 1.1.1 ends an IPv6 address with a line feed; 3 does not.
    while (length > 0 && data[length - 1] == '\n') --length;
    return length > 0 ? std::string(data, static_cast<size_t>(length)) : std::string();
}

// Every DNS and IP alternative name of the request is among the leaf's.
uint32_t CheckRequestedNames(X509 *leaf, X509_REQ *request) {
    const ExtensionStack extensions(X509_REQ_get_extensions(request));
    const GeneralNames asked(static_cast<GENERAL_NAMES *>(
        X509V3_get_d2i(extensions.get(), NID_subject_alt_name, nullptr, nullptr)));
    const GeneralNames carried(static_cast<GENERAL_NAMES *>(
        X509_get_ext_d2i(leaf, NID_subject_alt_name, nullptr, nullptr)));
    for (int i = 0; asked && i < sk_GENERAL_NAME_num(asked.get()); ++i) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(asked.get(), i);
        if (name->type != GEN_DNS && name->type != GEN_IPADD) continue;
        bool found = false;
        for (int j = 0; !found && carried && j < sk_GENERAL_NAME_num(carried.get()); ++j)
            found = SameName(name, sk_GENERAL_NAME_value(carried.get(), j));
        if (!found) {
            ERR_clear_error();
            const std::string why = "it lacks the requested name " + NameText(name);
            return Refuse(SSLCERT_EXT_ERR_NAME_MISSING, why.c_str(), 0);
        }
    }
    ERR_clear_error();
    return SSLCERT_OK;
}

// Verified in process with the pin as the only trust anchor and the
// answer's certificates as untrusted: the chain must end at the pin or at a
// certificate the pin issued. No partial chain: the leaf alone never passes.
uint32_t CheckPinnedChain(STACK_OF(X509) * chain, X509 *pin) {
    if (pin == nullptr) {
        BMCCERT_DIAG(kLevelFailure,
                     "Signed certificate verify failed! The pinned CA %s is "
                     "unreadable.\n",
                     kPinnedCaPath);
        return SSLCERT_EXT_ERR_NOT_PINNED;
    }
    const UniquePtr<X509_STORE> store(X509_STORE_new());
    const UniquePtr<X509_STORE_CTX> context(X509_STORE_CTX_new());
    int verified = 0;
    int error = X509_V_ERR_OUT_OF_MEM;
    if (store && context && X509_STORE_add_cert(store.get(), pin) == 1 &&
        X509_STORE_CTX_init(context.get(), store.get(), sk_X509_value(chain, 0), chain) == 1) {
        verified = X509_verify_cert(context.get());
        error = X509_STORE_CTX_get_error(context.get());
    }
    ERR_clear_error();
    if (verified == 1) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelFailure,
                 "Signed certificate verify failed! The chain does not end at the pinned CA: %s.\n",
                 X509_verify_cert_error_string(error));
    return SSLCERT_EXT_ERR_NOT_PINNED;
}

// The leaf is the user certificate in force: the retry of an answer whose
// installation consumed the pending key.
bool IsCertificateInForce(X509 *leaf) {
    const UniquePtr<BIO> file(BIO_new_file(kUserCertPath, "r"));
    const UniquePtr<X509> inForce(file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr)
                                       : nullptr);
    ERR_clear_error();
    return inForce && X509_cmp(inForce.get(), leaf) == 0;
}

// The leaf's issuer is not in the answer and the leaf did not sign itself,
// and no pinned CA issued it: clients that lack the issuer cannot verify it.
bool IssuerMissing(STACK_OF(X509) * chain, X509 *pin) {
    if (sk_X509_num(chain) > 1) return false;
    X509 *leaf = sk_X509_value(chain, 0);
    const bool known = policy::IsSelfSigned(leaf) ||
                       (pin != nullptr && X509_check_issued(pin, leaf) == X509_V_OK &&
                        X509_verify(leaf, X509_get0_pubkey(pin)) == 1);
    ERR_clear_error();
    return !known;
}

} // namespace

uint32_t ReadSignedChain(std::string_view pem, CertChain &chain) {
    if (pem.size() > SSLCERT_EXT_SIGNED_MAX_BYTES) {
        BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! %zu bytes, at most %u.\n",
                     pem.size(), SSLCERT_EXT_SIGNED_MAX_BYTES);
        return SSLCERT_EXT_ERR_SIGNED_TOO_BIG;
    }
    CertChain certs;
    if (const uint32_t result = ReadAnswerCertificates(pem, certs); result != SSLCERT_OK)
        return result;
    int casBelow = 0;
    for (int index = 1; index < sk_X509_num(certs.get()); ++index) {
        X509 *issued = sk_X509_value(certs.get(), index - 1);
        X509 *issuer = sk_X509_value(certs.get(), index);
        if (X509_NAME_cmp(X509_get_issuer_name(issued), X509_get_subject_name(issuer)) != 0)
            return Refuse(SSLCERT_EXT_ERR_CHAIN_ORDER, "not the issuer of the one before it",
                          index);
        // The right name without the right key: the CA's key was renewed,
        // and the answer carries the CA certificate of the other key.
        if (X509_verify(issued, X509_get0_pubkey(issuer)) != 1) {
            ERR_clear_error();
            return Refuse(SSLCERT_EXT_ERR_CHAIN_SIGNATURE,
                          "its name is the issuer's of the one before it, but its key did not "
                          "sign it (the CA's key changed? fetch the CA's current chain)",
                          index);
        }
        if (const uint32_t result = CheckCa(issuer, index, casBelow); result != SSLCERT_OK)
            return result;
        // Self-issued CAs (a key's renewal) do not count against a path length.
        if (X509_check_issued(issuer, issuer) != X509_V_OK) ++casBelow;
    }
    chain = std::move(certs);
    return SSLCERT_OK;
}

uint32_t CheckLeafForPendingKey(X509 *leaf, const EVP_PKEY *pendingKey) {
    if (pendingKey == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! No signing request is "
                                    "pending.\n");
        return SSLCERT_EXT_ERR_NO_PENDING_KEY;
    }
    // A weak key can never be the pending one (requests are made with
    // strong keys only): say its size, not a mismatch.
    if (policy::KeyStrengthOf(X509_get0_pubkey(leaf)) == policy::KeyStrength::kWeak) {
        const std::string why = "its key is " + KeyText(X509_get0_pubkey(leaf)) +
                                ", under the least the controller takes (RSA 2048, EC 256 bits)";
        return Refuse(SSLCERT_EXT_ERR_BAD_KEY_TYPE, why.c_str(), 0);
    }
    if (!SameKey(X509_get0_pubkey(leaf), pendingKey))
        return Refuse(SSLCERT_EXT_ERR_KEY_MISMATCH, "its key is not the pending key", 0);
    if (X509_check_purpose(leaf, X509_PURPOSE_SSL_SERVER, 0) != 1)
        return Refuse(SSLCERT_EXT_ERR_NOT_SERVER_CERT, "it may not serve TLS servers", 0);
    if (policy::ValidityNow(leaf) != policy::Validity::kValid)
        return Refuse(SSLCERT_EXT_ERR_NOT_VALID_NOW, NotValidNowText(leaf, "it").c_str(), 0);
    if (policy::SignatureDigest(leaf) != policy::Digest::kSound)
        return Refuse(SSLCERT_EXT_ERR_WEAK_SIGNATURE, "it is signed with MD5 or SHA-1", 0);
    ERR_clear_error();
    return SSLCERT_OK;
}

uint32_t CheckSignedAnswer(std::string_view pem, SignedAnswer &answer) {
    if (const uint32_t result = ReadSignedChain(pem, answer.chain); result != SSLCERT_OK)
        return result;
    answer.pending = LoadPendingRequest();
    X509 *leaf = sk_X509_value(answer.chain.get(), 0);
    if (!answer.pending.key && IsCertificateInForce(leaf)) {
        BMCCERT_DIAG(kLevelNotice, "Signed certificate already in force: nothing to install.\n");
        answer.alreadyInForce = true;
        return SSLCERT_OK;
    }
    if (const uint32_t result = CheckLeafForPendingKey(leaf, answer.pending.key.get());
        result != SSLCERT_OK)
        return result;
    if (const uint32_t result = CheckRequestedNames(leaf, answer.pending.request.get());
        result != SSLCERT_OK)
        return result;
    const PinnedCa pin = LoadPinnedCa();
    if (pin.present) {
        if (const uint32_t result = CheckPinnedChain(answer.chain.get(), pin.cert.get());
            result != SSLCERT_OK)
            return result;
    }
    answer.issuerMissing = IssuerMissing(answer.chain.get(), pin.cert.get());
    return SSLCERT_OK;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_CheckSignedCert(const char *pcPem, uint32_t uiPemLength) {
    BMCCERT_CHECK_NULL(pcPem, SSLCERT_ERR_NULL_POINTER);
    SignedAnswer answer;
    return CheckSignedAnswer({pcPem, uiPemLength}, answer);
}
