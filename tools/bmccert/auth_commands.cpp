#include "subcommands.h"

#include <string>

#include "json_writer.h"
#include "lib_ssl_auth.h"
#include "output.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

std::string OnOff(uint8_t value) {
    return value == 1 ? "on" : value == 0 ? "off" : std::to_string(value);
}

void WriteRoot(JsonWriter &w, const RootCertInfo &root) {
    w.BeginObject();
    w.Uint("id", root.uiCertId);
    w.Uint("active", root.ucActive);
    w.String("fileName", FieldView(root.szFileName));
    w.String("expires", FieldView(root.szExpDate));
    w.Int("expTime", root.iExpTime);
    w.EndObject();
}

std::string RootText(const RootCertInfo &root) {
    return std::to_string(root.uiCertId) + (root.ucActive == 1 ? " active " : " ") +
           std::string(FieldView(root.szFileName)) + " expires " +
           std::string(FieldView(root.szExpDate)) + '\n';
}

// The client's members, in the object being written.
void WriteClientMembers(JsonWriter &w, const CliCertInfo &client) {
    w.Uint("id", client.uiCertId);
    w.Uint("rootId", client.uiRootCertId);
    w.String("fileName", FieldView(client.szFileName));
    w.String("serial", FieldView(client.szSerialNum));
}

std::string ClientText(const CliCertInfo &client) {
    return std::to_string(client.uiCertId) + " root " + std::to_string(client.uiRootCertId) + ' ' +
           std::string(FieldView(client.szFileName)) + " serial " +
           std::string(FieldView(client.szSerialNum)) + '\n';
}

void WriteUser(JsonWriter &w, const CertUserBrief &user) {
    w.BeginObject();
    w.Uint("id", user.ucUserId);
    w.String("name", FieldView(user.szUserName));
    w.Uint("role", user.ucPrivRole);
    w.String("roleName", FieldView(user.szRoleName));
    w.EndObject();
}

std::string UserText(const CertUserBrief &user) {
    return std::to_string(user.ucUserId) + ' ' + std::string(FieldView(user.szUserName)) + " (" +
           std::string(FieldView(user.szRoleName)) + ")\n";
}

int Status(bool json) {
    uint8_t state = 0, revoke = 0;
    const uint8_t support = LIB_SSL_IsSupportCertAuthFunc();
    uint32_t result = LIB_SSL_GetCertAuthState(&state);
    if (result == 0) result = LIB_SSL_GetCertRevokeCheck(&revoke);
    uint32_t active = 0;
    if (result == 0) result = LIB_SSL_GetActiveRootCertId(&active);
    if (result != 0) return ReportFailure("authentication state unavailable", result);
    if (json)
        return WriteJsonObject([&](JsonWriter &w) {
            w.Uint("support", support);
            w.Uint("authentication", state);
            w.Uint("revocationCheck", revoke);
            w.Uint("activeRootId", active);
        });
    return WriteResult("support: " + std::to_string(support) + "\nauthentication: " + OnOff(state) +
                       "\nrevocation check: " + OnOff(revoke) +
                       "\nactive root: " + (active == 0 ? "none" : std::to_string(active)) + '\n');
}

int SetAuth(uint8_t state, uint32_t rootId, bool json) {
    OperateDesc desc{};
    const uint32_t result = LIB_SSL_SetCertAuthState(state, rootId, kAuthWaitLimitMs, &desc);
    return Described(result, desc, json);
}

int SetRevocation(const std::string &onOff, bool json) {
    OperateDesc desc{};
    const uint32_t result =
        LIB_SSL_SetCertRevokeCheck(onOff == "on" ? 1 : 0, kAuthWaitLimitMs, &desc);
    return Described(result, desc, json);
}

int Roots(bool json) {
    RootCertList list{};
    const uint32_t result = LIB_SSL_GetRootCertList(&list);
    if (result != 0) return ReportFailure("root certificates unavailable", result);
    JsonWriter out;
    std::string text;
    out.BeginArray();
    for (uint32_t i = 0; i < SSL_AUTH_MAX_CERTS; ++i) {
        const RootCertInfo &root = list.astRootCert[i];
        if (root.uiCertId != i + 1) continue;
        WriteRoot(out, root);
        text += RootText(root);
    }
    out.EndArray();
    return WriteResult(json ? out.Text() + '\n' : text);
}

int Root(uint32_t id, bool json) {
    RootCertInfo root{};
    const uint32_t result = LIB_SSL_GetRootCertInfo(id, &root);
    if (result != 0) return ReportFailure("no root certificate " + std::to_string(id), result);
    JsonWriter out;
    WriteRoot(out, root);
    return WriteResult(json ? out.Text() + '\n' : RootText(root));
}

int Clients(uint32_t rootId, bool json) {
    CliCertInfo list[SSL_AUTH_MAX_CERTS] = {};
    uint32_t count = 0;
    uint32_t result;
    if (rootId != 0) {
        result = LIB_SSL_GetClientCertListByRoot(rootId, &count, list);
    } else {
        CliCertList all{};
        result = LIB_SSL_GetClientCertList(&all);
        for (uint32_t i = 0; result == 0 && i < SSL_AUTH_MAX_CERTS; ++i)
            if (all.astCliCert[i].uiCertId == i + 1) list[count++] = all.astCliCert[i];
    }
    if (result != 0) return ReportFailure("client certificates unavailable", result);
    JsonWriter out;
    std::string text;
    out.BeginArray();
    for (uint32_t i = 0; i < count && i < SSL_AUTH_MAX_CERTS; ++i) {
        out.BeginObject();
        WriteClientMembers(out, list[i]);
        out.EndObject();
        text += ClientText(list[i]);
    }
    out.EndArray();
    return WriteResult(json ? out.Text() + '\n' : text);
}

int Client(uint32_t id, bool json) {
    CliCertDetail detail{};
    const uint32_t result = LIB_SSL_GetClientCertInfo(id, &detail);
    if (result != 0) return ReportFailure("no client certificate " + std::to_string(id), result);
    const bool bound = detail.stUser.ucUserId != 0;
    if (json)
        return WriteJsonObject([&](JsonWriter &w) {
            WriteClientMembers(w, detail.stCliCertInfo);
            w.Key("user");
            if (bound)
                WriteUser(w, detail.stUser);
            else
                w.Null();
        });
    return WriteResult(ClientText(detail.stCliCertInfo) +
                       "user: " + (bound ? UserText(detail.stUser) : std::string("none\n")));
}

int UsableUsers(bool json) {
    UsableUserList list{};
    const uint32_t result = LIB_SSL_GetUsableUserList(&list);
    if (result != 0) return ReportFailure("user list unavailable", result);
    JsonWriter out;
    std::string text;
    out.BeginArray();
    for (uint32_t i = 0; i < list.uiUserCnt && i < SSL_AUTH_MAX_USERS; ++i) {
        WriteUser(out, list.astUser[i]);
        text += UserText(list.astUser[i]);
    }
    out.EndArray();
    return WriteResult(json ? out.Text() + '\n' : text);
}

} // namespace

void AddAuthCommands(CLI::App &app, int &status) {
    // Options live as long as the parse: static storage keeps them simple.
    static bool json = false;
    static uint32_t id = 0;
    static uint32_t rootFilter = 0;
    static std::string onOff;
    static bool usable = false;
    const Subcommands commands(status, &json, "Print the result as JSON");

    CLI::App *auth = app.add_subcommand("auth", "Client-certificate authentication state");
    auth->require_subcommand(1);
    commands.AddJson(*auth, "status", "Support, state, revocation, active root",
                     [] { return Status(json); });
    CLI::App *enable = commands.AddJson(*auth, "enable", "Switch on, trusting a root certificate",
                                        [] { return SetAuth(1, id, json); });
    enable->add_option("ROOT_ID", id, "Root certificate id (1..20)")->required();
    commands.AddJson(*auth, "disable", "Switch authentication off",
                     [] { return SetAuth(0, 0, json); });
    CLI::App *revocation = commands.AddJson(*auth, "revocation", "Switch revocation checking",
                                            [] { return SetRevocation(onOff, json); });
    revocation->add_option("STATE", onOff, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));

    // Not when `roots import` or `clients import` was chosen: its status stands.
    CLI::App *roots = app.add_subcommand("roots", "List the trusted root certificates");
    commands.AddJsonFlag(*roots);
    roots->callback([&, roots] {
        if (roots->get_subcommands().empty()) status = Roots(json);
    });
    CLI::App *root =
        commands.AddJson(app, "root", "Show one root certificate", [] { return Root(id, json); });
    root->add_option("ID", id, "Root certificate id (1..20)")->required();
    CLI::App *clients = app.add_subcommand("clients", "List the client certificates");
    clients->add_option("--root", rootFilter, "Only those issued by this root certificate");
    commands.AddJsonFlag(*clients);
    clients->callback([&, clients] {
        if (clients->get_subcommands().empty()) status = Clients(rootFilter, json);
    });
    CLI::App *client = commands.AddJson(app, "client", "Show a client certificate and its user",
                                        [] { return Client(id, json); });
    client->add_option("ID", id, "Client certificate id (1..20)")->required();
    CLI::App *users = commands.Add(app, "users", "List users", [] { return UsableUsers(json); });
    users->add_flag("--usable", usable, "Users that can still be bound to a certificate")
        ->required();
    commands.AddJsonFlag(*users);
}

} // namespace bmccert::cli
