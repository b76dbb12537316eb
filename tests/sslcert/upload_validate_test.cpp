// Fetching and validating an uploaded pair: the chain's order, each refusal
// with its code and its messages in order, and the size limits.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kCert = "/var/certs/actualcert.pem";
constexpr const char *kKey = "/var/certs/actualprivkey.pem";

// The PEM text followed by line feeds up to exactly the given size.
std::string PaddedTo(std::string pem, size_t size) {
    pem.resize(size, '\n');
    return pem;
}

class UploadValidateTest : public ControllerTest {
  protected:
    static uint32_t Validate(const std::string &cert, const std::string &key) {
        WriteFile(kCert, cert);
        WriteFile(kKey, key);
        ClearDiagLog();
        return SECURITY_SSL_ValidateSSLCert();
    }
};

TEST_F(UploadValidateTest, EachStepRefusesWithItsCodeAndReports) {
    const std::string cert = MakeCertPem({});
    const std::string key = KeyPem(KeyKind::Rsa2048);
    CertRecipe md5;
    md5.digest = "MD5";
    const Diag valid{31, 3, 6, "Valid SSL certificate \n"};
    const auto sizeFailed = [](uint32_t code) {
        return Diag{31, 3, 2, "SSL verify file size failed! iRet = " + Signed(code) + ".\n"};
    };
    struct Case {
        const char *name;
        std::string cert, key;
        uint32_t result;
        std::vector<Diag> diags;
    } cases[] = {
        {"8191 bytes each", PaddedTo(cert, 8191), PaddedTo(key, 8191), 0, {valid}},
        {"certificate of 8192 bytes", PaddedTo(cert, 8192), key, 0x98000005,
         {{31, 3, 2, "Cert /var/certs/actualcert.pem stat size exceeds!"},
          sizeFailed(0x98000005)}},
        {"key of 8192 bytes", cert, PaddedTo(key, 8192), 0x98000005,
         {{31, 3, 2, "Privkey /var/certs/actualprivkey.pem stat size exceeds!"},
          sizeFailed(0x98000005)}},
        {"pass-phrase key", cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Pkcs8),
         0x98000006,
         {{31, 3, 2,
           "The certificate is encrypted.  PEM pass phrase encrypted certificates are not "
           "supported.  Please upload unencrypted certificates.\n"},
          {31, 3, 2,
           "SSL verify private key file encrypted status failed! iRet = " + Signed(0x98000006) +
               ".\n"}}},
        // Only the first line is scanned: the older form passes that step
        // and is refused when read, since no pass phrase is ever supplied.
        {"older pass-phrase key", cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Legacy),
         0x81000001,
         {valid,
          {31, 3, 4, "Failed to read private key."},
          {31, 3, 4, "Failed to verify cert and privatekey, iRet=" + Signed(0x81000001) + "."},
          {31, 3, 2, "Error in validating the CombinedTmpCert::" + Signed(0x81000001)}}},
        {"MD5", MakeCertPem(md5), key, 0x9800000A,
         {valid,
          {31, 3, 2, "Signature algorithm should not be md5."},
          {31, 3, 2, "Failed to verify Upload TMP certificate. iRet=" + Signed(0x9800000A) + ".\n"},
          {31, 3, 2, "Error in validating the SSL Certificate::" + Signed(0x9800000A)}}},
        // A pair that does not belong together reads fine and is refused
        // by the TLS context alone.
        {"key of another certificate", cert, KeyPem(KeyKind::Rsa1024), 0x98000007,
         {valid, {31, 3, 4, "SSL CTX use privateKey file failed!\n"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Validate(c.cert, c.key), c.result);
        EXPECT_EQ(ReadDiags(), c.diags);
    }
    // Validation never removes the files it checked.
    EXPECT_EQ(access("/var/certs/TmpCombinedCert.pem", F_OK), 0);
    EXPECT_EQ(access(kKey, F_OK), 0);
}

TEST_F(UploadValidateTest, MissingAndEmptyFiles) {
    EXPECT_EQ(Validate(MakeCertPem({}), ""), 0x81000001u);
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].message.rfind("Get privkey file size failed!Err:", 0), 0u);
    EXPECT_EQ(diags[1].message,
              "SSL verify file size failed! iRet = " + Signed(0x81000001) + ".\n");

    RemoveFile(kCert);
    RemoveFile(kKey);
    ClearDiagLog();
    EXPECT_EQ(SECURITY_SSL_ValidateSSLCert(), 0x98000009u);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2, "File /var/certs/actualcert.pem is not exist!\n"},
            {31, 3, 2, "SSL verify file exist failed! iRet = " + Signed(0x98000009) + ".\n"}}));
}

TEST_F(UploadValidateTest, FetchStopsAtTheFirstFailedTransfer) {
    WriteFile("/var/certs/upload.crt", MakeCertPem({}));
    UploadParam request{};
    std::strcpy(request.CertSrcPath, "/var/certs/upload.crt");
    std::strcpy(request.PrivkeySrcPath, "/var/certs/missing.key");
    EXPECT_EQ(SECURITY_SSL_GetUploadCert(&request), 0x81000001u);
    EXPECT_EQ(ReadFile(kCert), ReadFile("/var/certs/upload.crt"));
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{{31, 3, 4,
                            "Failed to download Server Privkey. FileStr:/var/certs/missing.key, "
                            "FileDst:/var/certs/actualprivkey.pem, iRet=" +
                                Signed(0x81000001) + "."}}));
}

} // namespace
} // namespace bmctest
