// `bmccert acme`: the enrolment settings and account (register,
// deactivate, rollover), an order for the request's names, the renewal a
// timer runs, and the state; --json throughout.
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include "commands.h"
#include "csr_request.h"
#include "info_format.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"
#include "subcommands.h"
#include "upload_commands.h"

namespace bmccert::cli {
namespace {

std::string CodeText(uint32_t code) {
    char hex[16];
    (void)std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(code));
    return hex;
}

const char *OperationName(uint32_t operation) {
    switch (operation) {
    case SSLCERT_EXT_ACME_OP_REGISTER:
        return "register";
    case SSLCERT_EXT_ACME_OP_ENROLL:
        return "order";
    case SSLCERT_EXT_ACME_OP_RENEW:
        return "renew";
    case SSLCERT_EXT_ACME_OP_DEACTIVATE:
        return "deactivate";
    case SSLCERT_EXT_ACME_OP_ROLL_KEY:
        return "roll-key";
    default:
        return "none";
    }
}

const char *AccountName(uint8_t state) {
    return state == SSLCERT_EXT_ACME_ACCOUNT_VALID         ? "valid"
           : state == SSLCERT_EXT_ACME_ACCOUNT_DEACTIVATED ? "deactivated"
                                                           : "none";
}

bool ReadText(const std::string &path, std::string &text) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    text = bytes.str();
    return in.good() || in.eof();
}

template <size_t N> bool Put(char (&field)[N], const std::string &text) {
    if (text.size() >= N) return false;
    std::memcpy(field, text.data(), text.size());
    field[text.size()] = '\0';
    return true;
}

int Status(bool json) {
    SSLAcmeEnrollment settings{};
    SSLAcmeStatus status{};
    if (const uint32_t result = LIB_SECURITY_SSL_AcmeGetEnrollment(&settings, &status);
        result != SSLCERT_OK)
        return ReportFailure(ResultMeaning(result), result);
    if (json)
        return WriteJsonObject([&](JsonWriter &w) {
            w.Key("server_uri").String(settings.szServerUri);
            w.Key("enabled").Bool(settings.ucEnabled == 1);
            w.Key("verify_certificate").Bool(settings.ucVerifyCertificate == 1);
            w.Key("email").String(settings.szEmail);
            w.Key("eab_key_id").String(settings.szEabKeyId);
            w.Key("eab_key_stored").Bool(status.ucHasEabKey == 1);
            w.Key("renew_before_expiry_days").Uint(settings.uiRenewBeforeExpiryDays);
            w.Key("account").String(AccountName(status.ucAccountState));
            w.Key("account_url").String(status.szAccountUrl);
            w.Key("key_thumbprint").String(status.szKeyThumbprint);
            w.Key("last_operation").String(OperationName(status.uiLastOperation));
            w.Key("last_result").String(CodeText(status.uiLastResult));
            w.Key("last_operation_time").String(IsoTimeText(status.llLastOperationTime));
            w.Key("failures").Uint(status.uiFailures);
            w.Key("next_renewal").String(IsoTimeText(status.llNextRenewal));
            w.Key("next_attempt").String(IsoTimeText(status.llNextAttempt));
        });
    return WriteResult(std::string("directory: ") + settings.szServerUri +
                       "\nenabled: " + (settings.ucEnabled == 1 ? "yes" : "no") + "\naccount: " +
                       AccountName(status.ucAccountState) + " " + status.szAccountUrl +
                       "\nlast operation: " + OperationName(status.uiLastOperation) + ", " +
                       CodeText(status.uiLastResult) + ", " + IsoTimeText(status.llLastOperationTime) +
                       "\nfailures: " + std::to_string(status.uiFailures) +
                       "\nnext renewal: " + IsoTimeText(status.llNextRenewal) +
                       "\nnext attempt: " + IsoTimeText(status.llNextAttempt) + "\n");
}

struct RegisterOptions {
    std::string directory, email, eabKid, eabKeyFile, caFile;
    bool agree = false, noVerify = false;
    uint32_t renewBeforeDays = 0;
};

int Register(const RegisterOptions &options, bool json) {
    SSLAcmeEnrollment settings{};
    SSLAcmeStatus status{};
    (void)LIB_SECURITY_SSL_AcmeGetEnrollment(&settings, &status);
    if (!Put(settings.szServerUri, options.directory) || !Put(settings.szEmail, options.email) ||
        !Put(settings.szEabKeyId, options.eabKid))
        return ReportFailure("--directory, --email or --eab-kid does not fit its field",
                             SSLCERT_EXT_ERR_ACME_SETTING);
    settings.ucVerifyCertificate = options.noVerify ? 0 : 1;
    settings.ucAgreeToTerms = options.agree ? 1 : 0;
    settings.ucChallengeType = SSLCERT_EXT_ACME_HTTP01;
    settings.uiRenewBeforeExpiryDays = options.renewBeforeDays;
    std::string macKey, caPem;
    if (!options.eabKeyFile.empty() && !ReadText(options.eabKeyFile, macKey))
        return ReportFailure("cannot read " + options.eabKeyFile, SSLCERT_EXT_ERR_ACME_SETTING);
    while (!macKey.empty() && (macKey.back() == '\n' || macKey.back() == '\r'))
        macKey.pop_back();
    if (!options.caFile.empty() && !ReadText(options.caFile, caPem))
        return ReportFailure("cannot read " + options.caFile, SSLCERT_EXT_ERR_ACME_SETTING);
    uint32_t result = LIB_SECURITY_SSL_AcmeSetEnrollment(
        &settings, options.eabKeyFile.empty() ? nullptr : macKey.c_str(),
        options.caFile.empty() ? nullptr : caPem.c_str());
    std::fill(macKey.begin(), macKey.end(), '\0');
    if (result != SSLCERT_OK)
        return ReportFailure("settings not stored: " + ResultMeaning(result), result);
    result = LIB_SECURITY_SSL_AcmeRegister();
    if (result != SSLCERT_OK)
        return ReportFailure("not registered: " + ResultMeaning(result), result);
    return json ? Status(true) : WriteResult("registered\n");
}

int Simple(uint32_t (*call)(), const char *done, const char *failed, bool json) {
    const uint32_t result = call();
    if (result != SSLCERT_OK)
        return ReportFailure(std::string(failed) + ": " + ResultMeaning(result), result);
    return json ? Status(true) : WriteResult(std::string(done) + "\n");
}

int Renew(bool ifDue, bool json) {
    const LogOrigin origin = LocalOrigin();
    TaskHandle task{};
    uint8_t started = 0;
    const uint32_t result = ifDue ? LIB_SECURITY_SSL_AcmeRenewIfDue(&origin, &task, &started)
                                  : LIB_SECURITY_SSL_AcmeEnroll(&origin, &task);
    if (result != SSLCERT_OK)
        return ReportFailure("no renewal started: " + ResultMeaning(result), result);
    if (ifDue && started == 0) return json ? Status(true) : WriteResult("not due\n");
    return FollowImport(task.TaskId, json, "ACME enrolment", 0);
}

} // namespace

int RunAcmeOrder(const GenerateOptions &subject, const KeyType &key, const AltNameOptions &names,
                 bool enable, bool json) {
    SSLAcmeEnrollment settings{};
    SSLAcmeStatus status{};
    (void)LIB_SECURITY_SSL_AcmeGetEnrollment(&settings, &status);
    SSLCertRequest request{};
    if (const auto refused = BuildRequest(subject, key, names, false, request)) return *refused;
    settings.stRequest = request;
    if (enable) settings.ucEnabled = 1;
    if (const uint32_t result = LIB_SECURITY_SSL_AcmeSetEnrollment(&settings, nullptr, nullptr);
        result != SSLCERT_OK)
        return ReportFailure("settings not stored: " + ResultMeaning(result), result);
    return Renew(false, json);
}

CLI::App *AddAcmeCommands(CLI::App &app, int &status, bool &json) {
    const Subcommands commands(status, &json, "Print the result as JSON");
    CLI::App *acme = app.add_subcommand("acme", "Enrolment and renewal with an ACME CA");
    acme->require_subcommand(1);
    static RegisterOptions options;
    CLI::App *reg = commands.Add(*acme, "register", "Store the CA's settings and register",
                                 [&json] { return Register(options, json); });
    reg->add_option("--directory", options.directory, "The CA's directory URL (https://)")
        ->required();
    reg->add_option("--email", options.email, "Contact address");
    reg->add_option("--eab-kid", options.eabKid, "External account binding: key identifier");
    reg->add_option("--eab-key-file", options.eabKeyFile,
                    "External account binding: FILE holding the MAC key (base64url or Base64)");
    reg->add_option("--ca-file", options.caFile, "Root the CA's HTTPS certificate chains to");
    reg->add_flag("--agree-tos", options.agree, "Agree to the CA's terms of service");
    reg->add_flag("--no-verify", options.noVerify, "Do not verify the CA's HTTPS certificate");
    reg->add_option("--renew-before-days", options.renewBeforeDays,
                    "Renew this many days before expiry (0: the CA's window or a third left)");
    commands.AddJsonFlag(*reg);
    commands.AddJson(*acme, "status", "Settings, account and enrolment state",
                     [&json] { return Status(json); });
    commands.AddJson(*acme, "deactivate", "Deactivate the account at the CA", [&json] {
        return Simple(LIB_SECURITY_SSL_AcmeDeactivate, "deactivated", "not deactivated", json);
    });
    commands.AddJson(*acme, "roll-key", "Roll the account over to a new key", [&json] {
        return Simple(LIB_SECURITY_SSL_AcmeRollKey, "account key rolled over", "key kept", json);
    });
    static bool ifDue = false;
    CLI::App *renew = commands.Add(*acme, "renew", "Order a new certificate for the stored request",
                                   [&json] { return Renew(ifDue, json); });
    renew->add_flag("--if-due", ifDue, "Only when due and enabled (what a timer runs)");
    commands.AddJsonFlag(*renew);
    return acme;
}

} // namespace bmccert::cli
