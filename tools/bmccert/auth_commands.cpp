#include "auth_commands.h"

#include <string>
#include <vector>

#include "json_writer.h"
#include "lib_ssl_auth.h"
#include "output.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

std::string OnOff(uint8_t value) {
    return value == 1 ? "on" : value == 0 ? "off" : std::to_string(value);
}

std::string JsonArray(const std::vector<std::string> &objects) {
    std::string out = "[";
    for (size_t i = 0; i < objects.size(); ++i)
        out += (i == 0 ? "" : ",") + objects[i];
    return out + "]";
}

std::string RootJson(const RootCertInfo &root) {
    JsonWriter w;
    w.BeginObject();
    w.Uint("id", root.uiCertId);
    w.Uint("active", root.ucActive);
    w.String("fileName", FieldView(root.szFileName));
    w.String("expires", FieldView(root.szExpDate));
    w.Int("expTime", root.iExpTime);
    w.EndObject();
    return w.Text();
}

std::string RootText(const RootCertInfo &root) {
    return std::to_string(root.uiCertId) + (root.ucActive == 1 ? " active " : " ") +
           std::string(FieldView(root.szFileName)) + " expires " +
           std::string(FieldView(root.szExpDate)) + '\n';
}

std::string ClientJson(const CliCertInfo &client) {
    JsonWriter w;
    w.BeginObject();
    w.Uint("id", client.uiCertId);
    w.Uint("rootId", client.uiRootCertId);
    w.String("fileName", FieldView(client.szFileName));
    w.String("serial", FieldView(client.szSerialNum));
    w.EndObject();
    return w.Text();
}

std::string ClientText(const CliCertInfo &client) {
    return std::to_string(client.uiCertId) + " root " + std::to_string(client.uiRootCertId) + ' ' +
           std::string(FieldView(client.szFileName)) + " serial " +
           std::string(FieldView(client.szSerialNum)) + '\n';
}

std::string UserJson(const CertUserBrief &user) {
    JsonWriter w;
    w.BeginObject();
    w.Uint("id", user.ucUserId);
    w.String("name", FieldView(user.szUserName));
    w.Uint("role", user.ucPrivRole);
    w.String("roleName", FieldView(user.szRoleName));
    w.EndObject();
    return w.Text();
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
    if (json) {
        JsonWriter w;
        w.BeginObject();
        w.Uint("support", support);
        w.Uint("authentication", state);
        w.Uint("revocationCheck", revoke);
        w.Uint("activeRootId", active);
        w.EndObject();
        return WriteResult(w.Text() + '\n');
    }
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
    std::vector<std::string> out;
    std::string text;
    for (uint32_t i = 0; i < SSL_AUTH_MAX_CERTS; ++i) {
        const RootCertInfo &root = list.astRootCert[i];
        if (root.uiCertId != i + 1) continue;
        out.push_back(RootJson(root));
        text += RootText(root);
    }
    return WriteResult(json ? JsonArray(out) + '\n' : text);
}

int Root(uint32_t id, bool json) {
    RootCertInfo root{};
    const uint32_t result = LIB_SSL_GetRootCertInfo(id, &root);
    if (result != 0) return ReportFailure("no root certificate " + std::to_string(id), result);
    return WriteResult(json ? RootJson(root) + '\n' : RootText(root));
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
    std::vector<std::string> out;
    std::string text;
    for (uint32_t i = 0; i < count && i < SSL_AUTH_MAX_CERTS; ++i) {
        out.push_back(ClientJson(list[i]));
        text += ClientText(list[i]);
    }
    return WriteResult(json ? JsonArray(out) + '\n' : text);
}

int Client(uint32_t id, bool json) {
    CliCertDetail detail{};
    const uint32_t result = LIB_SSL_GetClientCertInfo(id, &detail);
    if (result != 0) return ReportFailure("no client certificate " + std::to_string(id), result);
    const bool bound = detail.stUser.ucUserId != 0;
    if (json) {
        std::string out = ClientJson(detail.stCliCertInfo);
        out.pop_back(); // reopen the object for the user
        out += ",\"user\":" + (bound ? UserJson(detail.stUser) : std::string("null")) + "}\n";
        return WriteResult(out);
    }
    return WriteResult(ClientText(detail.stCliCertInfo) +
                       "user: " + (bound ? UserText(detail.stUser) : std::string("none\n")));
}

int UsableUsers(bool json) {
    UsableUserList list{};
    const uint32_t result = LIB_SSL_GetUsableUserList(&list);
    if (result != 0) return ReportFailure("user list unavailable", result);
    std::vector<std::string> out;
    std::string text;
    for (uint32_t i = 0; i < list.uiUserCnt && i < SSL_AUTH_MAX_USERS; ++i) {
        out.push_back(UserJson(list.astUser[i]));
        text += UserText(list.astUser[i]);
    }
    return WriteResult(json ? JsonArray(out) + '\n' : text);
}

} // namespace

void AddAuthCommands(CLI::App &app, int &status) {
    // Options live as long as the parse: static storage keeps them simple.
    static bool json = false;
    static uint32_t id = 0;
    static uint32_t rootFilter = 0;
    static std::string onOff;
    static bool usable = false;
    auto jsonFlag = [](CLI::App *command) {
        command->add_flag("--json", json, "Print the result as JSON");
    };

    CLI::App *auth = app.add_subcommand("auth", "Client-certificate authentication state");
    auth->require_subcommand(1);
    CLI::App *status_ = auth->add_subcommand("status", "Support, state, revocation, active root");
    jsonFlag(status_);
    status_->callback([&] { status = Status(json); });
    CLI::App *enable = auth->add_subcommand("enable", "Switch on, trusting a root certificate");
    enable->add_option("ROOT_ID", id, "Root certificate id (1..20)")->required();
    jsonFlag(enable);
    enable->callback([&] { status = SetAuth(1, id, json); });
    CLI::App *disable = auth->add_subcommand("disable", "Switch authentication off");
    jsonFlag(disable);
    disable->callback([&] { status = SetAuth(0, 0, json); });
    CLI::App *revocation = auth->add_subcommand("revocation", "Switch revocation checking");
    revocation->add_option("STATE", onOff, "on or off")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    jsonFlag(revocation);
    revocation->callback([&] { status = SetRevocation(onOff, json); });

    CLI::App *roots = app.add_subcommand("roots", "List the trusted root certificates");
    jsonFlag(roots);
    roots->callback([&, roots] {
        if (roots->get_subcommands().empty()) status = Roots(json); // not `roots import`
    });
    CLI::App *root = app.add_subcommand("root", "Show one root certificate");
    root->add_option("ID", id, "Root certificate id (1..20)")->required();
    jsonFlag(root);
    root->callback([&] { status = Root(id, json); });
    CLI::App *clients = app.add_subcommand("clients", "List the client certificates");
    clients->add_option("--root", rootFilter, "Only those issued by this root certificate");
    jsonFlag(clients);
    clients->callback([&, clients] {
        if (clients->get_subcommands().empty()) status = Clients(rootFilter, json);
    });
    CLI::App *client = app.add_subcommand("client", "Show a client certificate and its user");
    client->add_option("ID", id, "Client certificate id (1..20)")->required();
    jsonFlag(client);
    client->callback([&] { status = Client(id, json); });
    CLI::App *users = app.add_subcommand("users", "List users");
    users->add_flag("--usable", usable, "Users that can still be bound to a certificate")
        ->required();
    jsonFlag(users);
    users->callback([&] { status = UsableUsers(json); });
}

} // namespace bmccert::cli
