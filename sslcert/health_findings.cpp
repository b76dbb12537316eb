// What the health check says about one certificate: its serial number and
// fingerprint as the operator compares them, and the findings on its key,
// signature, names and validity. Only public parts are ever read.
#include <openssl/asn1.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <memory>

#include "sslcert/health_internal.h"
// After every OpenSSL header.
#include "frame/openssl_no_time_t.h"
#include "sslcert/cert_policy.h"

namespace bmccert::health {
namespace {

template <auto Free> struct FreedBy {
    template <typename T> void operator()(T *object) const noexcept { Free(object); }
};
// OPENSSL_free is a macro that names its caller's place.
struct OpenSslFree {
    void operator()(void *memory) const noexcept { OPENSSL_free(memory); }
};
using NamesOwner = std::unique_ptr<GENERAL_NAMES, FreedBy<GENERAL_NAMES_free>>;
using CharOwner = std::unique_ptr<char, OpenSslFree>;
using BytesOwner = std::unique_ptr<unsigned char, OpenSslFree>;

constexpr int kWarnDays = 30;

std::string TimeText(const ASN1_TIME *when) {
    const UniquePtr<BIO> bio(BIO_new(BIO_s_mem()));
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
    const UniquePtr<BIGNUM> number(ASN1_INTEGER_to_BN(X509_get0_serialNumber(cert), nullptr));
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
        return {SSLCERT_EXT_SEVERITY_FAULT, SSLCERT_EXT_FINDING_KEY, "key", "the certificate's public key is unreadable"};
    const int type = EVP_PKEY_base_id(key);
    const int bits = EVP_PKEY_bits(key);
    const char *name = type == EVP_PKEY_RSA ? "RSA" : type == EVP_PKEY_EC ? "EC" : OBJ_nid2sn(type);
    std::string text = std::string(name != nullptr ? name : "unknown") + " key of " +
                       std::to_string(bits) + " bits";
    constexpr uint32_t kKind = SSLCERT_EXT_FINDING_KEY;
    if (policy::KeyStrengthOf(key) == policy::KeyStrength::kStrong)
        return {SSLCERT_EXT_SEVERITY_OK, kKind, "key", text};
    if (type == EVP_PKEY_RSA)
        return {SSLCERT_EXT_SEVERITY_WARNING, kKind, "key",
                text + ": TLS stacks at security level 2 refuse RSA keys under 2048 bits"};
    return {SSLCERT_EXT_SEVERITY_WARNING, kKind, "key",
            text + ": under the 256 bits that clients expect of an EC key"};
}

Finding SignatureFinding(X509 *cert) {
    const char *longName = OBJ_nid2ln(X509_get_signature_nid(cert));
    const std::string text = "signed with " + std::string(longName != nullptr ? longName : "?");
    constexpr uint32_t kKind = SSLCERT_EXT_FINDING_SIGNATURE;
    switch (policy::SignatureDigest(cert)) {
    case policy::Digest::kMd5:
        return {SSLCERT_EXT_SEVERITY_FAULT, kKind, "signature",
                text + ": clients refuse MD5 signatures: replace the certificate"};
    case policy::Digest::kSha1:
        return {SSLCERT_EXT_SEVERITY_WARNING, kKind, "signature",
                text + ": current clients refuse SHA-1 signatures"};
    case policy::Digest::kSound:
        break;
    }
    return {SSLCERT_EXT_SEVERITY_OK, kKind, "signature", text};
}

namespace {

// The DNS names and addresses among the alternative names, as text; empty
// when the certificate has no alternative-name extension.
std::optional<std::vector<std::string>> AlternativeNames(X509 *cert) {
    const NamesOwner names(static_cast<GENERAL_NAMES *>(
        X509_get_ext_d2i(cert, NID_subject_alt_name, nullptr, nullptr)));
    if (!names) return std::nullopt;
    std::vector<std::string> listed;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_DNS)
            listed.push_back(Utf8Text(name->d.dNSName));
        else if (name->type == GEN_IPADD)
            listed.push_back(AddressText(name->d.iPAddress));
    }
    return listed;
}

bool Lists(const std::vector<std::string> &names, const std::string &wanted) {
    return std::any_of(names.begin(), names.end(), [&](const std::string &name) {
        return strcasecmp(name.c_str(), wanted.c_str()) == 0;
    });
}

} // namespace

Finding NamesFinding(X509 *cert) {
    constexpr uint32_t kKind = SSLCERT_EXT_FINDING_NAMES;
    const std::string commonName = CommonName(cert);
    const auto names = AlternativeNames(cert);
    if (!names)
        return {SSLCERT_EXT_SEVERITY_WARNING, kKind, "names",
                "no alternative names: clients that check the host name refuse the certificate"};
    if (commonName.empty()) {
        std::string listed;
        for (const std::string &name : *names) listed += (listed.empty() ? "" : ", ") + name;
        return {SSLCERT_EXT_SEVERITY_OK, kKind, "names",
                "no common name; alternative names: " + listed};
    }
    if (!Lists(*names, commonName))
        return {SSLCERT_EXT_SEVERITY_WARNING, kKind, "names",
                "clients check the alternative names, which do not list the common name " +
                    commonName};
    return {SSLCERT_EXT_SEVERITY_OK, kKind, "names",
            "the alternative names list the common name " + commonName};
}

std::optional<Finding> HostNameFinding(X509 *cert, std::string_view hostName) {
    constexpr uint32_t kKind = SSLCERT_EXT_FINDING_HOST_NAME;
    // A controller without a name of its own, or with the kernel's
    // placeholder, is reached by address: nothing to compare.
    if (hostName.empty() || hostName == "(none)" || hostName == "localhost") return std::nullopt;
    const std::string wanted(hostName);
    const auto names = AlternativeNames(cert);
    if (names && Lists(*names, wanted))
        return Finding{SSLCERT_EXT_SEVERITY_OK, kKind, "host name",
                       "the alternative names list the controller's host name " + wanted};
    return Finding{SSLCERT_EXT_SEVERITY_WARNING, kKind, "host name",
                   "the alternative names do not list the controller's host name " + wanted +
                       ": clients that reach it by that name refuse the certificate"};
}

Finding ValidityFinding(uint32_t kind, std::string subject, X509 *cert) {
    const std::string serial = "serial " + SerialText(cert) + ": ";
    const policy::Validity validity = policy::ValidityNow(cert);
    if (validity == policy::Validity::kNotYetValid)
        return {SSLCERT_EXT_SEVERITY_FAULT, kind, std::move(subject),
                serial + "not valid before " + TimeText(X509_get0_notBefore(cert))};
    const ASN1_TIME *notAfter = X509_get0_notAfter(cert);
    int days = 0;
    int seconds = 0;
    // A null time is now.
    if (validity == policy::Validity::kUnreadable ||
        ASN1_TIME_diff(&days, &seconds, nullptr, notAfter) != 1)
        return {SSLCERT_EXT_SEVERITY_FAULT, kind, std::move(subject),
                serial + "unreadable expiry date"};
    const std::string date = " (" + TimeText(notAfter) + ")";
    if (validity == policy::Validity::kExpired)
        return {SSLCERT_EXT_SEVERITY_FAULT, kind, std::move(subject),
                serial + "expired " + (days < 0 ? Days(-days) + " ago" : "today") + date,
                days < 0 ? days : -1};
    if (days < kWarnDays)
        return {SSLCERT_EXT_SEVERITY_WARNING, kind, std::move(subject),
                serial + "expires in " + Days(days) + date + ": renew it", days};
    return {SSLCERT_EXT_SEVERITY_OK, kind, std::move(subject),
            serial + "expires in " + Days(days) + date, days};
}

} // namespace bmccert::health
