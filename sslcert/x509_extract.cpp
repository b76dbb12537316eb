// Structured fields of a server certificate read with OpenSSL: issuer and
// subject names, key usage, version and public key length.
#include <array>
#include <cstring>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

struct KeyUsageName {
    uint32_t uiBit;
    const char *pcName;
};

// Bits as X509_get_key_usage reports them, in display order.
constexpr std::array<KeyUsageName, 9> KeyUsageTable = {{
    {0x80, "Digital Signature"},
    {0x40, "Non Repudiation"},
    {0x20, "Key Encipherment"},
    {0x10, "Data Encipherment"},
    {0x08, "Key Agreement"},
    {0x04, "Certificate Sign"},
    {0x02, "CRL Sign"},
    {0x01, "Encipher Only"},
    {0x8000, "Decipher Only"},
}};

constexpr uint32_t kNoKeyUsageExtension = 0xFFFFFFFFu;
constexpr size_t kNameSlotSize = 256;

using Extractor = uint32_t (*)(X509 *, SSLConfig *);

// Run in this order; the first failure ends an extraction run.
constexpr std::array<Extractor, 5> kExtractors = {
    SECURITY_SSL_GetIssueFrom,   SECURITY_SSL_GetIssueTo,         SECURITY_SSL_ParseKeyUsage,
    SECURITY_SSL_GetCertVersion, SECURITY_SSL_GetPublicKeyLength,
};

// Name attributes in reading order, each with the field it ends in.
struct NameAttribute {
    int nid;
    size_t fieldOffset;
    size_t fieldSize;
};
#define BMCCERT_NAME_FIELD(nid, field)                                                             \
    NameAttribute {                                                                                \
        nid, offsetof(SSLCertGenParam, field), sizeof(SSLCertGenParam::field)                      \
    }
constexpr std::array<NameAttribute, 7> kNameAttributes = {{
    BMCCERT_NAME_FIELD(NID_commonName, szCommonName),
    BMCCERT_NAME_FIELD(NID_countryName, szCountryCode),
    BMCCERT_NAME_FIELD(NID_localityName, szLocalityName),
    BMCCERT_NAME_FIELD(NID_stateOrProvinceName, szStateName),
    BMCCERT_NAME_FIELD(NID_organizationName, szOrganisation),
    BMCCERT_NAME_FIELD(NID_organizationalUnitName, szOrganisationUnit),
    BMCCERT_NAME_FIELD(NID_pkcs9_emailAddress, szEmailAddress),
}};
#undef BMCCERT_NAME_FIELD

// Copies the data of the first entry of the attribute as stored, without
// character-set conversion, into the slot; leaves the slot empty otherwise.
void ReadNameAttribute(const X509_NAME *name, int nid, char (&slot)[kNameSlotSize]) {
    // OpenSSL 1.1 declares the lookup on a mutable name (3.0 on a const
    // one); neither changes it.
    const int index = X509_NAME_get_index_by_NID(const_cast<X509_NAME *>(name), nid, -1);
    if (index < 0) return;
    const X509_NAME_ENTRY *entry = X509_NAME_get_entry(name, index);
    if (entry == nullptr) return;
    const ASN1_STRING *data = X509_NAME_ENTRY_get_data(entry);
    if (data == nullptr) return;
    const unsigned char *bytes = ASN1_STRING_get0_data(data);
    if (bytes == nullptr) return;
    (void)BMC_Strlcpy(slot, reinterpret_cast<const char *>(bytes), sizeof slot);
}

// Fills one distinguished-name block from the name; the failure report
// depends on which name is read.
uint32_t FillNameBlock(const X509_NAME *name, SSLCertGenParam *block, const char *missingReport,
                       const char *unparsedReport) {
    if (name == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "%s", missingReport);
        return SSLCERT_ERR_CERT_PARSE;
    }
    if (SECURITY_SSL_ParseSSLCert(name, block) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "%s", unparsedReport);
        return SSLCERT_ERR_CERT_PARSE;
    }
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_GetSSLCertX509_Parse(uint32_t uiCertType,
                                                      SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);

    CertKeyPaths paths;
    if (!LookupCertKeyPaths(uiCertType, paths, "SECURITY_SSL_GetSSLCertX509_Parse"))
        return SSLCERT_ERR_GENERAL;

    StdioFile file(paths.cert, "r");
    if (!file.IsOpen()) {
        BMCCERT_DIAG(kLevelFailure, "Error is opening certificate\n");
        return SSLCERT_ERR_FILE_OPEN;
    }
    UniquePtr<X509> cert(PEM_read_X509(file.get(), nullptr, nullptr, nullptr));
    if (!cert) {
        ERR_clear_error();
        BMCCERT_DIAG(kLevelFailure, "Unable to parse certificate\n");
        file.Close();
        return SSLCERT_ERR_CERT_PARSE;
    }

    uint32_t result = SSLCERT_OK;
    for (Extractor extract : kExtractors) {
        if (extract(cert.get(), pstSSLConfig) != SSLCERT_OK) {
            // Whatever the extractor said, the run reports a content fault.
            result = SSLCERT_ERR_CERT_PARSE;
            break;
        }
    }
    file.Close();
    return result;
}

extern "C" uint32_t SECURITY_SSL_GetIssueFrom(X509 *pstCert, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);
    return FillNameBlock(X509_get_issuer_name(pstCert), &pstSSLConfig->stIssueFrom,
                         "Unable to fetch issuer details\n",
                         "Unable to parse Issuer to x509 content.\n");
}

extern "C" uint32_t SECURITY_SSL_GetIssueTo(X509 *pstCert, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);
    return FillNameBlock(X509_get_subject_name(pstCert), &pstSSLConfig->stIssueTo,
                         "Unable to fetch Subject details\n",
                         "Unable to parse subject to x509 content.\n");
}

extern "C" uint32_t SECURITY_SSL_ParseSSLCert(const X509_NAME *pstContentName,
                                              SSLCertGenParam *pstSSLCert) {
    BMCCERT_CHECK_NULL(pstContentName, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_ERR_NULL_POINTER);

    char slots[kNameAttributes.size()][kNameSlotSize] = {};
    for (size_t i = 0; i < kNameAttributes.size(); ++i)
        ReadNameAttribute(pstContentName, kNameAttributes[i].nid, slots[i]);

    // Every text field is overwritten, with an empty string where the
    // attribute is absent; the key length and validity stay as they were.
    auto *record = reinterpret_cast<char *>(pstSSLCert);
    for (size_t i = 0; i < kNameAttributes.size(); ++i)
        (void)BMC_Strlcpy(record + kNameAttributes[i].fieldOffset, slots[i],
                          kNameAttributes[i].fieldSize);
    return SSLCERT_OK;
}

extern "C" uint32_t SECURITY_SSL_ParseKeyUsage(X509 *pstCert, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);

    const uint32_t usage = X509_get_key_usage(pstCert);
    if (usage == 0) {
        BMCCERT_DIAG(kLevelFailure, "Invalid keyusage.\n");
        return SSLCERT_ERR_GENERAL;
    }
    if (usage == kNoKeyUsageExtension) {
        BMCCERT_DIAG(kLevelNote, "Cert may not have keyusage.");
        return SSLCERT_OK;
    }

    // The marks belong to this call; the table itself stays constant.
    std::array<bool, KeyUsageTable.size()> marked{};
    size_t count = 0;
    for (size_t row = 0; row < KeyUsageTable.size(); ++row) {
        marked[row] = (usage & KeyUsageTable[row].uiBit) != 0;
        count += marked[row] ? 1 : 0;
    }

    char *text = pstSSLConfig->szKeyUsage;
    const size_t size = sizeof pstSSLConfig->szKeyUsage;
    std::memset(text, 0, size);
    size_t appended = 0;
    for (size_t row = 0; row < KeyUsageTable.size(); ++row) {
        if (!marked[row]) continue;
        (void)BMC_Strlcat(text, KeyUsageTable[row].pcName, size);
        if (++appended < count) (void)BMC_Strlcat(text, ", ", size);
    }
    return SSLCERT_OK;
}

extern "C" uint32_t SECURITY_SSL_GetCertVersion(X509 *pstCert, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);

    static constexpr std::array<const char *, 3> kVersionText = {"1", "2", "3"};
    const long rawVersion = X509_get_version(pstCert);
    if (rawVersion < 0 || rawVersion >= static_cast<long>(kVersionText.size())) {
        BMCCERT_DIAG(kLevelFailure, "Not support version %d.\n", static_cast<int>(rawVersion));
        return SSLCERT_ERR_GENERAL;
    }
    (void)BMC_Strlcpy(pstSSLConfig->szVersion, kVersionText[static_cast<size_t>(rawVersion)],
                      sizeof pstSSLConfig->szVersion);
    return SSLCERT_OK;
}

extern "C" uint32_t SECURITY_SSL_GetPublicKeyLength(X509 *pstCert, SSLConfig *pstSSLConfig) {
    BMCCERT_CHECK_NULL(pstCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstSSLConfig, SSLCERT_ERR_NULL_POINTER);

    // A borrowed reference: the certificate keeps owning the key.
    EVP_PKEY *publicKey = X509_get0_pubkey(pstCert);
    if (publicKey == nullptr) {
        ERR_clear_error();
        BMCCERT_DIAG(kLevelFailure, "Get Public Key handle failed!\n");
        return SSLCERT_ERR_GENERAL;
    }
    const int bits = EVP_PKEY_bits(publicKey);
    if (bits <= 0) {
        BMCCERT_DIAG(kLevelFailure, "Get Public Key len failed!\n");
        return SSLCERT_ERR_GENERAL;
    }
    pstSSLConfig->uiPublicKeyLen = static_cast<uint32_t>(bits);
    return SSLCERT_OK;
}
