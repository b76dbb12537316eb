#include "acme/acme_order.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <jansson.h>
#include <openssl/pem.h>

#include "acme/account_key.h"
#include "acme/base64url.h"
#include "acme/challenge_token.h"
#include "acme/json_ref.h"
#include "frame/unique_fd.h"
#include "platform/controller_paths.h"

namespace bmccert::acme {
namespace {

using namespace controller_paths;
using Clock = std::chrono::steady_clock;
// How long one authorisation or the finalisation may take to complete.
constexpr auto kPollLimit = std::chrono::seconds(90);

// A key authorisation served by the web server while it exists: written
// 0644 before the challenge is answered, removed on every path.
class ChallengeFile {
  public:
    ChallengeFile(const std::string &token, std::string_view content) : token_(token) {
        const UniqueFd dir(::open(kAcmeChallengeDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        UniqueFd file(dir.Valid()
                          ? ::openat(dir.Get(), token.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644)
                          : -1);
        written_ = file.Valid() && ::fchmod(file.Get(), 0644) == 0 &&
                   ::write(file.Get(), content.data(), content.size()) ==
                       static_cast<ssize_t>(content.size()) &&
                   file.Close();
    }
    ~ChallengeFile() {
        const UniqueFd dir(::open(kAcmeChallengeDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (dir.Valid()) (void)::unlinkat(dir.Get(), token_.c_str(), 0);
    }
    ChallengeFile(const ChallengeFile &) = delete;
    ChallengeFile &operator=(const ChallengeFile &) = delete;
    [[nodiscard]] bool Written() const { return written_; }

  private:
    std::string token_;
    bool written_ = false;
};

[[nodiscard]] std::string NewOrderPayload(const SSLCertRequest &request,
                                          const std::string &replaces) {
    JsonRef identifiers(json_array());
    for (uint32_t i = 0; i < request.uiAltNameCount && i < SSLCERT_EXT_MAX_ALT_NAMES; ++i) {
        const SSLCertAltName &name = request.astAltNames[i];
        json_t *identifier =
            json_pack("{s:s, s:s}", "type", name.uiType == SSLCERT_EXT_ALT_NAME_IP ? "ip" : "dns",
                      "value", name.szName);
        (void)json_array_append_new(identifiers.get(), identifier);
    }
    JsonRef payload(json_object());
    (void)json_object_set(payload.get(), "identifiers", identifiers.get());
    if (!replaces.empty())
        (void)json_object_set_new(payload.get(), "replaces", json_string(replaces.c_str()));
    return CompactText(payload.get()).value_or("");
}

// The wait before the next poll: what the server asked for (Retry-After,
// held to 1 to 10 s), else 20 ms doubling to 2 s, so that a CA that
// validates at once is not kept waiting and a slow one is not hammered.
class PollPacing {
  public:
    void Wait(const HttpResponse &response) {
        if (response.retryAfterSeconds) {
            std::this_thread::sleep_for(
                std::chrono::seconds(std::clamp<int64_t>(*response.retryAfterSeconds, 1, 10)));
            return;
        }
        std::this_thread::sleep_for(next_);
        next_ = std::min(next_ * 2, std::chrono::milliseconds(2000));
    }

  private:
    std::chrono::milliseconds next_{20};
};

// An authorisation whose challenge has been answered: its file is served
// until the authorisation ends.
struct AnsweredAuthorization {
    std::string url;
    std::unique_ptr<ChallengeFile> file;
    HttpResponse response; // the challenge's answer, for its Retry-After
};

// Answers the authorisation's http-01 challenge; nothing to wait for when
// the CA reuses an authorisation that is already valid.
uint32_t Answer(Session &session, const std::string &url, const std::string &thumbprint,
                std::vector<AnsweredAuthorization> &answered) {
    HttpResponse response;
    Authorization authz{};
    if (const uint32_t got = session.Post(url, "", response); got != SSLCERT_OK) return got;
    if (ReadAuthorization(response.body, session.Origin(), authz) != MessageError::kNone)
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    if (authz.status == AuthorizationStatus::kValid) return SSLCERT_OK; // reused
    if (authz.status != AuthorizationStatus::kPending) return SSLCERT_EXT_ERR_ACME_CHALLENGE;
    const Challenge *http01 = nullptr;
    for (const Challenge &challenge : authz.challenges)
        if (challenge.type == "http-01") http01 = &challenge;
    if (http01 == nullptr) {
        BMCCERT_DIAG(kLevelHandling, "ACME:%s offers no http-01 challenge.\n",
                     authz.identifier.value.c_str());
        return SSLCERT_EXT_ERR_ACME_CHALLENGE;
    }
    // The token becomes a file name: checked before anything is written.
    if (!IsValidToken(http01->token)) {
        BMCCERT_DIAG(kLevelHandling, "ACME:a challenge token that is not base64url refused.\n");
        return SSLCERT_EXT_ERR_ACME_TOKEN;
    }
    const std::optional<std::string> keyAuthorization = KeyAuthorization(http01->token, thumbprint);
    if (!keyAuthorization) return SSLCERT_EXT_ERR_ACME_TOKEN;
    AnsweredAuthorization &pending =
        answered.emplace_back(AnsweredAuthorization{url, nullptr, {}});
    pending.file = std::make_unique<ChallengeFile>(http01->token, *keyAuthorization);
    if (!pending.file->Written()) {
        BMCCERT_DIAG(kLevelFailure, "ACME:the challenge file could not be written in %s!\n",
                     kAcmeChallengeDir);
        return SSLCERT_EXT_ERR_ACME_CHALLENGE;
    }
    return session.Post(http01->url, "{}", pending.response);
}

// Waits for an answered authorisation to end: 0 once it is valid.
uint32_t AwaitValid(Session &session, AnsweredAuthorization &pending) {
    const auto deadline = Clock::now() + kPollLimit;
    PollPacing pacing;
    HttpResponse &response = pending.response;
    Authorization authz{};
    while (Clock::now() < deadline) {
        pacing.Wait(response);
        if (const uint32_t got = session.Post(pending.url, "", response); got != SSLCERT_OK)
            return got;
        if (ReadAuthorization(response.body, session.Origin(), authz) != MessageError::kNone)
            return SSLCERT_EXT_ERR_ACME_MALFORMED;
        if (authz.status == AuthorizationStatus::kValid) return SSLCERT_OK;
        if (authz.status != AuthorizationStatus::kPending) {
            for (const Challenge &challenge : authz.challenges)
                if (challenge.error)
                    BMCCERT_DIAG(kLevelHandling, "ACME:%s not validated: %s\n",
                                 authz.identifier.value.c_str(),
                                 DetailForLog(*challenge.error).c_str());
            return SSLCERT_EXT_ERR_ACME_CHALLENGE;
        }
    }
    return SSLCERT_EXT_ERR_ACME_CHALLENGE;
}

// Every challenge is answered before any is awaited, so that the CA
// validates them side by side; the files go when this returns.
uint32_t Authorize(Session &session, const std::vector<std::string> &urls,
                   const std::string &thumbprint) {
    std::vector<AnsweredAuthorization> answered;
    answered.reserve(urls.size());
    for (const std::string &url : urls)
        if (const uint32_t done = Answer(session, url, thumbprint, answered); done != SSLCERT_OK)
            return done;
    for (AnsweredAuthorization &pending : answered)
        if (const uint32_t done = AwaitValid(session, pending); done != SSLCERT_OK) return done;
    return SSLCERT_OK;
}

// The order, read again until it leaves "processing" (or "pending"/"ready").
uint32_t AwaitOrder(Session &session, const std::string &url, HttpResponse &response,
                    Order &order) {
    const auto deadline = Clock::now() + kPollLimit;
    PollPacing pacing;
    while (order.status == OrderStatus::kProcessing || order.status == OrderStatus::kReady ||
           order.status == OrderStatus::kPending) {
        if (Clock::now() >= deadline) return SSLCERT_EXT_ERR_ACME_ORDER;
        pacing.Wait(response);
        if (const uint32_t got = session.Post(url, "", response); got != SSLCERT_OK) return got;
        if (ReadOrder(response.body, session.Origin(), order) != MessageError::kNone)
            return SSLCERT_EXT_ERR_ACME_MALFORMED;
    }
    if (order.status != OrderStatus::kValid || order.certificate.empty()) {
        if (order.error)
            BMCCERT_DIAG(kLevelHandling, "ACME:the order turned invalid: %s\n",
                         DetailForLog(*order.error).c_str());
        return SSLCERT_EXT_ERR_ACME_ORDER;
    }
    return SSLCERT_OK;
}

// The request of a key born for this order, DER in base64url.
uint32_t FinalizationRequest(const SSLCertRequest &request, std::string &csr) {
    auto pem = std::make_unique<char[]>(SSLCERT_EXT_CSR_PEM_SIZE);
    if (const uint32_t made =
            LIB_SECURITY_SSL_GenerateCSR(&request, pem.get(), SSLCERT_EXT_CSR_PEM_SIZE);
        made != SSLCERT_OK)
        return made;
    const UniquePtr<BIO> bio(BIO_new_mem_buf(pem.get(), -1));
    const UniquePtr<X509_REQ> req(bio ? PEM_read_bio_X509_REQ(bio.get(), nullptr, nullptr, nullptr)
                                      : nullptr);
    unsigned char *der = nullptr;
    const int length = req ? i2d_X509_REQ(req.get(), &der) : -1;
    if (length <= 0) return SSLCERT_EXT_ERR_KEY_GENERATION;
    csr = Base64UrlEncode({reinterpret_cast<const char *>(der), static_cast<size_t>(length)});
    OPENSSL_free(der);
    return SSLCERT_OK;
}

} // namespace

uint32_t RunOrder(Session &session, const SSLAcmeEnrollment &settings,
                  const std::string &replaces, std::string &orderUrl, bool &keyBorn,
                  std::string &chain) {
    keyBorn = false;
    HttpResponse response;
    Order order{};
    const bool replacing = !replaces.empty() && !session.Dir().renewalInfo.empty();
    uint32_t created = session.Post(session.Dir().newOrder,
                                    NewOrderPayload(settings.stRequest, replacing ? replaces : ""),
                                    response);
    if (created == SSLCERT_EXT_ERR_ACME_REFUSED && replacing) // the CA would not link them
        created = session.Post(session.Dir().newOrder, NewOrderPayload(settings.stRequest, ""),
                               response);
    if (created != SSLCERT_OK) return created;
    if (ReadOrder(response.body, session.Origin(), order) != MessageError::kNone ||
        !OnOrigin(response.location, session.Origin()))
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    orderUrl = response.location;
    const std::optional<std::string> thumbprint = JwkThumbprint(session.Key());
    if (!thumbprint) return SSLCERT_EXT_ERR_ACME_KEY;
    if (const uint32_t done = Authorize(session, order.authorizations, *thumbprint);
        done != SSLCERT_OK)
        return done;
    std::string csr;
    keyBorn = true;
    if (const uint32_t made = FinalizationRequest(settings.stRequest, csr); made != SSLCERT_OK)
        return made;
    if (const uint32_t finalized =
            session.Post(order.finalize, R"({"csr":")" + csr + R"("})", response);
        finalized != SSLCERT_OK)
        return finalized;
    if (ReadOrder(response.body, session.Origin(), order) != MessageError::kNone)
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    if (const uint32_t awaited = AwaitOrder(session, orderUrl, response, order);
        awaited != SSLCERT_OK)
        return awaited;
    if (const uint32_t fetched = session.Post(order.certificate, "", response, kMaxChainBody);
        fetched != SSLCERT_OK)
        return fetched;
    if (CheckChainAnswer(response.contentType, response.body) != ChainCheck::kOk) {
        BMCCERT_DIAG(kLevelHandling, "ACME:the certificate answer is not a PEM chain.\n");
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    }
    chain = std::move(response.body);
    return SSLCERT_OK;
}

void ClearChallengeFiles() {
    const UniqueFd dir(::open(kAcmeChallengeDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dir.Valid()) return;
    const int listing = ::dup(dir.Get());
    std::unique_ptr<DIR, int (*)(DIR *)> entries(listing >= 0 ? ::fdopendir(listing) : nullptr,
                                                 &::closedir);
    if (!entries) {
        if (listing >= 0) (void)::close(listing);
        return;
    }
    while (const dirent *entry = ::readdir(entries.get()))
        if (IsValidToken(entry->d_name)) // only what an order writes
            (void)::unlinkat(dir.Get(), entry->d_name, 0);
}

} // namespace bmccert::acme
