#include "tests/support/test_certs.h"

#include <cstdio>
#include <ctime>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace bmctest {
namespace {

template <typename T, void (*Free)(T *)> struct Deleter {
    void operator()(T *p) const { Free(p); }
};
using X509Ptr = std::unique_ptr<X509, Deleter<X509, X509_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Deleter<EVP_PKEY, EVP_PKEY_free>>;
using BioPtr = std::unique_ptr<BIO, Deleter<BIO, BIO_free_all>>;
using BitsPtr = std::unique_ptr<ASN1_BIT_STRING, Deleter<ASN1_BIT_STRING, ASN1_BIT_STRING_free>>;

void Require(bool ok, const char *what) {
    if (!ok) throw std::runtime_error(std::string("test certificate: ") + what);
}

KeyPtr LoadKey(const std::string &pem) {
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    Require(bio != nullptr, "key buffer");
    KeyPtr pkey(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    Require(pkey != nullptr, "key read");
    return pkey;
}

KeyPtr LoadKey(KeyKind key) {
    return LoadKey(KeyPem(key));
}

void AddNames(X509_NAME *name, const NameEntries &entries) {
    for (const auto &[field, value] : entries)
        Require(X509_NAME_add_entry_by_txt(name, field.c_str(), V_ASN1_UTF8STRING,
                                           reinterpret_cast<const unsigned char *>(value.c_str()),
                                           -1, -1, 0) == 1,
                "name entry");
}

// Entries are stored as given, without the size rules of each attribute, so
// that oversized values can be made.

// Key usage as the exact bit string, so that an empty one (value 0) can be made.
void AddKeyUsage(X509 *cert, uint32_t bits) {
    BitsPtr usage(ASN1_BIT_STRING_new());
    Require(usage != nullptr, "key usage");
    for (int bit = 0; bit < 9; ++bit) {
        // X509_get_key_usage reports bit n of the string as 0x80 >> n, and
        // decipherOnly (bit 8) as 0x8000.
        const uint32_t mask = bit < 8 ? (0x80u >> bit) : 0x8000u;
        if (bits & mask) Require(ASN1_BIT_STRING_set_bit(usage.get(), bit, 1) == 1, "usage bit");
    }
    Require(X509_add1_ext_i2d(cert, NID_key_usage, usage.get(), 1, X509V3_ADD_DEFAULT) == 1,
            "key usage extension");
}

// Dates reach OpenSSL as text: its calls that take a time_t may use a
// narrower one than this code on a 32-bit controller.
static_assert(sizeof(time_t) == 8, "test dates past 2038 need a 64-bit time_t");

void SetDate(ASN1_TIME *field, int64_t seconds, const char *what) {
    const time_t when = static_cast<time_t>(seconds);
    struct tm utc {};
    Require(gmtime_r(&when, &utc) != nullptr, what);
    char text[32];
    std::snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02dZ", utc.tm_year + 1900,
                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    Require(ASN1_TIME_set_string_X509(field, text) == 1, what);
}

void AddOcspUrl(X509 *cert, const std::string &url) {
    AUTHORITY_INFO_ACCESS *access = AUTHORITY_INFO_ACCESS_new();
    ACCESS_DESCRIPTION *description = ACCESS_DESCRIPTION_new();
    ASN1_IA5STRING *uri = ASN1_IA5STRING_new();
    bool ok = access != nullptr && description != nullptr && uri != nullptr &&
              ASN1_STRING_set(uri, url.data(), static_cast<int>(url.size())) == 1;
    if (ok) {
        ASN1_OBJECT_free(description->method);
        description->method = OBJ_nid2obj(NID_ad_OCSP);
        GENERAL_NAME_set0_value(description->location, GEN_URI, uri);
        uri = nullptr;
        ok = sk_ACCESS_DESCRIPTION_push(access, description) > 0;
        if (ok) description = nullptr;
    }
    ok = ok && X509_add1_ext_i2d(cert, NID_info_access, access, 0, X509V3_ADD_DEFAULT) == 1;
    ASN1_IA5STRING_free(uri);
    ACCESS_DESCRIPTION_free(description);
    AUTHORITY_INFO_ACCESS_free(access);
    Require(ok, "ocsp address");
}

} // namespace

std::string ReadFile(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    Require(in.good(), path.c_str());
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void WriteFile(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    Require(out.good(), path.c_str());
}

std::vector<std::string> ReadLines(const std::string &path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string KeyPem(KeyKind key) {
    static const char *const kFiles[] = {"rsa2048.key", "rsa1024.key", "ec256.key"};
    return ReadFile(std::string(BMCCERT_TEST_DATA_DIR "/") + kFiles[static_cast<int>(key)]);
}

std::string EncryptedKeyPem(KeyKind key, KeyEncryption form) {
    Require(key == KeyKind::Rsa2048, "only the 2048-bit key is kept encrypted");
    return ReadFile(std::string(BMCCERT_TEST_DATA_DIR "/") +
                    (form == KeyEncryption::Pkcs8 ? "rsa2048-pkcs8.key" : "rsa2048-legacy.key"));
}

std::string MakeCertPem(const CertRecipe &recipe) {
    X509Ptr cert(X509_new());
    KeyPtr key = recipe.keyPem.empty() ? LoadKey(recipe.key) : LoadKey(recipe.keyPem);
    Require(cert != nullptr, "new");
    Require(X509_set_version(cert.get(), recipe.rawVersion) == 1, "version");
    Require(ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), recipe.serial) == 1, "serial");
    SetDate(X509_getm_notBefore(cert.get()), recipe.notBefore, "notBefore");
    SetDate(X509_getm_notAfter(cert.get()), recipe.notAfter, "notAfter");
    AddNames(X509_get_subject_name(cert.get()), recipe.subject);
    AddNames(X509_get_issuer_name(cert.get()), recipe.issuer.value_or(recipe.subject));
    Require(X509_set_pubkey(cert.get(), key.get()) == 1, "pubkey");
    if (recipe.keyUsage) AddKeyUsage(cert.get(), *recipe.keyUsage);
    const auto addConf = [&](int nid, const std::string &value) {
        X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, nullptr, nid, value.c_str());
        Require(extension != nullptr, OBJ_nid2sn(nid));
        const int added = X509_add_ext(cert.get(), extension, -1);
        X509_EXTENSION_free(extension);
        Require(added == 1, OBJ_nid2sn(nid));
    };
    if (!recipe.extendedKeyUsage.empty()) addConf(NID_ext_key_usage, recipe.extendedKeyUsage);
    if (!recipe.subjectAltName.empty()) addConf(NID_subject_alt_name, recipe.subjectAltName);
    if (!recipe.ocspUrl.empty()) AddOcspUrl(cert.get(), recipe.ocspUrl);
    if (!recipe.crlUrl.empty()) {
        X509_EXTENSION *points = X509V3_EXT_conf_nid(nullptr, nullptr, NID_crl_distribution_points,
                                                     ("URI:" + recipe.crlUrl).c_str());
        Require(points != nullptr && X509_add_ext(cert.get(), points, -1) == 1, "crl address");
        X509_EXTENSION_free(points);
    }
    if (recipe.ca)
        addConf(NID_basic_constraints,
                "critical,CA:TRUE" + (recipe.pathLength
                                          ? ",pathlen:" + std::to_string(*recipe.pathLength)
                                          : std::string()));
    KeyPtr signer = recipe.signer ? LoadKey(*recipe.signer) : nullptr;
    Require(X509_sign(cert.get(), signer ? signer.get() : key.get(),
                      EVP_get_digestbyname(recipe.digest)) > 0,
            "sign");

    BioPtr out(BIO_new(BIO_s_mem()));
    Require(out != nullptr && PEM_write_bio_X509(out.get(), cert.get()) == 1, "pem");
    char *data = nullptr;
    const long length = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<size_t>(length));
}

std::string MakeCrlPem(const NameEntries &issuer, KeyKind signer, const std::vector<long> &revoked,
                       int64_t lastUpdate, int64_t nextUpdate) {
    using CrlPtr = std::unique_ptr<X509_CRL, Deleter<X509_CRL, X509_CRL_free>>;
    CrlPtr crl(X509_CRL_new());
    Require(crl != nullptr && X509_CRL_set_version(crl.get(), 1) == 1, "crl");
    X509_NAME *name = X509_NAME_new();
    AddNames(name, issuer);
    Require(X509_CRL_set_issuer_name(crl.get(), name) == 1, "crl issuer");
    X509_NAME_free(name);
    ASN1_TIME *when = ASN1_TIME_new();
    SetDate(when, lastUpdate, "lastUpdate");
    Require(X509_CRL_set1_lastUpdate(crl.get(), when) == 1, "crl lastUpdate");
    SetDate(when, nextUpdate, "nextUpdate");
    Require(X509_CRL_set1_nextUpdate(crl.get(), when) == 1, "crl nextUpdate");
    SetDate(when, lastUpdate, "revocationDate");
    for (const long serial : revoked) {
        X509_REVOKED *entry = X509_REVOKED_new();
        ASN1_INTEGER *number = ASN1_INTEGER_new();
        Require(ASN1_INTEGER_set(number, serial) == 1 &&
                    X509_REVOKED_set_serialNumber(entry, number) == 1 &&
                    X509_REVOKED_set_revocationDate(entry, when) == 1 &&
                    X509_CRL_add0_revoked(crl.get(), entry) == 1,
                "crl entry");
        ASN1_INTEGER_free(number);
    }
    ASN1_TIME_free(when);
    Require(X509_CRL_sort(crl.get()) == 1 &&
                X509_CRL_sign(crl.get(), LoadKey(signer).get(), EVP_sha256()) > 0,
            "crl sign");
    BioPtr out(BIO_new(BIO_s_mem()));
    Require(out != nullptr && PEM_write_bio_X509_CRL(out.get(), crl.get()) == 1, "crl pem");
    char *data = nullptr;
    const long length = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<size_t>(length));
}

} // namespace bmctest
