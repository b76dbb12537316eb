// One conversation with an ACME server: its directory, the nonce it gave
// last, the account key, and the account's URL once there is one. Every
// request is a JWS signed in process; a refused nonce is retried with the
// nonce of the refusal, and every refusal becomes one result code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "acme/http_client.h"
#include "acme/messages.h"
#include "acme/acme_internal.h"
#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::acme {

class Session {
  public:
    Session(const HttpSettings &settings, EVP_PKEY *accountKey);

    // Fetches the directory; 0 or an ACME code.
    [[nodiscard]] uint32_t Open();
    [[nodiscard]] const Directory &Dir() const { return directory_; }
    [[nodiscard]] const HttpsOrigin &Origin() const { return *origin_; }
    void UseAccount(std::string url) { accountUrl_ = std::move(url); }
    [[nodiscard]] EVP_PKEY *Key() const { return key_; }

    // A signed POST (payload "" for POST-as-GET), by the account's URL, or
    // by the key itself (a new account). 0 for a 2xx answer, else the code
    // of the refusal, whose problem LastProblem() holds.
    [[nodiscard]] uint32_t Post(const std::string &url, const std::string &payload,
                                HttpResponse &response, size_t maxBody = kMaxJsonBody,
                                bool byKey = false);
    [[nodiscard]] const Problem &LastProblem() const { return problem_; }
    // An unauthenticated GET (renewal information); 0 for 200, else a code.
    [[nodiscard]] uint32_t Get(const std::string &url, HttpResponse &response);

  private:
    [[nodiscard]] uint32_t FreshNonce();

    HttpClient client_;
    std::optional<HttpsOrigin> origin_;
    std::string directoryUrl_;
    EVP_PKEY *key_;
    std::string accountUrl_;
    std::string nonce_;
    Directory directory_{};
    Problem problem_{};
};

// A session by the registered account, with the stored settings and key;
// 0 or the code that prevents one.
[[nodiscard]] uint32_t OpenAccountSession(const SSLAcmeStatus &status, SSLAcmeEnrollment &settings,
                                          UniquePtr<EVP_PKEY> &key,
                                          std::optional<Session> &session);

// The code of a transport failure and of a server's problem document.
[[nodiscard]] uint32_t CodeOfTransport(TransportError error);
[[nodiscard]] uint32_t CodeOfProblem(const Problem &problem);
// The problem's detail for a diagnostic: printable, at most 200 bytes
// (the reader bounds it at 1 KiB; a log line needs less).
[[nodiscard]] std::string DetailForLog(const Problem &problem);

} // namespace bmccert::acme
