// What a certificate for a request holds besides its key: the subject and
// the extensions of a TLS server certificate with the request's names.
#include <cstring>
#include <utility>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

struct GeneralNamesFree {
    void operator()(GENERAL_NAMES *names) const noexcept { GENERAL_NAMES_free(names); }
};
using GeneralNames = std::unique_ptr<GENERAL_NAMES, GeneralNamesFree>;

// One alternative name of a checked request; null when OpenSSL refuses it.
GENERAL_NAME *AltName(const SSLCertAltName &name) {
    const FieldText text(name.szName);
    GENERAL_NAME *general = GENERAL_NAME_new();
    if (general == nullptr) return nullptr;
    if (name.uiType == SSLCERT_EXT_ALT_NAME_IP) {
        if (ASN1_OCTET_STRING *address = a2i_IPADDRESS(text.c_str()); address != nullptr) {
            GENERAL_NAME_set0_value(general, GEN_IPADD, address);
            return general;
        }
    } else if (ASN1_IA5STRING *host = ASN1_IA5STRING_new(); host != nullptr) {
        if (ASN1_STRING_set(host, text.c_str(), static_cast<int>(std::strlen(text.c_str()))) == 1) {
            GENERAL_NAME_set0_value(general, GEN_DNS, host);
            return general;
        }
        ASN1_IA5STRING_free(host);
    }
    GENERAL_NAME_free(general);
    return nullptr;
}

UniquePtr<X509_EXTENSION> AltNamesExtension(const SSLCertRequest &request) {
    GeneralNames names(GENERAL_NAMES_new());
    if (!names) return nullptr;
    for (uint32_t i = 0; i < request.uiAltNameCount; ++i) {
        GENERAL_NAME *name = AltName(request.astAltNames[i]);
        if (name == nullptr) return nullptr;
        if (sk_GENERAL_NAME_push(names.get(), name) == 0) {
            GENERAL_NAME_free(name);
            return nullptr;
        }
    }
    return UniquePtr<X509_EXTENSION>(X509V3_EXT_i2d(NID_subject_alt_name, 0, names.get()));
}

bool Push(STACK_OF(X509_EXTENSION) * stack, UniquePtr<X509_EXTENSION> extension) {
    if (!extension || sk_X509_EXTENSION_push(stack, extension.get()) == 0) return false;
    (void)extension.release(); // the stack owns it now
    return true;
}

UniquePtr<X509_EXTENSION> Extension(X509V3_CTX *context, int nid, const char *value) {
    return UniquePtr<X509_EXTENSION>(X509V3_EXT_conf_nid(nullptr, context, nid, value));
}

} // namespace

UniquePtr<X509_NAME> SubjectName(const SSLCertRequest &request) {
    UniquePtr<X509_NAME> name(X509_NAME_new());
    if (!name) return nullptr;
    const FieldText country(request.szCountryCode);
    const FieldText state(request.szStateName);
    const FieldText locality(request.szLocalityName);
    const FieldText organisation(request.szOrganisation);
    const FieldText unit(request.szOrganisationUnit);
    const FieldText common(request.szCommonName);
    const FieldText email(request.szEmailAddress);
    for (const auto &[nid, text] : {std::pair{NID_countryName, country.c_str()},
                                    {NID_stateOrProvinceName, state.c_str()},
                                    {NID_localityName, locality.c_str()},
                                    {NID_organizationName, organisation.c_str()},
                                    {NID_organizationalUnitName, unit.c_str()},
                                    {NID_commonName, common.c_str()},
                                    {NID_pkcs9_emailAddress, email.c_str()}}) {
        if (X509_NAME_add_entry_by_NID(name.get(), nid, MBSTRING_ASC,
                                       reinterpret_cast<const unsigned char *>(text), -1, -1,
                                       0) != 1)
            return nullptr;
    }
    return name;
}

ExtensionStack ServerExtensions(const SSLCertRequest &request, const EVP_PKEY *key,
                                X509 *selfSignedCert) {
    ExtensionStack stack(sk_X509_EXTENSION_new_null());
    X509V3_CTX context{};
    X509V3_set_ctx(&context, selfSignedCert, selfSignedCert, nullptr, nullptr, 0);
    // An EC key only signs; an RSA key also takes part in RSA key exchange.
    const char *usage = EVP_PKEY_base_id(key) == EVP_PKEY_RSA
                            ? "critical,digitalSignature,keyEncipherment"
                            : "critical,digitalSignature";
    bool built = stack != nullptr &&
                 Push(stack.get(), Extension(&context, NID_key_usage, usage)) &&
                 Push(stack.get(), Extension(&context, NID_ext_key_usage, "serverAuth"));
    if (built && request.uiAltNameCount > 0)
        built = Push(stack.get(), AltNamesExtension(request));
    if (built && selfSignedCert != nullptr)
        built = Push(stack.get(), Extension(&context, NID_basic_constraints, "critical,CA:FALSE")) &&
                Push(stack.get(), Extension(&context, NID_subject_key_identifier, "hash"));
    if (!built) {
        BMCCERT_DIAG(kLevelFailure, "Build certificate request extensions failed!\n");
        ERR_clear_error();
        return nullptr;
    }
    return stack;
}

} // namespace bmccert::sslcert
