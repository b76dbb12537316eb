// Readers of the CA's JSON answers (directory, account, order,
// authorisation, problem, renewal information). Each reads the whole
// answer or refuses it: wrong types, missing members, duplicate members,
// URLs that are not https or leave the directory's origin, strings and
// lists past their bounds, values outside their set. Nothing is cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "acme/https_url.h"

namespace bmccert::acme {

inline constexpr size_t kMaxListItems = 100;      // identifiers, authorisations, challenges
inline constexpr size_t kMaxProblemDetail = 1024; // a longer detail is a malformed problem
inline constexpr size_t kMaxIdentifierValue = 255;
inline constexpr size_t kMaxShortText = 256; // types, tokens, problem type URIs

enum class MessageError {
    kNone,
    kNotJson,      // not one JSON value, a duplicate member, or a body past kMaxJsonBody
    kWrongType,    // the answer or a member of another JSON type
    kMissingField, // a required member absent
    kBadUrl,       // a URL that is not https, too long or malformed
    kOtherOrigin,  // a URL off the directory's origin
    kTooLong,      // a string past its bound
    kTooMany,      // a list past kMaxListItems
    kOutOfRange,   // a number, status, type or time outside its set; a control character
};

[[nodiscard]] const char *MessageErrorName(MessageError error);

struct Directory {
    std::string newNonce;
    std::string newAccount;
    std::string newOrder;
    std::string revokeCert;
    std::string keyChange;
    std::string renewalInfo;    // empty: the CA offers no renewal information
    std::string termsOfService; // empty: none named
    bool externalAccountRequired = false;
};

enum class AccountStatus { kValid, kDeactivated, kRevoked };
struct Account {
    AccountStatus status = AccountStatus::kValid;
    std::string orders; // empty: not given
};

enum class IdentifierType { kDns, kIp };
struct Identifier {
    IdentifierType type = IdentifierType::kDns;
    std::string value;
};

enum class ProblemType {
    kOther, // a type not listed here, or none
    kAccountDoesNotExist,
    kAlreadyReplaced,
    kAlreadyRevoked,
    kBadCsr,
    kBadNonce,
    kBadPublicKey,
    kBadRevocationReason,
    kBadSignatureAlgorithm,
    kCaa,
    kCompound,
    kConnection,
    kDns,
    kExternalAccountRequired,
    kIncorrectResponse,
    kInvalidContact,
    kMalformed,
    kOrderNotReady,
    kRateLimited,
    kRejectedIdentifier,
    kServerInternal,
    kTls,
    kUnauthorized,
    kUnsupportedContact,
    kUnsupportedIdentifier,
    kUserActionRequired,
};
struct Problem {
    ProblemType type = ProblemType::kOther;
    std::string typeUri; // as sent, at most kMaxShortText
    std::string detail;  // at most kMaxProblemDetail, no control characters
    int status = 0;      // 0: not given
};

enum class OrderStatus { kPending, kReady, kProcessing, kValid, kInvalid };
struct Order {
    OrderStatus status = OrderStatus::kPending;
    std::optional<int64_t> expires;
    std::vector<Identifier> identifiers;
    std::vector<std::string> authorizations;
    std::string finalize;
    std::string certificate; // empty until the order is valid
    std::optional<Problem> error;
};

enum class AuthorizationStatus { kPending, kValid, kInvalid, kDeactivated, kExpired, kRevoked };
enum class ChallengeStatus { kPending, kProcessing, kValid, kInvalid };
struct Challenge {
    std::string type; // "http-01", "dns-01", ... as sent
    std::string url;
    ChallengeStatus status = ChallengeStatus::kPending;
    std::string token; // as sent, bounded; its form is checked where it is used
    std::optional<Problem> error;
};
struct Authorization {
    AuthorizationStatus status = AuthorizationStatus::kPending;
    Identifier identifier;
    std::vector<Challenge> challenges;
    bool wildcard = false;
    std::optional<int64_t> expires;
};

struct RenewalInfo {
    int64_t windowStart = 0; // seconds since 1970 UTC; start < end
    int64_t windowEnd = 0;
    std::string explanationUrl; // empty: none
};

// The URLs each answer names are checked against the directory's origin.
[[nodiscard]] MessageError ReadDirectory(std::string_view body, const HttpsOrigin &origin,
                                         Directory &directory);
[[nodiscard]] MessageError ReadAccount(std::string_view body, const HttpsOrigin &origin,
                                       Account &account);
[[nodiscard]] MessageError ReadOrder(std::string_view body, const HttpsOrigin &origin,
                                     Order &order);
[[nodiscard]] MessageError ReadAuthorization(std::string_view body, const HttpsOrigin &origin,
                                             Authorization &authorization);
[[nodiscard]] MessageError ReadProblem(std::string_view body, Problem &problem);
[[nodiscard]] MessageError ReadRenewalInfo(std::string_view body, RenewalInfo &info);

enum class ChainCheck { kOk, kWrongContentType, kEmpty, kTooBig, kNotPem };
// An answer to the certificate's download: application/pem-certificate-chain
// (parameters allowed), at most kMaxChainBody bytes, PEM certificates first.
[[nodiscard]] ChainCheck CheckChainAnswer(std::string_view contentType, std::string_view body);

} // namespace bmccert::acme
