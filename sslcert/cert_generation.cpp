// A new RSA key and self-signed certificate from a validated generation
// request, made with the openssl tool and installed as the user certificate.
#include <unistd.h>

#include <cstring>
#include <utility>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr size_t kCommandSize = 256;

// A field that would start a new line of the request configuration. The
// request check admits no such field; a direct caller may pass one.
[[nodiscard]] bool BreaksLine(const char *text) {
    return std::strpbrk(text, "\r\n") != nullptr;
}

// The request's texts, each read no further than its field.
struct RequestTexts {
    explicit RequestTexts(const SSLCertGenParam &request)
        : country(request.szCountryCode), state(request.szStateName),
          locality(request.szLocalityName), organisation(request.szOrganisation),
          unit(request.szOrganisationUnit), commonName(request.szCommonName),
          email(request.szEmailAddress) {}

    // The name of the first text that holds a line break, or null.
    [[nodiscard]] const char *LineBreakField() const {
        const std::pair<const char *, const char *> fields[] = {
            {"C", country.c_str()},         {"ST", state.c_str()}, {"L", locality.c_str()},
            {"O", organisation.c_str()},    {"OU", unit.c_str()},  {"CN", commonName.c_str()},
            {"emailAddress", email.c_str()}};
        for (const auto &[name, text] : fields)
            if (BreaksLine(text)) return name;
        return nullptr;
    }

    FieldText<sizeof SSLCertGenParam::szCountryCode> country;
    FieldText<sizeof SSLCertGenParam::szStateName> state;
    FieldText<sizeof SSLCertGenParam::szLocalityName> locality;
    FieldText<sizeof SSLCertGenParam::szOrganisation> organisation;
    FieldText<sizeof SSLCertGenParam::szOrganisationUnit> unit;
    FieldText<sizeof SSLCertGenParam::szCommonName> commonName;
    FieldText<sizeof SSLCertGenParam::szEmailAddress> email;
};

// Writes the request configuration from texts that hold no line break.
uint32_t WriteRequestConfig(FILE *conf, const RequestTexts &request) {
    if (std::fprintf(conf, "[req]\ndistinguished_name = req_distinguished_name\nprompt = no\n") <
        0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Error encountered writing req to conf file during ssl csr gen\n");
        return SSLCERT_ERR_GENERAL;
    }
    if (std::fprintf(conf, "[ req_distinguished_name ]\n") < 0) {
        BMCCERT_DIAG(kLevelFailure, "Error encountered writing req_distinguished_name to conf "
                                    "file  during ssl csr gen\n");
        return SSLCERT_ERR_GENERAL;
    }
    if (std::fprintf(conf,
                     " C = %s\n ST = %s\n L = %s\n O = %s\nOU = %s\nCN = %s\nemailAddress = %s\n",
                     request.country.c_str(), request.state.c_str(), request.locality.c_str(),
                     request.organisation.c_str(), request.unit.c_str(), request.commonName.c_str(),
                     request.email.c_str()) < 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Error encountered writing C/ST.. to conf file  during ssl csr gen\n");
        return SSLCERT_ERR_GENERAL;
    }
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_ConfFile_Check(const SSLCertGenParam *pstSSLCert) {
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_ERR_NULL_POINTER);
    const RequestTexts texts(*pstSSLCert);
    if (const char *field = texts.LineBreakField(); field != nullptr) {
        BMCCERT_DIAG(kLevelFailure, "SSL request conf field %s holds a line break!\n", field);
        return SSLCERT_ERR_GENERAL;
    }
    const InstallationLock installing;
    if (!installing.Held()) return SSLCERT_ERR_GENERAL;

    // Created this call's own in the private directory, so that the stream
    // opened by name below writes into it and nowhere else.
    if (!MakeScratchDirPrivate() || !CreateScratchFile(kRequestConfigPath)) {
        BMCCERT_DIAG(kLevelFailure, "Open ssl request conf file %s failed!\n", kRequestConfigPath);
        return SSLCERT_ERR_FILE_OPEN;
    }
    StdioFile conf(kRequestConfigPath, "w");
    if (!conf.IsOpen()) {
        BMCCERT_DIAG(kLevelFailure, "Open ssl request conf file %s failed!\n", kRequestConfigPath);
        return SSLCERT_ERR_FILE_OPEN;
    }
    if (const uint32_t result = WriteRequestConfig(conf.get(), texts); result != 0) {
        conf.Close();
        return result;
    }
    conf.Close();

    if (access(kExtensionFilePath, F_OK) != 0) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert extension file %s is not exist!\n",
                     kExtensionFilePath);
        return SSLCERT_ERR_EXT_FILE_MISSING;
    }
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SECURITY_GenCert(const SSLCertGenParam *pstSSLCert) {
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_ERR_NULL_POINTER);

    if (SECURITY_SSL_GenSSLCert_Check(pstSSLCert) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Gen cert check data failed!\n");
        return SSLCERT_ERR_GEN_REQUEST;
    }
    const InstallationLock installing;
    if (!installing.Held()) return SSLCERT_ERR_GENERAL;
    if (const uint32_t result = SECURITY_SSL_ConfFile_Check(pstSSLCert); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Gen cert conf file check failed! iRet = %d.\n", result);
        return SSLCERT_ERR_GENERAL;
    }

    // The tool writes by name and follows links: the key goes into a file
    // created 0600 for it, the request and the certificate into names no
    // stale entry holds (ConfFile_Check made the directory private).
    if (!CreateScratchFile(kGenKeyPath) || !RemoveStaleScratch(kSigningRequestPath) ||
        !RemoveStaleScratch(kGenCertPath)) {
        BMCCERT_DIAG(kLevelFailure, "Error creating privkey key and csr!\n");
        return SSLCERT_ERR_GENERAL;
    }

    // Every word of both command lines is a number or a fixed path.
    char command[kCommandSize] = {};
    (void)BMC_Scnprintf(
        command, sizeof command, "openssl req -newkey rsa:%d -keyout %s -out %s -config %s -nodes",
        pstSSLCert->uiKeyLength, kGenKeyPath, kSigningRequestPath, kRequestConfigPath);
    if (BMC_System(command) == BMC_PLATFORM_FAIL) {
        BMCCERT_DIAG(kLevelFailure, "Error creating privkey key and csr!\n");
        return SSLCERT_ERR_GENERAL;
    }

    (void)BMC_Scnprintf(command, sizeof command,
                        "openssl x509 -req -days %d -in %s -signkey %s -sha256 -extfile %s -out %s",
                        pstSSLCert->uiValidDays, kSigningRequestPath, kGenKeyPath,
                        kExtensionFilePath, kGenCertPath);
    if (BMC_System(command) == BMC_PLATFORM_FAIL) {
        BMCCERT_DIAG(kLevelFailure, "Error creating certificate!\n");
        return SSLCERT_ERR_GENERAL;
    }

    if (const uint32_t result = SECURITY_SSL_UpdateSSLCert(kGenCertPath, kGenKeyPath);
        result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert gen update failed! iRet=%d.\n", result);
        return SSLCERT_ERR_GENERAL;
    }
    return SSLCERT_OK;
}
