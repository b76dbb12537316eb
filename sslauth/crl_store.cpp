// The revocation list of each trusted root: installed beside the root's
// file as "<root file>.crl", replaced whole by a rename after its data
// reached the disk, so that a power cut leaves the old list or the new.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "frame/bounded_file.h"
#include "frame/record_file_name.h"
#include "sslauth/http_exchange.h"
#include "sslauth/revocation.h"
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

constexpr mode_t kCrlMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH; // public, read by the web server

std::string CrlFileName(const RootCertInfo &root) {
    return std::string(root.szFileName, strnlen(root.szFileName, sizeof root.szFileName)) + ".crl";
}

bool WriteWhole(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// PEM whatever came in, so that the web server reads it too.
bool Install(const TrustedRoot &root, X509_CRL *crl) {
    const UniquePtr<BIO> pem(BIO_new(BIO_s_mem()));
    char *data = nullptr;
    long length = 0;
    if (!pem || PEM_write_bio_X509_CRL(pem.get(), crl) != 1 ||
        (length = BIO_get_mem_data(pem.get(), &data)) <= 0)
        return false;
    const UniqueFd dir(::open(kRootCertDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A staging name of this call's own: two installations at once each
    // complete, the later rename winning.
    static std::atomic<uint32_t> calls{0};
    const std::string name = CrlFileName(root.entry),
                      staging = "." + name + "." + std::to_string(::getpid()) + "." +
                                std::to_string(calls.fetch_add(1)) + ".new";
    UniqueFd file(dir.Valid()
                      ? ::openat(dir.Get(), staging.c_str(),
                                 O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kCrlMode)
                      : -1);
    const bool written = file.Valid() && ::fchmod(file.Get(), kCrlMode) == 0 &&
                         WriteWhole(file.Get(), {data, static_cast<size_t>(length)}) &&
                         ::fsync(file.Get()) == 0 && file.Close();
    if (!written || ::renameat(dir.Get(), staging.c_str(), dir.Get(), name.c_str()) != 0 ||
        ::fsync(dir.Get()) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Install the revocation list %s%s failed! strerrno:%s\n",
                     kRootCertDir, name.c_str(), std::strerror(errno));
        if (dir.Valid()) (void)::unlinkat(dir.Get(), staging.c_str(), 0);
        return false;
    }
    return true;
}

// The web server checks the active root's list from its own copy, which
// the record owner makes when authentication is switched on: switching on
// again with the same root hands it the new list and restarts it.
constexpr uint32_t kWebServerWaitMs = 30000; // the owner restarts the web server before it answers

uint32_t GiveWebServerList(uint32_t rootId) {
    uint32_t activeId = 0;
    if (LIB_SSL_IsEnableCertAuth() != 1 || LIB_SSL_GetActiveRootCertId(&activeId) != SSLCERT_OK ||
        activeId != rootId)
        return SSLCERT_OK;
    auto request = ZeroedRecord<CertAuthStateReq>();
    request.ucState = 1;
    request.uiRootCertId = rootId;
    const uint32_t result = CallOwner<OwnerCommand::SetAuthState>(request, kWebServerWaitMs);
    if (result == 0) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelFailure,
                 "Revocation list of root id=%u installed, but the web server did not take it, "
                 "iRet=%d.\n",
                 rootId, static_cast<int32_t>(result));
    return SSLCERT_EXT_ERR_CRL_NOT_SERVED;
}

// The first http:// distribution point that a client certificate of the
// root names.
bool FindDistributionPoint(uint32_t rootId, HttpTarget &target) {
    auto clients = std::make_unique<CliCertList>();
    if (LIB_SSL_GetClientCertList(clients.get()) != SSLCERT_OK) return false;
    for (const CliCertInfo &client : clients->astCliCert) {
        if (client.uiCertId == 0 || client.uiRootCertId != rootId) continue;
        const UniqueFd fd = OpenPlainFileIn(kClientCertDir, client.szFileName);
        const UniquePtr<X509> cert = ParseCertificate(ReadAll(fd));
        if (!cert) continue;
        auto *points = static_cast<CRL_DIST_POINTS *>(
            X509_get_ext_d2i(cert.get(), NID_crl_distribution_points, nullptr, nullptr));
        bool found = false;
        for (int i = 0; !found && i < sk_DIST_POINT_num(points); ++i) {
            const DIST_POINT *point = sk_DIST_POINT_value(points, i);
            if (point->distpoint == nullptr || point->distpoint->type != 0) continue;
            const GENERAL_NAMES *names = point->distpoint->name.fullname;
            for (int j = 0; !found && j < sk_GENERAL_NAME_num(names); ++j) {
                const GENERAL_NAME *name = sk_GENERAL_NAME_value(names, j);
                if (name->type != GEN_URI) continue;
                const ASN1_IA5STRING *uri = name->d.uniformResourceIdentifier;
                found = ParseHttpUrl(
                    {reinterpret_cast<const char *>(uri->data), static_cast<size_t>(uri->length)},
                    kMaxAddressLength, target);
            }
        }
        CRL_DIST_POINTS_free(points);
        ERR_clear_error();
        if (found) return true;
    }
    return false;
}

struct CachedCrl {
    FileIdentity identity{};
    UniquePtr<X509> root;
    UniquePtr<X509_CRL> crl;
};

int64_t SecondsOf(const ASN1_TIME *time) {
    int64_t seconds = 0;
    return Asn1Seconds(time, seconds) ? seconds : 0;
}

} // namespace

uint32_t LoadRootCrl(const TrustedRoot &root, std::time_t now, UniquePtr<X509_CRL> &crl,
                     const char **why) {
    const UniqueFd dir(::open(kRootCertDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd file =
        dir.Valid() ? OpenBounded(dir.Get(), CrlFileName(root.entry).c_str(), kMaxCrlBytes)
                    : UniqueFd();
    FileIdentity identity;
    if (!IdentityOf(file, identity)) {
        *why = "no list installed";
        return SSLCERT_EXT_ERR_CRL_MISSING;
    }
    // A list of thousands of entries takes milliseconds to read and verify;
    // the one read last for each root is kept while its file and its root
    // stay the same (a new list comes by rename: another inode), and only
    // its times are judged again.
    static std::mutex lock;
    static std::map<uint32_t, CachedCrl> cache;
    {
        const std::lock_guard held(lock);
        const auto found = cache.find(root.entry.uiCertId);
        if (found != cache.end() && found->second.identity == identity &&
            X509_cmp(found->second.root.get(), root.cert.get()) == 0) {
            (void)X509_CRL_up_ref(found->second.crl.get());
            crl.reset(found->second.crl.get());
            return CheckCrlTimes(crl.get(), now, why);
        }
    }
    const uint32_t read = ReadRootCrl(ReadAll(file, kMaxCrlBytes), root.cert.get(), now, crl, why);
    if (read != SSLCERT_OK) return read;
    const std::lock_guard held(lock);
    CachedCrl &kept = cache[root.entry.uiCertId];
    kept.identity = identity;
    (void)X509_up_ref(root.cert.get());
    kept.root.reset(root.cert.get());
    (void)X509_CRL_up_ref(crl.get());
    kept.crl.reset(crl.get());
    return SSLCERT_OK;
}

} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SECURITY_SSL_AddRootCRL(uint32_t uiRootCertId, const char *pcCrl,
                                                uint32_t uiLength) {
    BMCCERT_CHECK_NULL(pcCrl, SSLCERT_ERR_NULL_POINTER);
    TrustedRoot root;
    if (LoadTrustedRoot(uiRootCertId, root) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Revocation list refused: no trusted root id=%u.\n",
                     uiRootCertId);
        return SSLCERT_EXT_ERR_REVOCATION_SETTING;
    }
    UniquePtr<X509_CRL> crl;
    const char *why = "";
    const uint32_t result =
        ReadRootCrl({pcCrl, uiLength}, root.cert.get(), std::time(nullptr), crl, &why);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Revocation list for root id=%u refused: %s.\n", uiRootCertId,
                     why);
        return result;
    }
    if (!Install(root, crl.get())) return SSLCERT_EXT_ERR_REVOCATION_SETTING;
    return GiveWebServerList(uiRootCertId);
}

extern "C" uint32_t LIB_SECURITY_SSL_FetchRootCRL(uint32_t uiRootCertId) {
    HttpTarget target;
    if (!FindDistributionPoint(uiRootCertId, target)) {
        BMCCERT_DIAG(kLevelHandling,
                     "No client certificate of root id=%u names an http:// list to fetch.\n",
                     uiRootCertId);
        return SSLCERT_EXT_ERR_NO_RESPONDER;
    }
    const HttpAnswer answer = HttpExchange(target, "", "", kMaxCrlBytes, kRevocationTimeoutMs * 5);
    if (answer.outcome != HttpOutcome::kOk) {
        BMCCERT_DIAG(kLevelHandling, "Fetch the revocation list of root id=%u failed (%s).\n",
                     uiRootCertId,
                     answer.outcome == HttpOutcome::kTooBig      ? "too big"
                     : answer.outcome == HttpOutcome::kMalformed ? "not an HTTP answer"
                     : answer.outcome == HttpOutcome::kRefused   ? "HTTP status not 200"
                                                                 : "no answer");
        return answer.outcome == HttpOutcome::kTooBig      ? SSLCERT_EXT_ERR_ANSWER_TOO_BIG
               : answer.outcome == HttpOutcome::kMalformed ? SSLCERT_EXT_ERR_ANSWER_MALFORMED
                                                           : SSLCERT_EXT_ERR_UNREACHABLE;
    }
    return LIB_SECURITY_SSL_AddRootCRL(uiRootCertId, answer.body.data(),
                                       static_cast<uint32_t>(answer.body.size()));
}

extern "C" uint32_t LIB_SECURITY_SSL_GetRevocationState(SSLRevocationState *pstState) {
    BMCCERT_CHECK_NULL(pstState, SSLCERT_ERR_NULL_POINTER);
    std::memset(pstState, 0, sizeof *pstState);
    pstState->stPolicy = LoadRevocationPolicy();
    auto roots = std::make_unique<RootCertList>();
    if (const uint32_t read = LIB_SSL_GetRootCertList(roots.get()); read != SSLCERT_OK) return read;
    for (uint32_t id = 1; id <= SSL_AUTH_MAX_CERTS; ++id) {
        if (roots->astRootCert[id - 1].uiCertId != id) continue;
        TrustedRoot root;
        root.entry = roots->astRootCert[id - 1];
        if (!IsPlainFileName(root.entry.szFileName)) continue;
        const UniqueFd dir(::open(kRootCertDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        const UniqueFd file =
            dir.Valid() ? OpenBounded(dir.Get(), CrlFileName(root.entry).c_str(), kMaxCrlBytes)
                        : UniqueFd();
        const std::string bytes = ReadAll(file, kMaxCrlBytes);
        const UniquePtr<BIO> pem(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
        const UniquePtr<X509_CRL> crl(
            pem && !bytes.empty() ? PEM_read_bio_X509_CRL(pem.get(), nullptr, nullptr, nullptr)
                                  : nullptr);
        ERR_clear_error();
        if (!crl) continue;
        SSLCrlSummary &summary = pstState->astCrl[pstState->uiCrlCount++];
        summary.uiRootCertId = id;
        const int entries = sk_X509_REVOKED_num(X509_CRL_get_REVOKED(crl.get()));
        summary.uiEntries = entries > 0 ? static_cast<uint32_t>(entries) : 0;
        summary.llLastUpdate = SecondsOf(X509_CRL_get0_lastUpdate(crl.get()));
        summary.llNextUpdate = SecondsOf(X509_CRL_get0_nextUpdate(crl.get()));
    }
    return SSLCERT_OK;
}
