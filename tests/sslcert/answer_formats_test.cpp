// The forms in which CAs hand out their answer, and what a refusal of one
// tells the operator: the dates against the clock, a renewed CA key, a
// weak key's size, and the retry of an answer already in force.
#include <gtest/gtest.h>

#include <ctime>
#include <regex>

#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"
#include "tests/support/controller.h"
#include "tests/support/diag_log.h"
#include "tests/support/example_request.h"
#include "tests/support/lab_ca.h"
#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

struct Pkcs7Free {
    void operator()(PKCS7 *p7) const noexcept { PKCS7_free(p7); }
};

bmccert::UniquePtr<X509> Parse(const std::string &pem) { return ReadPem(pem, PEM_read_bio_X509); }

std::string Der(const std::string &pem) {
    const auto cert = Parse(pem);
    unsigned char *der = nullptr;
    const int length = i2d_X509(cert.get(), &der);
    std::string bytes(reinterpret_cast<char *>(der), static_cast<size_t>(length));
    OPENSSL_free(der);
    return bytes;
}

// A PKCS#7 bundle of the certificates, DER or PEM.
std::string Bundle(const std::vector<std::string> &pems, bool pem) {
    std::unique_ptr<PKCS7, Pkcs7Free> p7(PKCS7_new());
    EXPECT_EQ(PKCS7_set_type(p7.get(), NID_pkcs7_signed), 1);
    EXPECT_EQ(PKCS7_content_new(p7.get(), NID_pkcs7_data), 1);
    for (const std::string &one : pems)
        EXPECT_EQ(PKCS7_add_certificate(p7.get(), Parse(one).get()), 1);
    const bmccert::UniquePtr<BIO> out(BIO_new(BIO_s_mem()));
    EXPECT_EQ(pem ? PEM_write_bio_PKCS7(out.get(), p7.get()) : i2d_PKCS7_bio(out.get(), p7.get()),
              1);
    char *data = nullptr;
    const long length = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<size_t>(length));
}

class AnswerFormatsTest : public ControllerTest {};

TEST_F(AnswerFormatsTest, FormsAndRefusalsTellWhatToDo) {
    static char csr[SSLCERT_EXT_CSR_PEM_SIZE];
    const SSLCertRequest request = ExampleRequest();
    ASSERT_EQ(LIB_SECURITY_SSL_GenerateCSR(&request, csr, sizeof csr), 0u);
    const LabCa lab;
    const std::string &root = lab.root, &ca = lab.intermediate;
    // The CA's renewed certificate: the same name with another key.
    const std::string renewed = LabCa::IntermediateWith([](CertRecipe &r) { r.key = KeyKind::Rsa2048; });
    auto leafWith = [](std::function<void(CertRecipe &)> change) { return Changed(LabCa::Leaf(), change); };
    const std::string leaf = leafWith([](CertRecipe &) {});
    const std::string dates = R"(\(valid from [0-9-]+ [0-9:]+ UTC until [0-9-]+ [0-9:]+ UTC; the )"
                              R"(controller's clock says [0-9-]+ [0-9:]+ UTC\)\.)";
    const struct {
        const char *name;
        std::string answer;
        uint32_t code;
        std::string report; // a pattern of the one diagnostic; empty: none
    } cases[] = {
        {"DER certificate", Der(leaf), 0, ""},
        {"DER PKCS#7 in any order", Bundle({ca, root, leaf}, false), 0, ""},
        {"PEM PKCS7 block", Bundle({root, leaf, ca}, true), 0, ""},
        {"PKCS#7 of two chains", Bundle({leaf, root, MakeCertPem(CertRecipe{})}, false),
         SSLCERT_EXT_ERR_CHAIN_ORDER, ".*do not form one chain\\.\n"},
        {"PKCS#12 or other bytes", std::string("\x30\x03\x02\x01\x03", 5),
         SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
         ".*openssl x509 -inform DER.*openssl pkcs7 -print_certs.*\n"},
        {"renewed CA key", leaf + renewed, SSLCERT_EXT_ERR_CHAIN_SIGNATURE,
         ".*Certificate 1: .*key did not sign it.*\n"},
        {"expired", leafWith([](CertRecipe &r) { r.notAfter = std::time(nullptr) - 60; }),
         SSLCERT_EXT_ERR_NOT_VALID_NOW, ".*Certificate 0: it has expired " + dates + "\n"},
        {"not yet valid", leafWith([](CertRecipe &r) { r.notBefore = std::time(nullptr) + 600; }),
         SSLCERT_EXT_ERR_NOT_VALID_NOW, ".*Certificate 0: it is not yet valid " + dates + "\n"},
        {"1024-bit key",
         leafWith([](CertRecipe &r) { r.keyPem.clear(), r.key = KeyKind::Rsa1024; }),
         SSLCERT_EXT_ERR_BAD_KEY_TYPE, ".*Certificate 0: its key is RSA 1024 bits, under .*\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ClearDiagLog();
        EXPECT_EQ(LIB_SECURITY_SSL_CheckSignedCert(c.answer.data(),
                                                   static_cast<uint32_t>(c.answer.size())),
                  c.code);
        const std::vector<Diag> diags = ReadDiags();
        ASSERT_EQ(diags.size(), c.report.empty() ? 0u : 1u);
        if (!c.report.empty()) {
            EXPECT_TRUE(std::regex_match(diags[0].message, std::regex(c.report)))
                << diags[0].message;
        }
    }
    // The retry after an installation consumed the pending key.
    WriteFile("/conf/certs/server/user/actualcert.pem", leaf + ca);
    RemoveFile(kPendingRequest);
    EXPECT_EQ(LIB_SECURITY_SSL_CheckSignedCert(leaf.data(), static_cast<uint32_t>(leaf.size())),
              0u);
    EXPECT_EQ(LIB_SECURITY_SSL_CheckSignedCert(ca.data(), static_cast<uint32_t>(ca.size())),
              SSLCERT_EXT_ERR_NO_PENDING_KEY);
}

} // namespace
} // namespace bmctest
