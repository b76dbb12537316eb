#include "subcommands.h"

#include <ctime>
#include <map>
#include <string>

#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"
#include "answer_leaf.h"
#include "info_format.h"

namespace bmccert::cli {
namespace {

const std::map<std::string, uint32_t> kMethods = {{"command", SSLCERT_EXT_REVOCATION_COMMAND},
                                                  {"ocsp", SSLCERT_EXT_REVOCATION_OCSP},
                                                  {"crl", SSLCERT_EXT_REVOCATION_CRL},
                                                  {"ocsp-crl", SSLCERT_EXT_REVOCATION_OCSP_CRL}};
const std::map<std::string, uint32_t> kOnFailure = {{"refuse", SSLCERT_EXT_ON_FAILURE_REFUSE},
                                                    {"allow", SSLCERT_EXT_ON_FAILURE_ALLOW}};

std::string NameOf(const std::map<std::string, uint32_t> &names, uint32_t value) {
    for (const auto &[name, known] : names)
        if (known == value) return name;
    return std::to_string(value);
}

bool ReadState(SSLRevocationState &state, int &status) {
    const uint32_t result = LIB_SECURITY_SSL_GetRevocationState(&state);
    if (result == SSLCERT_OK) return true;
    status = ReportFailure(ResultMeaning(result), result);
    return false;
}

int ShowLists(const SSLRevocationState &state) {
    std::string text;
    for (uint32_t i = 0; i < state.uiCrlCount; ++i) {
        const SSLCrlSummary &crl = state.astCrl[i];
        text += "root " + std::to_string(crl.uiRootCertId) + ": " + std::to_string(crl.uiEntries) +
                " revoked, issued " + IsoTimeText(crl.llLastUpdate) + ", next update " +
                IsoTimeText(crl.llNextUpdate) + "\n";
    }
    return WriteResult(text.empty() ? "no revocation list installed\n" : text);
}

int Show() {
    SSLRevocationState state{};
    int status = 0;
    if (!ReadState(state, status)) return status;
    const SSLRevocationPolicy &policy = state.stPolicy;
    (void)WriteResult(
        "method: " + NameOf(kMethods, policy.uiMethod) +
        (policy.uiMethod == SSLCERT_EXT_REVOCATION_COMMAND ? " (answers are not verified)" : "") +
        "\non failure: " + NameOf(kOnFailure, policy.uiOnFailure) +
        "\nmax age: " + std::to_string(policy.uiMaxAgeSeconds) +
        " s\nclock skew: " + std::to_string(policy.uiClockSkewSeconds) + " s\n");
    return ShowLists(state);
}

struct Setting {
    std::string method, onFailure;
    int64_t maxAge = -1, skew = -1;
};

int Set(const Setting &setting) {
    SSLRevocationState state{};
    int status = 0;
    if (!ReadState(state, status)) return status;
    SSLRevocationPolicy policy = state.stPolicy;
    if (!setting.method.empty()) policy.uiMethod = kMethods.at(setting.method);
    if (!setting.onFailure.empty()) policy.uiOnFailure = kOnFailure.at(setting.onFailure);
    if (setting.maxAge >= 0) policy.uiMaxAgeSeconds = static_cast<uint32_t>(setting.maxAge);
    if (setting.skew >= 0) policy.uiClockSkewSeconds = static_cast<uint32_t>(setting.skew);
    const uint32_t result = LIB_SECURITY_SSL_SetRevocationPolicy(&policy);
    if (result != SSLCERT_OK)
        return ReportFailure("revocation setting not changed: " + ResultMeaning(result), result);
    return Show();
}

int AddList(uint32_t rootId, const std::string &path) {
    // The library takes lists of up to 4 MiB.
    std::string bytes;
    if (!ReadCertFile(path, bytes, 4 * 1024 * 1024))
        return ReportFailure("cannot read " + path, SSLCERT_EXT_ERR_CRL_BAD);
    const uint32_t result =
        LIB_SECURITY_SSL_AddRootCRL(rootId, bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (result != SSLCERT_OK)
        return ReportFailure("list not installed: " + ResultMeaning(result), result);
    return WriteResult("revocation list of root " + std::to_string(rootId) + " installed\n");
}

int FetchList(uint32_t rootId) {
    const uint32_t result = LIB_SECURITY_SSL_FetchRootCRL(rootId);
    if (result != SSLCERT_OK)
        return ReportFailure("list not installed: " + ResultMeaning(result), result);
    return WriteResult("revocation list of root " + std::to_string(rootId) +
                       " fetched and installed\n");
}

} // namespace

void AddRevocationCommands(CLI::App &app, int &status) {
    const Subcommands commands(status);
    CLI::App *revocation =
        app.add_subcommand("revocation", "How client certificates' revocation is checked");
    revocation->callback([revocation, &status] {
        if (revocation->get_subcommands().empty()) status = Show();
    });
    static Setting setting;
    CLI::App *set = commands.Add(*revocation, "set", "Choose the method and failure policy",
                                 [] { return Set(setting); });
    set->add_option("--method", setting.method, "command, ocsp, crl or ocsp-crl")
        ->check(CLI::IsMember(kMethods));
    set->add_option("--on-failure", setting.onFailure, "refuse or allow, when no answer comes")
        ->check(CLI::IsMember(kOnFailure));
    set->add_option("--max-age", setting.maxAge, "seconds an OCSP answer stays fresh");
    set->add_option("--clock-skew", setting.skew, "seconds a responder's clock may be off");

    CLI::App *crl = app.add_subcommand("crl", "Revocation lists of the trusted roots");
    crl->require_subcommand(1);
    static uint32_t rootId = 0;
    static std::string path;
    CLI::App *add = commands.Add(*crl, "add", "Install a list (PEM or DER) for a root",
                                 [] { return AddList(rootId, path); });
    add->add_option("ROOT-ID", rootId, "the trusted root's id")->required();
    add->add_option("FILE", path, "the list")->required();
    commands
        .Add(*crl, "fetch", "Fetch a root's list from its distribution point",
             [] { return FetchList(rootId); })
        ->add_option("ROOT-ID", rootId, "the trusted root's id")
        ->required();
    commands.Add(*crl, "show", "The lists installed", [] {
        SSLRevocationState state{};
        int failed = kExitOk;
        return ReadState(state, failed) ? ShowLists(state) : failed;
    });
}

} // namespace bmccert::cli
