// cert-login: login by client certificate, as a CGI program of the web
// server. The example of wiring the library into a web server:
//
//   1. The web server asks HTTPS clients for a certificate, verifies it
//      against its ssl.ca-file and hands the outcome to this program
//      (SSL_CLIENT_VERIFY) with the certificate itself (SSL_CLIENT_CERT).
//   2. Only a verified certificate goes on: its serial number, written as
//      the records hold it (`openssl x509 -serial`), is looked up with
//      LIB_SSL_GetNamePwdBySerial, which also asks the OCSP responder when
//      revocation checking is on.
//   3. 200 with the user's name, or 403 with the reason. The password is
//      what a real login would hand to its session code; here it is only
//      wiped.
#include <openssl/bio.h>
#include <openssl/crypto.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "lib_ssl_auth.h"

namespace {

struct BioFree {
    void operator()(BIO *bio) const { BIO_free(bio); }
};
struct X509Free {
    void operator()(X509 *cert) const { X509_free(cert); }
};

int Answer(int status, const std::string &body) {
    std::printf("Status: %d %s\r\nContent-Type: text/plain\r\nCache-Control: no-store\r\n\r\n%s\n",
                status, status == 200 ? "OK" : "Forbidden", body.c_str());
    return std::fflush(stdout) == 0 ? 0 : 1;
}

// The serial number of a PEM certificate as `openssl x509 -serial` prints it
// (upper-case hexadecimal, whole bytes), which is how the records hold it.
std::string SerialOf(const char *pem) {
    std::unique_ptr<BIO, BioFree> in(BIO_new_mem_buf(pem, -1));
    std::unique_ptr<X509, X509Free> cert(
        in ? PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr) : nullptr);
    std::unique_ptr<BIO, BioFree> out(BIO_new(BIO_s_mem()));
    if (!cert || !out || i2a_ASN1_INTEGER(out.get(), X509_get0_serialNumber(cert.get())) <= 0)
        return {};
    char *text = nullptr;
    const long length = BIO_get_mem_data(out.get(), &text);
    return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
}

} // namespace

int main() {
    if (LIB_SSL_IsEnableCertAuth() != 1) return Answer(403, "certificate login is off");
    const char *verified = std::getenv("SSL_CLIENT_VERIFY");
    const char *pem = std::getenv("SSL_CLIENT_CERT");
    // A missing or foreign certificate never reaches the library.
    if (verified == nullptr || std::strcmp(verified, "SUCCESS") != 0 || pem == nullptr)
        return Answer(403, "no verified client certificate");
    const std::string serial = SerialOf(pem);
    if (serial.empty()) return Answer(403, "unreadable client certificate");

    char name[33] = {};
    char password[41] = {};
    const uint32_t result = LIB_SSL_GetNamePwdBySerial(serial.c_str(), sizeof name, name,
                                                       sizeof password, password);
    OPENSSL_cleanse(password, sizeof password);
    if (result != 0) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", result);
        return Answer(403, code);
    }
    return Answer(200, name);
}
