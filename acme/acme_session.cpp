#include "acme/acme_session.h"

#include <algorithm>

#include "acme/jws.h"

namespace bmccert::acme {
namespace {

// The refusal's own nonce for the next try, up to ten tries: a CA may
// refuse good nonces (pebble refuses a set share on purpose), and a
// request of an order must not fail on that alone.
constexpr int kNonceAttempts = 10;

} // namespace

Session::Session(const HttpSettings &settings, EVP_PKEY *accountKey)
    : client_(settings), origin_(HttpsUrlOrigin(settings.directoryUrl)),
      directoryUrl_(settings.directoryUrl), key_(accountKey) {}

uint32_t Session::Open() {
    if (!origin_) return SSLCERT_EXT_ERR_ACME_SETTING;
    HttpResponse response;
    if (const TransportError error = client_.Get(directoryUrl_, kMaxJsonBody, response);
        error != TransportError::kNone) {
        BMCCERT_DIAG(kLevelHandling, "ACME:directory %s not fetched (%s).\n", directoryUrl_.c_str(),
                     TransportErrorName(error));
        return CodeOfTransport(error);
    }
    if (response.status != 200) {
        BMCCERT_DIAG(kLevelHandling, "ACME:directory answered HTTP %ld.\n", response.status);
        return SSLCERT_EXT_ERR_ACME_UNREACHABLE;
    }
    if (const MessageError error = ReadDirectory(response.body, *origin_, directory_);
        error != MessageError::kNone) {
        BMCCERT_DIAG(kLevelHandling, "ACME:directory refused (%s).\n", MessageErrorName(error));
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    }
    return SSLCERT_OK;
}

uint32_t Session::FreshNonce() {
    HttpResponse response;
    const TransportError error = client_.Head(directory_.newNonce, response);
    if (error != TransportError::kNone) return CodeOfTransport(error);
    if (response.replayNonce.empty()) {
        BMCCERT_DIAG(kLevelHandling, "ACME:newNonce gave no nonce (HTTP %ld).\n", response.status);
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    }
    nonce_ = response.replayNonce;
    return SSLCERT_OK;
}

uint32_t Session::Post(const std::string &url, const std::string &payload, HttpResponse &response,
                       size_t maxBody, bool byKey) {
    problem_ = {};
    for (int attempt = 1;; ++attempt) {
        if (nonce_.empty())
            if (const uint32_t got = FreshNonce(); got != SSLCERT_OK) return got;
        const std::optional<std::string> jws =
            SignRequest(key_, {nonce_, url, byKey ? std::string_view() : accountUrl_}, payload);
        nonce_.clear(); // a nonce is good once
        if (!jws) return SSLCERT_EXT_ERR_ACME_KEY;
        response = {};
        if (const TransportError error = client_.Post(url, *jws, maxBody, response);
            error != TransportError::kNone) {
            BMCCERT_DIAG(kLevelHandling, "ACME:POST %s failed (%s).\n", url.c_str(),
                         TransportErrorName(error));
            return CodeOfTransport(error);
        }
        nonce_ = response.replayNonce; // every answer's nonce replaces the one kept
        if (response.status >= 200 && response.status < 300) return SSLCERT_OK;
        if (ReadProblem(response.body, problem_) != MessageError::kNone) {
            BMCCERT_DIAG(kLevelHandling,
                         "ACME:POST %s answered HTTP %ld without a problem "
                         "document.\n",
                         url.c_str(), response.status);
            return SSLCERT_EXT_ERR_ACME_MALFORMED;
        }
        if (problem_.type == ProblemType::kBadNonce && attempt < kNonceAttempts) continue;
        BMCCERT_DIAG(kLevelHandling, "ACME:POST %s refused, HTTP %ld, %s: %s\n", url.c_str(),
                     response.status, problem_.typeUri.c_str(), DetailForLog(problem_).c_str());
        return CodeOfProblem(problem_);
    }
}

uint32_t Session::Get(const std::string &url, HttpResponse &response) {
    response = {};
    if (const TransportError error = client_.Get(url, kMaxJsonBody, response);
        error != TransportError::kNone)
        return CodeOfTransport(error);
    return response.status == 200 ? SSLCERT_OK : SSLCERT_EXT_ERR_ACME_REFUSED;
}

uint32_t CodeOfTransport(TransportError error) {
    switch (error) {
    case TransportError::kNone:
        return SSLCERT_OK;
    case TransportError::kBadUrl:
        return SSLCERT_EXT_ERR_ACME_SETTING;
    case TransportError::kUnreachable:
    case TransportError::kTimeout:
    case TransportError::kTlsVerifyFailed:
        return SSLCERT_EXT_ERR_ACME_UNREACHABLE;
    case TransportError::kTooBig:
    case TransportError::kRedirectLoop:
    case TransportError::kOtherOrigin:
        break;
    }
    return SSLCERT_EXT_ERR_ACME_MALFORMED;
}

uint32_t CodeOfProblem(const Problem &problem) {
    switch (problem.type) {
    case ProblemType::kRateLimited:
        return SSLCERT_EXT_ERR_ACME_RATE_LIMIT;
    case ProblemType::kExternalAccountRequired:
        return SSLCERT_EXT_ERR_ACME_BINDING;
    case ProblemType::kAccountDoesNotExist:
        return SSLCERT_EXT_ERR_ACME_NO_ACCOUNT;
    case ProblemType::kConnection:
    case ProblemType::kDns:
    case ProblemType::kIncorrectResponse:
    case ProblemType::kTls:
    case ProblemType::kCaa:
        return SSLCERT_EXT_ERR_ACME_CHALLENGE;
    default:
        return SSLCERT_EXT_ERR_ACME_REFUSED;
    }
}

std::string DetailForLog(const Problem &problem) {
    std::string text;
    for (const char c : problem.detail) {
        if (text.size() == 200) break;
        text += c >= 0x20 && c < 0x7f ? c : '?';
    }
    return text;
}

} // namespace bmccert::acme
