// The health of the controller's certificates as one record of findings:
// what each service serves against the certificate in force, the
// installed pair, the certificate's fitness and the days left of it, of
// the trusted roots and of the client certificates.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "frame/bounded_file.h"
#include "frame/cert_texts.h"
#include "frame/cert_type_names.h"
#include "frame/record_file_name.h"
#include "frame/unique_fd.h"
#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"
#include "platform/controller_paths.h"
#include "sslcert/health_internal.h"
#include "sslcert/sslcert_internal.h"

namespace bmccert::health {
namespace {

using namespace controller_paths;

constexpr uint32_t kDefaultTimeoutMs = 2000;
constexpr uint32_t kMaxTimeoutMs = 30000;
UniquePtr<X509> ReadCertificate(int directory, const char *name) {
    return ReadCertificateFile(OpenBounded(directory, name));
}

UniquePtr<X509> ReadCertificate(const std::string &path) {
    return ReadCertificate(AT_FDCWD, path.c_str());
}

UniquePtr<EVP_PKEY> ReadKey(const std::string &path) {
    std::string bytes = ReadAll(OpenBounded(AT_FDCWD, path.c_str()));
    const UniquePtr<BIO> bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    // A key protected by a pass phrase is unreadable here, never a prompt.
    UniquePtr<EVP_PKEY> key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr,
                                                          sslcert::SupplyNoPassphrase, nullptr)
                                : nullptr);
    OPENSSL_cleanse(bytes.data(), bytes.size());
    ERR_clear_error();
    return key;
}

std::string ReadText(const char *path) {
    return ReadAll(OpenBounded(AT_FDCWD, path));
}

std::string CodeText(uint32_t code) {
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(code));
    return text;
}

struct InForce {
    UniquePtr<X509> cert;
    std::string certPath;
    std::string keyPath;
    uint32_t type = 0;
};

// The certificate the location rule puts in force, or the fault that says
// why there is none.
InForce FindInForce(SSLHealthRecord &record) {
    constexpr uint32_t kKind = SSLCERT_EXT_FINDING_IN_FORCE;
    InForce found;
    found.type = LIB_SECURITY_GetCertType();
    if (found.type == SSL_CERT_TYPE_NONE) {
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kKind, "certificate",
                     "no certificate in force (type 0)"});
        return found;
    }
    sslcert::CertKeyPaths paths;
    const uint32_t result = LIB_SECURITY_GetSSLCertKeyPath(found.type, sizeof paths.cert,
                                                           sizeof paths.key, paths.cert, paths.key);
    if (result != SSLCERT_OK) {
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kKind, "certificate",
                     "no paths for type " + std::to_string(found.type) + ": " + CodeText(result)});
        return found;
    }
    found.certPath = paths.cert;
    found.keyPath = paths.key;
    found.cert = ReadCertificate(found.certPath);
    if (!found.cert)
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kKind, "certificate",
                     found.certPath + " (type " + std::to_string(found.type) +
                         ") holds no readable certificate"});
    return found;
}

struct Service {
    uint32_t kind;
    const char *subject;
    const char *unit;
    const char *config;
    std::optional<int> (*port)(std::string_view);
};

const Service kTunnel{SSLCERT_EXT_FINDING_TUNNEL_SERVES, "tunnel", "stunnel.service",
                      kTunnelConfigPath, TunnelPort};
const Service kWebServer{SSLCERT_EXT_FINDING_WEB_SERVES, "web server", "lighttpd.service",
                         kWebServerConfigPath, WebTlsPort};

// The port to probe a service at: the one given, else its configuration's;
// a fault finding when there is none.
std::optional<int> ServicePort(const Service &service, uint32_t givenPort,
                               std::optional<Finding> &fault) {
    if (givenPort != 0 && givenPort <= 65535) return static_cast<int>(givenPort);
    std::optional<int> port;
    if (givenPort == 0) port = service.port(ReadText(service.config));
    if (!port)
        fault = Finding{SSLCERT_EXT_SEVERITY_FAULT, service.kind, service.subject,
                        givenPort != 0 ? "port " + std::to_string(givenPort) + " is no TCP port"
                                       : std::string("no TLS port found in ") + service.config};
    return port;
}

Finding ServedFinding(const Service &service, int port, const ProbeResult &probe,
                      X509 *inForce) {
    const auto fault = [&](std::string text) {
        return Finding{SSLCERT_EXT_SEVERITY_FAULT, service.kind, service.subject, std::move(text)};
    };
    const std::string where = "port " + std::to_string(port);
    const std::string restart = std::string(": restart ") + service.unit;
    if (!probe.cert) return fault(where + ": " + probe.reason + (probe.refused ? restart : ""));
    const std::string served = SerialText(probe.cert.get());
    if (inForce == nullptr)
        return fault("serves serial " + served + " (" + where +
                     "); there is no certificate in force to compare it with");
    if (SameCertificate(probe.cert.get(), inForce))
        return {SSLCERT_EXT_SEVERITY_OK, service.kind, service.subject,
                "serves the certificate in force, serial " + served + " (" + where + ")"};
    std::string text = "serves serial " + served + " (" + where +
                       "), the certificate in force is serial " + SerialText(inForce);
    if (served == SerialText(inForce))
        text += " too, but they differ: served SHA-256 " + Fingerprint(probe.cert.get()) +
                ", in force " + Fingerprint(inForce);
    return fault(text + restart);
}

// Both services, probed at once.
void CheckServices(const SSLHealthProbe &probe, X509 *inForce, SSLHealthRecord &record) {
    const uint32_t timeoutMs =
        std::min(probe.uiTimeoutMs == 0 ? kDefaultTimeoutMs : probe.uiTimeoutMs, kMaxTimeoutMs);
    const std::array<const Service *, 2> services{&kTunnel, &kWebServer};
    const std::array<uint32_t, 2> given{probe.uiTunnelPort, probe.uiWebPort};
    std::array<std::optional<Finding>, 2> faults;
    std::array<std::optional<int>, 2> ports;
    for (size_t i = 0; i < 2; ++i) ports[i] = ServicePort(*services[i], given[i], faults[i]);
    // A service without a port is probed nowhere: port 0 refuses at once.
    const std::array<ProbeResult, 2> probes = ProbeServedCertificates(
        ProbeContext(), {ports[0].value_or(0), ports[1].value_or(0)},
        std::chrono::milliseconds(timeoutMs));
    for (size_t i = 0; i < 2; ++i)
        Add(record, faults[i] ? *faults[i]
                              : ServedFinding(*services[i], *ports[i], probes[i], inForce));
}

void CheckInstalledFiles(const InForce &inForce, SSLHealthRecord &record) {
    constexpr uint32_t kPair = SSLCERT_EXT_FINDING_PAIR;
    constexpr uint32_t kCombined = SSLCERT_EXT_FINDING_COMBINED;
    const std::string certInForce = inForce.certPath + " (type " + std::to_string(inForce.type) +
                                    ' ' + std::string(CertTypeName(inForce.type)) + ')';
    const UniquePtr<EVP_PKEY> key = ReadKey(inForce.keyPath);
    if (!key)
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kPair, "pair",
                     "cannot read the key " + inForce.keyPath +
                         " (missing, not PEM, or protected by a pass phrase)"});
    else if (X509_check_private_key(inForce.cert.get(), key.get()) != 1)
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kPair, "pair",
                     "the key " + inForce.keyPath + " does not belong to the certificate " +
                         certInForce + ": the services cannot load the pair"});
    else
        Add(record, {SSLCERT_EXT_SEVERITY_OK, kPair, "pair",
                     "the key " + inForce.keyPath + " belongs to the certificate " + certInForce});
    ERR_clear_error();

    const UniquePtr<X509> combined = ReadCertificate(kCombinedPath);
    if (!combined)
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kCombined, kCombinedPath,
                     "holds no certificate: the web server cannot start"});
    else if (!SameCertificate(combined.get(), inForce.cert.get()))
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kCombined, kCombinedPath,
                     "starts with serial " + SerialText(combined.get()) +
                         ", not the certificate in force (serial " +
                         SerialText(inForce.cert.get()) +
                         "): the web server serves it at its next restart"});
    else
        Add(record, {SSLCERT_EXT_SEVERITY_OK, kCombined, kCombinedPath,
                     "starts with the certificate in force"});
}

struct DirCloser {
    void operator()(DIR *dir) const noexcept { (void)::closedir(dir); }
};

// Every plain file of a directory of trusted or client certificates, in
// name order, each opened inside the directory without following a link;
// a directory that does not exist holds none.
void CheckDirectory(uint32_t kind, const char *directory, SSLHealthRecord &record) {
    const UniqueFd dirFd(::open(directory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dirFd.Valid()) return;
    std::vector<std::string> names;
    {
        const int listFd = ::dup(dirFd.Get());
        const std::unique_ptr<DIR, DirCloser> dir(listFd >= 0 ? ::fdopendir(listFd) : nullptr);
        if (!dir) {
            if (listFd >= 0) (void)::close(listFd);
            return;
        }
        while (const dirent *entry = ::readdir(dir.get())) {
            if (entry->d_name[0] == '.') continue;
            struct stat st {};
            if (::fstatat(dirFd.Get(), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
                S_ISREG(st.st_mode))
                names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    for (const std::string &name : names) {
        // The roots' revocation lists lie beside them: the revocation
        // findings report those.
        if (name.ends_with(".crl")) continue;
        const std::string path = std::string(directory) + name; // the directory ends in '/'
        const UniquePtr<X509> cert = ReadCertificate(dirFd.Get(), name.c_str());
        if (!cert)
            Add(record, {SSLCERT_EXT_SEVERITY_WARNING, kind, path, "not a certificate: skipped"});
        else
            Add(record, ValidityFinding(kind, path, cert.get()));
    }
}

// A record's file name as a finding shows it: bytes outside printable
// ASCII as \xNN, cut to its field.
template <size_t N> std::string ShownName(const char (&field)[N]) {
    std::string shown;
    for (size_t i = 0; i < N && field[i] != '\0'; ++i) {
        const auto byte = static_cast<unsigned char>(field[i]);
        if (byte >= 0x20u && byte < 0x7Fu) {
            shown += field[i];
            continue;
        }
        char escape[5];
        (void)std::snprintf(escape, sizeof escape, "\\x%02X", byte);
        shown += escape;
    }
    return shown;
}

// A record whose name leaves its directory, or names no readable
// certificate, is a fault: revocation, login and deletion refuse it.
template <size_t N>
void CheckRecordFile(uint32_t kind, const char *subject, uint32_t id, const char *directory,
                     const char (&name)[N], SSLHealthRecord &record) {
    const std::string who = std::string(subject) + " " + std::to_string(id);
    // Appended piece by piece: GCC 12 warns (falsely) about a concatenation
    // that starts with a literal in an optimised build.
    std::string shown(1, '"');
    shown += ShownName(name);
    shown += '"';
    if (!IsPlainFileName(name)) {
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kind, who,
                     "names the file " + shown +
                         ", which is no plain name in its directory: the record is refused"});
        return;
    }
    const UniqueFd fd = OpenPlainFileIn(directory, std::string_view(name));
    if (!fd.Valid()) {
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kind, who,
                     "names " + std::string(directory) + ShownName(name) +
                         ", which is missing or not a plain file"});
        return;
    }
    if (!ReadCertificateFile(fd))
        Add(record, {SSLCERT_EXT_SEVERITY_FAULT, kind, who,
                     "names " + std::string(directory) + ShownName(name) +
                         ", which holds no readable certificate"});
}

void CheckRecords(SSLHealthRecord &record) {
    auto roots = std::make_unique<RootCertList>();
    if (LIB_SSL_GetRootCertList(roots.get()) == 0)
        for (const RootCertInfo &root : roots->astRootCert)
            if (root.uiCertId != 0)
                CheckRecordFile(SSLCERT_EXT_FINDING_ROOT_RECORD, "root record", root.uiCertId,
                                kRootCertDir, root.szFileName, record);
    auto clients = std::make_unique<CliCertList>();
    if (LIB_SSL_GetClientCertList(clients.get()) == 0)
        for (const CliCertInfo &client : clients->astCliCert)
            if (client.uiCertId != 0)
                CheckRecordFile(SSLCERT_EXT_FINDING_CLIENT_RECORD, "client record",
                                client.uiCertId, kClientCertDir, client.szFileName, record);
}

// While revocation checking is on: whether its answers are verified. And
// every root's list that is past its next update, whatever the method.
void CheckRevocation(SSLHealthRecord &record) {
    auto state = std::make_unique<SSLRevocationState>();
    if (LIB_SECURITY_SSL_GetRevocationState(state.get()) != 0) return;
    uint8_t checking = 0;
    if (LIB_SSL_GetCertRevokeCheck(&checking) == 0 && checking == 1 &&
        state->stPolicy.uiMethod == SSLCERT_EXT_REVOCATION_COMMAND)
        Add(record, {SSLCERT_EXT_SEVERITY_WARNING, SSLCERT_EXT_FINDING_REVOCATION, "revocation",
                     "OCSP answers are not verified: whoever answers for the responder's address "
                     "can let a revoked certificate in (choose the ocsp or crl method)"});
    const auto now = static_cast<int64_t>(std::time(nullptr));
    for (uint32_t i = 0; i < state->uiCrlCount; ++i) {
        const SSLCrlSummary &crl = state->astCrl[i];
        if (crl.llNextUpdate != 0 && crl.llNextUpdate <= now)
            Add(record, {SSLCERT_EXT_SEVERITY_WARNING, SSLCERT_EXT_FINDING_REVOCATION,
                         "root " + std::to_string(crl.uiRootCertId),
                         "its revocation list is past its next update: fetch or add a new one"});
    }
}

// Where the certificate comes from an ACME CA: when it is renewed next
// and how the last attempt went; a failing renewal is a warning.
void CheckEnrolment(SSLHealthRecord &record) {
    auto settings = std::make_unique<SSLAcmeEnrollment>();
    auto status = std::make_unique<SSLAcmeStatus>();
    if (LIB_SECURITY_SSL_AcmeGetEnrollment(settings.get(), status.get()) != 0) return;
    const bool ordering = status->uiLastOperation == SSLCERT_EXT_ACME_OP_ENROLL ||
                          status->uiLastOperation == SSLCERT_EXT_ACME_OP_RENEW;
    if (settings->ucEnabled != 1 && status->llNextRenewal == 0 && !ordering) return;
    Finding finding{SSLCERT_EXT_SEVERITY_OK, SSLCERT_EXT_FINDING_ENROLMENT, "enrolment", ""};
    std::string &text = finding.text;
    if (settings->ucEnabled != 1)
        text = "automatic renewal is off";
    else if (status->ucAccountState != SSLCERT_EXT_ACME_ACCOUNT_VALID)
        text = "automatic renewal is on but no account is registered with the CA";
    else
        text = status->llNextRenewal != 0 ? "next renewal " + UtcText(status->llNextRenewal)
                                          : "renewal due now (no certificate from the CA)";
    if (ordering) {
        const bool failed = status->uiLastResult != 0;
        text += "; last attempt " + UtcText(status->llLastOperationTime) +
                (failed ? " failed (" + CodeText(status->uiLastResult) + ", " +
                              std::to_string(status->uiFailures) + " in a row)"
                        : " succeeded");
        if (failed && status->llNextAttempt != 0)
            text += "; next attempt after " + UtcText(status->llNextAttempt);
        if (failed) finding.severity = SSLCERT_EXT_SEVERITY_WARNING;
    }
    if (settings->ucEnabled == 1 && status->ucAccountState != SSLCERT_EXT_ACME_ACCOUNT_VALID)
        finding.severity = SSLCERT_EXT_SEVERITY_WARNING;
    Add(record, finding);
}

std::string HostName() {
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0) return {};
    return name;
}

void Check(const SSLHealthProbe *probe, SSLHealthRecord &record) {
    std::memset(&record, 0, sizeof record);
    const InForce inForce = FindInForce(record);
    if (probe != nullptr) CheckServices(*probe, inForce.cert.get(), record);
    if (inForce.cert) {
        CheckInstalledFiles(inForce, record);
        Add(record, KeyStrengthFinding(inForce.cert.get()));
        Add(record, SignatureFinding(inForce.cert.get()));
        Add(record, NamesFinding(inForce.cert.get()));
        if (auto host = HostNameFinding(inForce.cert.get(), HostName())) Add(record, *host);
        Add(record,
            ValidityFinding(SSLCERT_EXT_FINDING_VALIDITY, "certificate", inForce.cert.get()));
    }
    CheckDirectory(SSLCERT_EXT_FINDING_ROOT_VALIDITY, kRootCertDir, record);
    CheckDirectory(SSLCERT_EXT_FINDING_CLIENT_VALIDITY, kClientCertDir, record);
    CheckRecords(record);
    CheckRevocation(record);
    CheckEnrolment(record);
    ERR_clear_error();
}

// Copies text into a field, ending it inside; a text that does not fit
// ends in "..." at a character boundary, so that what is shown is never
// mistaken for the whole.
template <size_t N> void PutText(char (&field)[N], const std::string &text) {
    if (text.size() < N) {
        std::memcpy(field, text.data(), text.size());
        field[text.size()] = '\0';
        return;
    }
    size_t keep = N - 4;
    while (keep > 0 && (static_cast<unsigned char>(text[keep]) & 0xC0u) == 0x80u) --keep;
    std::memcpy(field, text.data(), keep);
    std::memcpy(field + keep, "...", 4);
}

} // namespace

void Add(SSLHealthRecord &record, const Finding &finding) {
    if (finding.severity == SSLCERT_EXT_SEVERITY_FAULT) ++record.uiFaults;
    if (finding.severity == SSLCERT_EXT_SEVERITY_WARNING) ++record.uiWarnings;
    if (record.uiCount == SSLCERT_EXT_HEALTH_MAX_FINDINGS) {
        ++record.uiOmitted;
        return;
    }
    SSLHealthFinding &out = record.astFindings[record.uiCount++];
    out.uiSeverity = finding.severity;
    out.uiKind = finding.kind;
    out.iDaysLeft = finding.daysLeft;
    PutText(out.szSubject, finding.subject);
    PutText(out.szText, finding.text);
}

} // namespace bmccert::health

using namespace bmccert;

extern "C" uint32_t LIB_SECURITY_SSL_CheckHealth(const SSLHealthProbe *pstProbe,
                                                 SSLHealthRecord *pstRecord) {
    using namespace bmccert::sslcert;
    BMCCERT_CHECK_NULL(pstRecord, SSLCERT_ERR_NULL_POINTER);
    const SSLHealthProbe defaults{};
    health::Check(pstProbe != nullptr ? pstProbe : &defaults, *pstRecord);
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SECURITY_SSL_CheckHealthOffline(SSLHealthRecord *pstRecord) {
    using namespace bmccert::sslcert;
    BMCCERT_CHECK_NULL(pstRecord, SSLCERT_ERR_NULL_POINTER);
    health::Check(nullptr, *pstRecord);
    return SSLCERT_OK;
}
