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

TEST_F(UploadValidateTest, SizesAreLimitedTo8191BytesEach) {
    const std::string cert = MakeCertPem({});
    const std::string key = KeyPem(KeyKind::Rsa2048);
    EXPECT_EQ(Validate(PaddedTo(cert, 8191), PaddedTo(key, 8191)), 0u) << Describe(ReadDiagLog());
    EXPECT_EQ(Validate(PaddedTo(cert, 8192), key), 0x98000005u);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2, "Cert /var/certs/actualcert.pem stat size exceeds!"},
            {31, 3, 2, "SSL verify file size failed! iRet = " + Signed(0x98000005) + ".\n"}}));
    EXPECT_EQ(Validate(cert, PaddedTo(key, 8192)), 0x98000005u);
    EXPECT_EQ(ReadDiags().front().message,
              "Privkey /var/certs/actualprivkey.pem stat size exceeds!");

    EXPECT_EQ(Validate(cert, ""), 0x81000001u);
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].message.rfind("Get privkey file size failed!Err:", 0), 0u);
    EXPECT_EQ(diags[1].message,
              "SSL verify file size failed! iRet = " + Signed(0x81000001) + ".\n");
}

TEST_F(UploadValidateTest, EachStepRefusesWithItsCodeAndMessages) {
    RemoveFile(kCert);
    RemoveFile(kKey);
    EXPECT_EQ(SECURITY_SSL_ValidateSSLCert(), 0x98000009u);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2, "File /var/certs/actualcert.pem is not exist!\n"},
            {31, 3, 2, "SSL verify file exist failed! iRet = " + Signed(0x98000009) + ".\n"}}));

    const std::string cert = MakeCertPem({});
    EXPECT_EQ(Validate(cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Pkcs8)), 0x98000006u);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  {31, 3, 2,
                   "The certificate is encrypted.  PEM pass phrase encrypted certificates are not "
                   "supported.  Please upload unencrypted certificates.\n"},
                  {31, 3, 2,
                   "SSL verify private key file encrypted status failed! iRet = " +
                       Signed(0x98000006) + ".\n"}}));

    // Only the first line is scanned: the older form passes that step and
    // is refused when read, since no pass phrase is ever supplied.
    EXPECT_EQ(Validate(cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Legacy)),
              0x81000001u);
    const auto legacy = ReadDiags();
    ASSERT_GE(legacy.size(), 3u);
    EXPECT_EQ(
        std::vector<Diag>(legacy.end() - 3, legacy.end()),
        (std::vector<Diag>{
            {31, 3, 4, "Failed to read private key."},
            {31, 3, 4, "Failed to verify cert and privatekey, iRet=" + Signed(0x81000001) + "."},
            {31, 3, 2, "Error in validating the CombinedTmpCert::" + Signed(0x81000001)}}));

    CertRecipe md5;
    md5.digest = "MD5";
    EXPECT_EQ(Validate(MakeCertPem(md5), KeyPem(KeyKind::Rsa2048)), 0x9800000Au);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  {31, 3, 6, "Valid SSL certificate \n"},
                  {31, 3, 2, "Signature algorithm should not be md5."},
                  {31, 3, 2,
                   "Failed to verify Upload TMP certificate. iRet=" + Signed(0x9800000A) + ".\n"},
                  {31, 3, 2, "Error in validating the SSL Certificate::" + Signed(0x9800000A)}}));

    // A pair that does not belong together reads fine and is refused by the
    // TLS context alone.
    EXPECT_EQ(Validate(cert, KeyPem(KeyKind::Rsa1024)), 0x98000007u);
    const auto mismatch = ReadDiags();
    ASSERT_FALSE(mismatch.empty());
    EXPECT_EQ(mismatch.back().level, 4u);
    EXPECT_EQ(mismatch.back().message, "SSL CTX use privateKey file failed!\n");
    // Validation never removes the files it checked.
    EXPECT_EQ(access("/var/certs/TmpCombinedCert.pem", F_OK), 0);
    EXPECT_EQ(access(kKey, F_OK), 0);
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
