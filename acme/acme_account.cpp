// The ACME account: registered with a key born on the controller, the
// binding to an account the CA already knows (external account binding),
// deactivation, and the key's rollover.
#include <jansson.h>

#include <ctime>

#include "acme/account_key.h"
#include "acme/acme_session.h"
#include "acme/acme_settings.h"
#include "acme/acme_store.h"
#include "acme/base64url.h"
#include "acme/json_ref.h"
#include "acme/jws.h"
#include "platform/controller_paths.h"

namespace bmccert::acme {
namespace {

using namespace controller_paths;
constexpr size_t kMaxMacKeyText = 1024;

// The state after an account operation: its code and time.
uint32_t Finish(SSLAcmeStatus &status, uint32_t operation, uint32_t result) {
    status.uiLastOperation = operation;
    status.uiLastResult = result;
    status.llLastOperationTime = std::time(nullptr);
    if (!StoreStatus(status)) BMCCERT_DIAG(kLevelFailure, "ACME:state not stored!\n");
    return result;
}

[[nodiscard]] JsonRef NewAccountPayload(const SSLAcmeEnrollment &settings, EVP_PKEY *key,
                                        const Directory &directory, uint32_t &result) {
    JsonRef payload(json_object());
    result = SSLCERT_OK;
    if (!payload) {
        result = SSLCERT_EXT_ERR_ACME_KEY;
        return nullptr;
    }
    (void)json_object_set_new(payload.get(), "termsOfServiceAgreed",
                              json_boolean(settings.ucAgreeToTerms == 1));
    if (settings.szEmail[0] != '\0') {
        JsonRef contact(json_array());
        (void)json_array_append_new(
            contact.get(), json_string((std::string("mailto:") + settings.szEmail).c_str()));
        (void)json_object_set(payload.get(), "contact", contact.get());
    }
    if (settings.szEabKeyId[0] == '\0') {
        if (directory.externalAccountRequired) {
            BMCCERT_DIAG(kLevelHandling, "ACME:the CA requires an external account binding; "
                                         "no key identifier is set.\n");
            result = SSLCERT_EXT_ERR_ACME_BINDING;
        }
        return payload;
    }
    std::optional<std::string> text = ReadSmallFile(kAcmeMacKeyPath, kMaxMacKeyText);
    std::optional<std::string> mac = text ? DecodeMacKey(*text) : std::nullopt;
    if (text) OPENSSL_cleanse(text->data(), text->size());
    JsonRef binding =
        mac ? ExternalAccountBinding(key, settings.szEabKeyId, *mac, directory.newAccount)
            : nullptr;
    if (mac) OPENSSL_cleanse(mac->data(), mac->size());
    if (!binding) {
        BMCCERT_DIAG(kLevelHandling, "ACME:no usable MAC key for the external account binding.\n");
        result = SSLCERT_EXT_ERR_ACME_BINDING;
        return nullptr;
    }
    (void)json_object_set(payload.get(), "externalAccountBinding", binding.get());
    return payload;
}

uint32_t Register(SSLAcmeStatus &status) {
    SSLAcmeEnrollment settings;
    if (!LoadSettings(settings) || settings.szServerUri[0] == '\0') {
        BMCCERT_DIAG(kLevelHandling, "ACME:no enrolment settings are stored.\n");
        return SSLCERT_EXT_ERR_ACME_SETTING;
    }
    UniquePtr<EVP_PKEY> key = LoadAccountKey();
    if (!key) {
        // Stored before it is ever sent: an account must not outlive its key.
        key = GenerateAccountKey();
        if (!key || !StoreAccountKey(key.get())) return SSLCERT_EXT_ERR_ACME_KEY;
    }
    Session session(TransportOf(settings), key.get());
    if (const uint32_t opened = session.Open(); opened != SSLCERT_OK) return opened;
    uint32_t result = SSLCERT_OK;
    const JsonRef payload = NewAccountPayload(settings, key.get(), session.Dir(), result);
    const std::optional<std::string> text = payload ? CompactText(payload.get()) : std::nullopt;
    if (result != SSLCERT_OK) return result;
    if (!text) return SSLCERT_EXT_ERR_ACME_KEY;
    HttpResponse response;
    result = session.Post(session.Dir().newAccount, *text, response, kMaxJsonBody, true);
    if (result == SSLCERT_EXT_ERR_ACME_REFUSED && settings.szEabKeyId[0] != '\0' &&
        (session.LastProblem().type == ProblemType::kUnauthorized ||
         session.LastProblem().type == ProblemType::kMalformed))
        return SSLCERT_EXT_ERR_ACME_BINDING;
    if (result != SSLCERT_OK) return result;
    Account account{};
    if (ReadAccount(response.body, session.Origin(), account) != MessageError::kNone ||
        !OnOrigin(response.location, session.Origin()) ||
        !CopyField(status.szAccountUrl, response.location)) {
        BMCCERT_DIAG(kLevelHandling, "ACME:the account answer is not one (or its URL is not the "
                                     "CA's, or longer than 255 bytes).\n");
        return SSLCERT_EXT_ERR_ACME_MALFORMED;
    }
    status.ucAccountState = account.status == AccountStatus::kValid
                                ? SSLCERT_EXT_ACME_ACCOUNT_VALID
                                : SSLCERT_EXT_ACME_ACCOUNT_DEACTIVATED;
    const std::optional<std::string> thumbprint = JwkThumbprint(key.get());
    if (!thumbprint || !CopyField(status.szKeyThumbprint, *thumbprint))
        return SSLCERT_EXT_ERR_ACME_KEY;
    // The binding's MAC key is spent: it is of no further use on the controller.
    (void)::unlink(kAcmeMacKeyPath);
    return SSLCERT_OK;
}

uint32_t Deactivate(SSLAcmeStatus &status) {
    SSLAcmeEnrollment settings;
    UniquePtr<EVP_PKEY> key;
    std::optional<Session> session;
    if (const uint32_t opened = OpenAccountSession(status, settings, key, session);
        opened != SSLCERT_OK)
        return opened;
    HttpResponse response;
    if (const uint32_t result =
            session->Post(status.szAccountUrl, R"({"status":"deactivated"})", response);
        result != SSLCERT_OK)
        return result;
    status.ucAccountState = SSLCERT_EXT_ACME_ACCOUNT_DEACTIVATED;
    // A deactivated account's key signs nothing any more.
    (void)::unlink(kAcmeAccountKeyPath);
    return SSLCERT_OK;
}

uint32_t RollKey(SSLAcmeStatus &status) {
    SSLAcmeEnrollment settings;
    UniquePtr<EVP_PKEY> key;
    std::optional<Session> session;
    if (const uint32_t opened = OpenAccountSession(status, settings, key, session);
        opened != SSLCERT_OK)
        return opened;
    UniquePtr<EVP_PKEY> next = GenerateAccountKey();
    const JsonRef inner =
        next ? KeyChangeInner(next.get(), key.get(), status.szAccountUrl, session->Dir().keyChange)
             : nullptr;
    const std::optional<std::string> text = inner ? CompactText(inner.get()) : std::nullopt;
    if (!text) return SSLCERT_EXT_ERR_ACME_KEY;
    HttpResponse response;
    if (const uint32_t result = session->Post(session->Dir().keyChange, *text, response);
        result != SSLCERT_OK)
        return result; // the old key stays
    const std::optional<std::string> thumbprint = JwkThumbprint(next.get());
    // The CA now knows only the new key: a controller that could not keep
    // it would have lost its account, so this is reported loudly.
    if (!StoreAccountKey(next.get()) || !thumbprint ||
        !CopyField(status.szKeyThumbprint, *thumbprint)) {
        BMCCERT_DIAG(kLevelFailure, "ACME:the new account key could not be stored!\n");
        return SSLCERT_EXT_ERR_ACME_KEY;
    }
    return SSLCERT_OK;
}

template <typename Operation> uint32_t UnderLock(uint32_t operation, Operation run) {
    const AcmeLock lock;
    if (!lock.Held()) return SSLCERT_EXT_ERR_ACME_BUSY;
    SSLAcmeStatus status = LoadStatus();
    const uint32_t result = run(status);
    return Finish(status, operation, result);
}

} // namespace

// A session by the registered account; 0 or the code that prevents one.
uint32_t OpenAccountSession(const SSLAcmeStatus &status, SSLAcmeEnrollment &settings,
                            UniquePtr<EVP_PKEY> &key, std::optional<Session> &session) {
    if (!LoadSettings(settings) || settings.szServerUri[0] == '\0')
        return SSLCERT_EXT_ERR_ACME_SETTING;
    if (status.ucAccountState != SSLCERT_EXT_ACME_ACCOUNT_VALID || status.szAccountUrl[0] == '\0')
        return SSLCERT_EXT_ERR_ACME_NO_ACCOUNT;
    key = LoadAccountKey();
    if (!key) return SSLCERT_EXT_ERR_ACME_KEY;
    session.emplace(TransportOf(settings), key.get());
    session->UseAccount(status.szAccountUrl);
    return session->Open();
}

} // namespace bmccert::acme

using namespace bmccert;
using namespace bmccert::acme;

extern "C" uint32_t LIB_SECURITY_SSL_AcmeRegister(void) {
    return UnderLock(SSLCERT_EXT_ACME_OP_REGISTER, Register);
}

extern "C" uint32_t LIB_SECURITY_SSL_AcmeDeactivate(void) {
    return UnderLock(SSLCERT_EXT_ACME_OP_DEACTIVATE, Deactivate);
}

extern "C" uint32_t LIB_SECURITY_SSL_AcmeRollKey(void) {
    return UnderLock(SSLCERT_EXT_ACME_OP_ROLL_KEY, RollKey);
}
