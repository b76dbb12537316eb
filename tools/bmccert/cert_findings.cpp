#include "cert_findings.h"

#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/objects.h>

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>

#include "openssl_owners.h"
#include "frame/openssl_no_time_t.h"
#include "sslcert/cert_policy.h"

namespace bmccert::cli {
namespace {

constexpr int kWarnDays = 30;

std::string TimeText(const ASN1_TIME *when) {
    BioOwner bio(BIO_new(BIO_s_mem()));
    if (!bio || ASN1_TIME_print(bio.get(), when) != 1) return "an unreadable date";
    char *data = nullptr;
    const long length = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<size_t>(length));
}

std::string Utf8Text(const ASN1_STRING *value) {
    unsigned char *utf8 = nullptr;
    const int length = ASN1_STRING_to_UTF8(&utf8, value);
    const BytesOwner owner(utf8);
    if (length < 0) return {};
    return std::string(reinterpret_cast<const char *>(utf8), static_cast<size_t>(length));
}

std::string CommonName(X509 *cert) {
    X509_NAME *subject = X509_get_subject_name(cert);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) return {};
    return Utf8Text(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index)));
}

// An address name as it is written in a common name: 10.0.0.1, fd00::1.
std::string AddressText(const ASN1_OCTET_STRING *address) {
    const int length = ASN1_STRING_length(address);
    if (length != 4 && length != 16) return {};
    char text[INET6_ADDRSTRLEN] = {};
    if (inet_ntop(length == 4 ? AF_INET : AF_INET6, ASN1_STRING_get0_data(address), text,
                  sizeof text) == nullptr)
        return {};
    return text;
}

std::string Days(int days) {
    return std::to_string(days) + (days == 1 ? " day" : " days");
}

} // namespace

std::string SerialText(X509 *cert) {
    const BignumOwner number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(cert), nullptr));
    const CharOwner hex(number ? BN_bn2hex(number.get()) : nullptr);
    return hex ? std::string(hex.get()) : std::string("(unreadable)");
}

std::string Fingerprint(X509 *cert) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (X509_digest(cert, EVP_sha256(), digest, &length) != 1) return "(unreadable)";
    std::string out;
    for (unsigned int i = 0; i < length; ++i) {
        char byte[4];
        (void)std::snprintf(byte, sizeof byte, i == 0 ? "%02X" : ":%02X", digest[i]);
        out += byte;
    }
    return out;
}

bool SameCertificate(X509 *a, X509 *b) {
    unsigned char *derA = nullptr;
    unsigned char *derB = nullptr;
    const int lengthA = i2d_X509(a, &derA);
    const int lengthB = i2d_X509(b, &derB);
    const BytesOwner ownerA(derA);
    const BytesOwner ownerB(derB);
    return lengthA > 0 && lengthA == lengthB && std::equal(derA, derA + lengthA, derB);
}

Finding KeyStrengthFinding(X509 *cert) {
    const EVP_PKEY *key = X509_get0_pubkey(cert);
    if (key == nullptr)
        return {Severity::kFault, "key", "the certificate's public key is unreadable"};
    const int type = EVP_PKEY_base_id(key);
    const int bits = EVP_PKEY_bits(key);
    const char *name = type == EVP_PKEY_RSA ? "RSA" : type == EVP_PKEY_EC ? "EC" : OBJ_nid2sn(type);
    std::string text = std::string(name != nullptr ? name : "unknown") + " key of " +
                       std::to_string(bits) + " bits";
    if (policy::KeyStrengthOf(key) == policy::KeyStrength::kStrong)
        return {Severity::kOk, "key", text};
    if (type == EVP_PKEY_RSA)
        return {Severity::kWarning, "key",
                text + ": TLS stacks at security level 2 refuse RSA keys under 2048 bits"};
    return {Severity::kWarning, "key",
            text + ": under the 256 bits that clients expect of an EC key"};
}

Finding SignatureFinding(X509 *cert) {
    const char *longName = OBJ_nid2ln(X509_get_signature_nid(cert));
    const std::string text = "signed with " + std::string(longName != nullptr ? longName : "?");
    switch (policy::SignatureDigest(cert)) {
    case policy::Digest::kMd5:
        return {Severity::kFault, "signature",
                text + ": clients refuse MD5 signatures: replace the certificate"};
    case policy::Digest::kSha1:
        return {Severity::kWarning, "signature",
                text + ": current clients refuse SHA-1 signatures"};
    case policy::Digest::kSound:
        break;
    }
    return {Severity::kOk, "signature", text};
}

Finding NamesFinding(X509 *cert) {
    const std::string commonName = CommonName(cert);
    const NamesOwner names(static_cast<GENERAL_NAMES *>(
        X509_get_ext_d2i(cert, NID_subject_alt_name, nullptr, nullptr)));
    if (!names)
        return {Severity::kWarning, "names",
                "no alternative names: clients that check the host name refuse the certificate"};
    std::string listed;
    bool covered = false;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), i);
        std::string text;
        if (name->type == GEN_DNS)
            text = Utf8Text(name->d.dNSName);
        else if (name->type == GEN_IPADD)
            text = AddressText(name->d.iPAddress);
        else
            continue;
        listed += (listed.empty() ? "" : ", ") + text;
        covered = covered || strcasecmp(text.c_str(), commonName.c_str()) == 0;
    }
    if (commonName.empty())
        return {Severity::kOk, "names", "no common name; alternative names: " + listed};
    if (!covered)
        return {Severity::kWarning, "names",
                "clients check the alternative names, which do not list the common name " +
                    commonName};
    return {Severity::kOk, "names", "the alternative names list the common name " + commonName};
}

Finding ValidityFinding(std::string subject, X509 *cert) {
    const std::string serial = "serial " + SerialText(cert) + ": ";
    const policy::Validity validity = policy::ValidityNow(cert);
    if (validity == policy::Validity::kNotYetValid)
        return {Severity::kFault, std::move(subject),
                serial + "not valid before " + TimeText(X509_get0_notBefore(cert))};
    const ASN1_TIME *notAfter = X509_get0_notAfter(cert);
    int days = 0;
    int seconds = 0;
    // A null time is now.
    if (validity == policy::Validity::kUnreadable ||
        ASN1_TIME_diff(&days, &seconds, nullptr, notAfter) != 1)
        return {Severity::kFault, std::move(subject), serial + "unreadable expiry date"};
    const std::string date = " (" + TimeText(notAfter) + ")";
    if (validity == policy::Validity::kExpired)
        return {Severity::kFault, std::move(subject),
                serial + "expired " + (days < 0 ? Days(-days) + " ago" : "today") + date};
    if (days < kWarnDays)
        return {Severity::kWarning, std::move(subject),
                serial + "expires in " + Days(days) + date + ": renew it"};
    return {Severity::kOk, std::move(subject), serial + "expires in " + Days(days) + date};
}

} // namespace bmccert::cli
