#include "health_check.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "cert_findings.h"
#include "cert_type.h"
#include "findings.h"
#include "lib_security_sslcert.h"
#include "openssl_owners.h"
#include "output.h"
#include "service_ports.h"
#include "tls_probe.h"
#include "frame/field_text.h"
#include "platform/controller_paths.h"

namespace bmccert::cli {
namespace {

using namespace controller_paths;

constexpr auto kProbeTimeout = std::chrono::seconds(2);

// The first certificate of a file, PEM (other blocks, keys included, are
// passed over unread) or DER.
X509Owner ReadCertificate(const std::string &path) {
    const BioOwner bio(BIO_new_file(path.c_str(), "rb"));
    if (!bio) return {};
    X509Owner cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    if (!cert && BIO_reset(bio.get()) == 0) cert.reset(d2i_X509_bio(bio.get(), nullptr));
    ERR_clear_error();
    return cert;
}

// A key protected by a pass phrase is unreadable here, never a prompt.
int NoPassphrase(char *, int, int, void *) {
    return -1;
}

PkeyOwner ReadKey(const std::string &path) {
    const BioOwner bio(BIO_new_file(path.c_str(), "rb"));
    PkeyOwner key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, NoPassphrase, nullptr)
                      : nullptr);
    ERR_clear_error();
    return key;
}

std::string ReadText(const char *path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

struct InForce {
    X509Owner cert;
    std::string certPath;
    std::string keyPath;
    uint32_t type = 0;
};

// The certificate the library's location rule puts in force, or the fault
// that says why there is none.
InForce FindInForce(std::vector<Finding> &findings) {
    InForce found;
    found.type = LIB_SECURITY_GetCertType();
    if (found.type == 0) {
        findings.push_back({Severity::kFault, "certificate", "no certificate in force (type 0)"});
        return found;
    }
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
    const uint32_t result =
        LIB_SECURITY_GetSSLCertKeyPath(found.type, sizeof cert, sizeof key, cert, key);
    if (result != SSLCERT_OK) {
        char code[16];
        (void)std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
        findings.push_back({Severity::kFault, "certificate",
                            "no paths for type " + std::to_string(found.type) + ": " + code});
        return found;
    }
    found.certPath = FieldView(cert);
    found.keyPath = FieldView(key);
    found.cert = ReadCertificate(found.certPath);
    if (!found.cert)
        findings.push_back({Severity::kFault, "certificate",
                            found.certPath + " (type " + std::to_string(found.type) +
                                ") holds no readable certificate"});
    return found;
}

struct Service {
    const char *subject;
    const char *unit;
    const char *config;
    std::optional<int> (*port)(std::string_view);
    const char *option;
};

const Service kTunnel{"tunnel", "stunnel.service", kTunnelConfigPath, TunnelPort, "--tunnel-port"};
const Service kWebServer{"web server", "lighttpd.service", kWebServerConfigPath, WebTlsPort,
                         "--web-port"};

Finding ServedFinding(const Service &service, std::optional<int> port, X509 *inForce) {
    if (!port) port = service.port(ReadText(service.config));
    if (!port)
        return {Severity::kFault, service.subject,
                std::string("no TLS port found in ") + service.config + "; give " + service.option};
    const std::string where = "port " + std::to_string(*port);
    const std::string restart = std::string(": restart ") + service.unit;
    const ProbeResult probe = ProbeServedCertificate(*port, kProbeTimeout);
    if (!probe.cert)
        return {Severity::kFault, service.subject,
                where + ": " + probe.reason + (probe.refused ? restart : "")};
    const std::string served = SerialText(probe.cert.get());
    if (inForce == nullptr)
        return {Severity::kFault, service.subject,
                "serves serial " + served + " (" + where +
                    "); there is no certificate in force to compare it with"};
    if (SameCertificate(probe.cert.get(), inForce))
        return {Severity::kOk, service.subject,
                "serves the certificate in force, serial " + served + " (" + where + ")"};
    std::string text = "serves serial " + served + " (" + where +
                       "), the certificate in force is serial " + SerialText(inForce);
    if (served == SerialText(inForce)) {
        text += " too, but they differ: served SHA-256 " + Fingerprint(probe.cert.get()) +
                ", in force " + Fingerprint(inForce);
    }
    return {Severity::kFault, service.subject, text + restart};
}

void CheckInstalledFiles(const InForce &inForce, std::vector<Finding> &findings) {
    const std::string certInForce = inForce.certPath + " (type " + std::to_string(inForce.type) +
                                    ' ' + std::string(CertTypeName(inForce.type)) + ')';
    const PkeyOwner key = ReadKey(inForce.keyPath);
    if (!key)
        findings.push_back({Severity::kFault, "pair",
                            "cannot read the key " + inForce.keyPath +
                                " (missing, not PEM, or protected by a pass phrase)"});
    else if (X509_check_private_key(inForce.cert.get(), key.get()) != 1)
        findings.push_back({Severity::kFault, "pair",
                            "the key " + inForce.keyPath + " does not belong to the certificate " +
                                certInForce + ": the services cannot load the pair"});
    else
        findings.push_back(
            {Severity::kOk, "pair",
             "the key " + inForce.keyPath + " belongs to the certificate " + certInForce});
    ERR_clear_error();

    const X509Owner combined = ReadCertificate(kCombinedPath);
    if (!combined)
        findings.push_back(
            {Severity::kFault, kCombinedPath, "holds no certificate: the web server cannot start"});
    else if (!SameCertificate(combined.get(), inForce.cert.get()))
        findings.push_back({Severity::kFault, kCombinedPath,
                            "starts with serial " + SerialText(combined.get()) +
                                ", not the certificate in force (serial " +
                                SerialText(inForce.cert.get()) +
                                "): the web server serves it at its next restart"});
    else
        findings.push_back({Severity::kOk, kCombinedPath, "starts with the certificate in force"});
}

// Every file of a directory of trusted or client certificates, in name
// order; a directory that does not exist holds none.
void CheckDirectory(const char *directory, std::vector<Finding> &findings) {
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator it(directory, error), end; !error && it != end;
         it.increment(error)) {
        if (it->is_regular_file(error)) paths.push_back(it->path().string());
    }
    std::sort(paths.begin(), paths.end());
    for (const std::string &path : paths) {
        const X509Owner cert = ReadCertificate(path);
        if (!cert)
            findings.push_back({Severity::kWarning, path, "not a certificate: skipped"});
        else
            findings.push_back(ValidityFinding(path, cert.get()));
    }
}

} // namespace

int RunCheck(const CheckOptions &options) {
    std::vector<Finding> findings;
    const InForce inForce = FindInForce(findings);
    findings.push_back(ServedFinding(kTunnel, options.tunnelPort, inForce.cert.get()));
    findings.push_back(ServedFinding(kWebServer, options.webPort, inForce.cert.get()));
    if (inForce.cert) {
        CheckInstalledFiles(inForce, findings);
        findings.push_back(KeyStrengthFinding(inForce.cert.get()));
        findings.push_back(SignatureFinding(inForce.cert.get()));
        findings.push_back(NamesFinding(inForce.cert.get()));
        findings.push_back(ValidityFinding("certificate", inForce.cert.get()));
    }
    CheckDirectory(kRootCertDir, findings);
    CheckDirectory(kClientCertDir, findings);

    const int written =
        WriteResult(options.json ? FormatFindingsJson(findings) : FormatFindingsText(findings));
    return written != kExitOk || HasFault(findings) ? kExitFailure : kExitOk;
}

} // namespace bmccert::cli
