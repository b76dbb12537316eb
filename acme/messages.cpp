#include "acme/messages.h"

#include <jansson.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "acme/http_client.h"
#include "acme/time_stamps.h"

namespace bmccert::acme {
namespace {

struct JsonDeleter {
    void operator()(json_t *value) const noexcept { json_decref(value); }
};
using Json = std::unique_ptr<json_t, JsonDeleter>;

constexpr size_t kMaxTimeText = 64;
constexpr std::string_view kAcmeErrorPrefix = "urn:ietf:params:acme:error:";

#define BMCCERT_ACME_TRY(expression)                                                               \
    do {                                                                                           \
        if (const MessageError tried = (expression); tried != MessageError::kNone) return tried;   \
    } while (0)

// The answer as one JSON object; duplicate members and trailing bytes refused.
MessageError Load(std::string_view body, Json &root) {
    if (body.size() > kMaxJsonBody) return MessageError::kNotJson;
    json_error_t error;
    root.reset(json_loadb(body.data(), body.size(), JSON_REJECT_DUPLICATES, &error));
    if (!root) return MessageError::kNotJson;
    return json_is_object(root.get()) ? MessageError::kNone : MessageError::kWrongType;
}

bool NoControlCharacters(std::string_view text) {
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
}

// An absent member is kMissingField when required, else value null.
MessageError Member(const json_t *object, const char *name, bool required, const json_t *&value) {
    value = json_object_get(object, name);
    if (value) return MessageError::kNone;
    return required ? MessageError::kMissingField : MessageError::kNone;
}

MessageError Text(const json_t *object, const char *name, size_t maxLength, bool required,
                  std::string &text) {
    const json_t *value = nullptr;
    BMCCERT_ACME_TRY(Member(object, name, required, value));
    if (!value) return MessageError::kNone;
    if (!json_is_string(value)) return MessageError::kWrongType;
    const std::string_view read(json_string_value(value), json_string_length(value));
    if (read.size() > maxLength) return MessageError::kTooLong;
    if (!NoControlCharacters(read)) return MessageError::kOutOfRange;
    text = read;
    return MessageError::kNone;
}

MessageError NonEmptyText(const json_t *object, const char *name, size_t maxLength,
                          std::string &text) {
    BMCCERT_ACME_TRY(Text(object, name, maxLength, true, text));
    return text.empty() ? MessageError::kOutOfRange : MessageError::kNone;
}

MessageError UrlText(std::string_view url, const HttpsOrigin &origin) {
    const std::optional<HttpsOrigin> own = HttpsUrlOrigin(url);
    if (!own) return MessageError::kBadUrl;
    return *own == origin ? MessageError::kNone : MessageError::kOtherOrigin;
}

MessageError Url(const json_t *object, const char *name, const HttpsOrigin &origin, bool required,
                 std::string &url) {
    std::string read;
    BMCCERT_ACME_TRY(Text(object, name, kMaxUrlLength, required, read));
    if (!json_object_get(object, name)) return MessageError::kNone;
    BMCCERT_ACME_TRY(UrlText(read, origin));
    url = std::move(read);
    return MessageError::kNone;
}

MessageError Time(const json_t *object, const char *name, bool required,
                  std::optional<int64_t> &when) {
    std::string text;
    BMCCERT_ACME_TRY(Text(object, name, kMaxTimeText, required, text));
    if (!json_object_get(object, name)) return MessageError::kNone;
    when = ParseRfc3339(text);
    return when ? MessageError::kNone : MessageError::kOutOfRange;
}

MessageError Flag(const json_t *object, const char *name, bool &flag) {
    const json_t *value = json_object_get(object, name);
    if (!value) return MessageError::kNone;
    if (!json_is_boolean(value)) return MessageError::kWrongType;
    flag = json_is_true(value);
    return MessageError::kNone;
}

MessageError Object(const json_t *object, const char *name, bool required, const json_t *&value) {
    BMCCERT_ACME_TRY(Member(object, name, required, value));
    return !value || json_is_object(value) ? MessageError::kNone : MessageError::kWrongType;
}

// A required, non-empty array of at most kMaxListItems elements.
MessageError List(const json_t *object, const char *name, const json_t *&array) {
    BMCCERT_ACME_TRY(Member(object, name, true, array));
    if (!json_is_array(array)) return MessageError::kWrongType;
    if (json_array_size(array) == 0) return MessageError::kMissingField;
    return json_array_size(array) > kMaxListItems ? MessageError::kTooMany : MessageError::kNone;
}

// A status or type named by one of the given words.
template <typename Enum, size_t N>
MessageError Word(const json_t *object, const char *name,
                  const std::array<std::pair<std::string_view, Enum>, N> &words, Enum &out) {
    std::string text;
    BMCCERT_ACME_TRY(Text(object, name, kMaxShortText, true, text));
    for (const auto &[word, value] : words)
        if (text == word) {
            out = value;
            return MessageError::kNone;
        }
    return MessageError::kOutOfRange;
}

MessageError ReadIdentifier(const json_t *object, Identifier &identifier) {
    if (!json_is_object(object)) return MessageError::kWrongType;
    static constexpr std::array<std::pair<std::string_view, IdentifierType>, 2> kTypes = {
        {{"dns", IdentifierType::kDns}, {"ip", IdentifierType::kIp}}};
    BMCCERT_ACME_TRY(Word(object, "type", kTypes, identifier.type));
    return NonEmptyText(object, "value", kMaxIdentifierValue, identifier.value);
}

ProblemType ProblemTypeOf(std::string_view uri) {
    static constexpr std::array<std::pair<std::string_view, ProblemType>, 25> kTypes = {{
        {"accountDoesNotExist", ProblemType::kAccountDoesNotExist},
        {"alreadyReplaced", ProblemType::kAlreadyReplaced},
        {"alreadyRevoked", ProblemType::kAlreadyRevoked},
        {"badCSR", ProblemType::kBadCsr},
        {"badNonce", ProblemType::kBadNonce},
        {"badPublicKey", ProblemType::kBadPublicKey},
        {"badRevocationReason", ProblemType::kBadRevocationReason},
        {"badSignatureAlgorithm", ProblemType::kBadSignatureAlgorithm},
        {"caa", ProblemType::kCaa},
        {"compound", ProblemType::kCompound},
        {"connection", ProblemType::kConnection},
        {"dns", ProblemType::kDns},
        {"externalAccountRequired", ProblemType::kExternalAccountRequired},
        {"incorrectResponse", ProblemType::kIncorrectResponse},
        {"invalidContact", ProblemType::kInvalidContact},
        {"malformed", ProblemType::kMalformed},
        {"orderNotReady", ProblemType::kOrderNotReady},
        {"rateLimited", ProblemType::kRateLimited},
        {"rejectedIdentifier", ProblemType::kRejectedIdentifier},
        {"serverInternal", ProblemType::kServerInternal},
        {"tls", ProblemType::kTls},
        {"unauthorized", ProblemType::kUnauthorized},
        {"unsupportedContact", ProblemType::kUnsupportedContact},
        {"unsupportedIdentifier", ProblemType::kUnsupportedIdentifier},
        {"userActionRequired", ProblemType::kUserActionRequired},
    }};
    if (uri.substr(0, kAcmeErrorPrefix.size()) != kAcmeErrorPrefix) return ProblemType::kOther;
    uri.remove_prefix(kAcmeErrorPrefix.size());
    for (const auto &[name, type] : kTypes)
        if (uri == name) return type;
    return ProblemType::kOther;
}

// Subproblems are not read: the flows act on the type of the whole.
MessageError ReadProblemObject(const json_t *object, Problem &problem) {
    if (!json_is_object(object)) return MessageError::kWrongType;
    problem = Problem{};
    BMCCERT_ACME_TRY(Text(object, "type", kMaxShortText, false, problem.typeUri));
    BMCCERT_ACME_TRY(Text(object, "detail", kMaxProblemDetail, false, problem.detail));
    problem.type = ProblemTypeOf(problem.typeUri);
    const json_t *status = json_object_get(object, "status");
    if (status) {
        if (!json_is_integer(status)) return MessageError::kWrongType;
        const json_int_t code = json_integer_value(status);
        if (code < 100 || code > 599) return MessageError::kOutOfRange;
        problem.status = static_cast<int>(code);
    }
    return MessageError::kNone;
}

MessageError OptionalProblem(const json_t *object, std::optional<Problem> &problem) {
    const json_t *value = json_object_get(object, "error");
    if (!value) return MessageError::kNone;
    problem.emplace();
    return ReadProblemObject(value, *problem);
}

MessageError ReadChallenge(const json_t *object, const HttpsOrigin &origin, Challenge &challenge) {
    if (!json_is_object(object)) return MessageError::kWrongType;
    static constexpr std::array<std::pair<std::string_view, ChallengeStatus>, 4> kStatuses = {{
        {"pending", ChallengeStatus::kPending},
        {"processing", ChallengeStatus::kProcessing},
        {"valid", ChallengeStatus::kValid},
        {"invalid", ChallengeStatus::kInvalid},
    }};
    BMCCERT_ACME_TRY(NonEmptyText(object, "type", kMaxShortText, challenge.type));
    BMCCERT_ACME_TRY(Url(object, "url", origin, true, challenge.url));
    BMCCERT_ACME_TRY(Word(object, "status", kStatuses, challenge.status));
    BMCCERT_ACME_TRY(Text(object, "token", kMaxShortText, false, challenge.token));
    return OptionalProblem(object, challenge.error);
}

} // namespace

const char *MessageErrorName(MessageError error) {
    switch (error) {
    case MessageError::kNone:
        return "none";
    case MessageError::kNotJson:
        return "not one JSON object";
    case MessageError::kWrongType:
        return "member of the wrong type";
    case MessageError::kMissingField:
        return "required member missing";
    case MessageError::kBadUrl:
        return "URL not https";
    case MessageError::kOtherOrigin:
        return "URL off the CA's origin";
    case MessageError::kTooLong:
        return "text too long";
    case MessageError::kTooMany:
        return "list too long";
    case MessageError::kOutOfRange:
        return "value out of range";
    }
    return "unknown";
}

MessageError ReadDirectory(std::string_view body, const HttpsOrigin &origin,
                           Directory &directory) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    Directory read;
    const json_t *object = root.get();
    BMCCERT_ACME_TRY(Url(object, "newNonce", origin, true, read.newNonce));
    BMCCERT_ACME_TRY(Url(object, "newAccount", origin, true, read.newAccount));
    BMCCERT_ACME_TRY(Url(object, "newOrder", origin, true, read.newOrder));
    BMCCERT_ACME_TRY(Url(object, "revokeCert", origin, true, read.revokeCert));
    BMCCERT_ACME_TRY(Url(object, "keyChange", origin, true, read.keyChange));
    BMCCERT_ACME_TRY(Url(object, "renewalInfo", origin, false, read.renewalInfo));
    const json_t *meta = nullptr;
    BMCCERT_ACME_TRY(Object(object, "meta", false, meta));
    if (meta) {
        // Shown to the operator, never fetched: any origin, any scheme.
        BMCCERT_ACME_TRY(Text(meta, "termsOfService", kMaxUrlLength, false, read.termsOfService));
        BMCCERT_ACME_TRY(Flag(meta, "externalAccountRequired", read.externalAccountRequired));
    }
    directory = std::move(read);
    return MessageError::kNone;
}

MessageError ReadAccount(std::string_view body, const HttpsOrigin &origin, Account &account) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    static constexpr std::array<std::pair<std::string_view, AccountStatus>, 3> kStatuses = {{
        {"valid", AccountStatus::kValid},
        {"deactivated", AccountStatus::kDeactivated},
        {"revoked", AccountStatus::kRevoked},
    }};
    Account read;
    BMCCERT_ACME_TRY(Word(root.get(), "status", kStatuses, read.status));
    BMCCERT_ACME_TRY(Url(root.get(), "orders", origin, false, read.orders));
    account = std::move(read);
    return MessageError::kNone;
}

MessageError ReadOrder(std::string_view body, const HttpsOrigin &origin, Order &order) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    static constexpr std::array<std::pair<std::string_view, OrderStatus>, 5> kStatuses = {{
        {"pending", OrderStatus::kPending},
        {"ready", OrderStatus::kReady},
        {"processing", OrderStatus::kProcessing},
        {"valid", OrderStatus::kValid},
        {"invalid", OrderStatus::kInvalid},
    }};
    const json_t *object = root.get();
    Order read;
    BMCCERT_ACME_TRY(Word(object, "status", kStatuses, read.status));
    BMCCERT_ACME_TRY(Time(object, "expires", false, read.expires));
    const json_t *identifiers = nullptr;
    BMCCERT_ACME_TRY(List(object, "identifiers", identifiers));
    for (size_t i = 0; i < json_array_size(identifiers); ++i)
        BMCCERT_ACME_TRY(ReadIdentifier(json_array_get(identifiers, i), read.identifiers.emplace_back()));
    const json_t *authorizations = nullptr;
    BMCCERT_ACME_TRY(List(object, "authorizations", authorizations));
    for (size_t i = 0; i < json_array_size(authorizations); ++i) {
        const json_t *url = json_array_get(authorizations, i);
        if (!json_is_string(url)) return MessageError::kWrongType;
        const std::string_view text(json_string_value(url), json_string_length(url));
        BMCCERT_ACME_TRY(UrlText(text, origin));
        read.authorizations.emplace_back(text);
    }
    BMCCERT_ACME_TRY(Url(object, "finalize", origin, true, read.finalize));
    BMCCERT_ACME_TRY(Url(object, "certificate", origin, false, read.certificate));
    BMCCERT_ACME_TRY(OptionalProblem(object, read.error));
    order = std::move(read);
    return MessageError::kNone;
}

MessageError ReadAuthorization(std::string_view body, const HttpsOrigin &origin,
                               Authorization &authorization) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    static constexpr std::array<std::pair<std::string_view, AuthorizationStatus>, 6> kStatuses = {{
        {"pending", AuthorizationStatus::kPending},
        {"valid", AuthorizationStatus::kValid},
        {"invalid", AuthorizationStatus::kInvalid},
        {"deactivated", AuthorizationStatus::kDeactivated},
        {"expired", AuthorizationStatus::kExpired},
        {"revoked", AuthorizationStatus::kRevoked},
    }};
    const json_t *object = root.get();
    Authorization read;
    BMCCERT_ACME_TRY(Word(object, "status", kStatuses, read.status));
    const json_t *identifier = nullptr;
    BMCCERT_ACME_TRY(Object(object, "identifier", true, identifier));
    BMCCERT_ACME_TRY(ReadIdentifier(identifier, read.identifier));
    const json_t *challenges = nullptr;
    BMCCERT_ACME_TRY(List(object, "challenges", challenges));
    for (size_t i = 0; i < json_array_size(challenges); ++i)
        BMCCERT_ACME_TRY(
            ReadChallenge(json_array_get(challenges, i), origin, read.challenges.emplace_back()));
    BMCCERT_ACME_TRY(Flag(object, "wildcard", read.wildcard));
    BMCCERT_ACME_TRY(Time(object, "expires", false, read.expires));
    authorization = std::move(read);
    return MessageError::kNone;
}

MessageError ReadProblem(std::string_view body, Problem &problem) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    Problem read;
    BMCCERT_ACME_TRY(ReadProblemObject(root.get(), read));
    problem = std::move(read);
    return MessageError::kNone;
}

MessageError ReadRenewalInfo(std::string_view body, RenewalInfo &info) {
    Json root;
    BMCCERT_ACME_TRY(Load(body, root));
    const json_t *window = nullptr;
    BMCCERT_ACME_TRY(Object(root.get(), "suggestedWindow", true, window));
    std::optional<int64_t> start, end;
    BMCCERT_ACME_TRY(Time(window, "start", true, start));
    BMCCERT_ACME_TRY(Time(window, "end", true, end));
    if (*end <= *start) return MessageError::kOutOfRange; // no answer at all
    RenewalInfo read{*start, *end, {}};
    BMCCERT_ACME_TRY(Text(root.get(), "explanationURL", kMaxUrlLength, false, read.explanationUrl));
    info = std::move(read);
    return MessageError::kNone;
}

ChainCheck CheckChainAnswer(std::string_view contentType, std::string_view body) {
    constexpr std::string_view kChainType = "application/pem-certificate-chain";
    const std::string_view mediaType = contentType.substr(0, contentType.find(';'));
    const size_t end = mediaType.find_last_not_of(" \t");
    const std::string_view trimmed = mediaType.substr(0, end == std::string_view::npos ? 0 : end + 1);
    if (trimmed.size() != kChainType.size() ||
        !std::equal(trimmed.begin(), trimmed.end(), kChainType.begin(), [](char a, char b) {
            return (a >= 'A' && a <= 'Z' ? static_cast<char>(a + 32) : a) == b;
        }))
        return ChainCheck::kWrongContentType;
    if (body.empty()) return ChainCheck::kEmpty;
    if (body.size() > kMaxChainBody) return ChainCheck::kTooBig;
    if (body.substr(0, 27) != "-----BEGIN CERTIFICATE-----") return ChainCheck::kNotPem;
    return ChainCheck::kOk;
}

} // namespace bmccert::acme
