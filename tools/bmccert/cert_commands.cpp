#include "subcommands.h"

#include <openssl/crypto.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "json_writer.h"
#include "lib_ssl_auth.h"
#include "output.h"
#include "upload_commands.h"
#include "task_service.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);
constexpr int kPollLimit = 600; // 30 seconds

// The owner reads the file by its path; a relative one would name
// another file in the owner's working directory.
std::string AbsolutePath(const std::string &path) {
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(path, ec);
    return ec ? path : absolute.string();
}

// Follows an import's task until its final report.
int FollowImport(uint32_t result, const TaskHandle &task, bool json) {
    if (result != 0)
        return ReportFailure(std::string("import refused (details in ") + DiagnosticsHint() + ")",
                             result);
    if (!TasksReadable()) {
        if (json) return WriteResult("{\"task\":" + std::to_string(task.TaskId) + "}\n");
        return WriteResult("task " + std::to_string(task.TaskId) +
                           ": started; its outcome is in the task service\n");
    }
    TaskRecord state;
    for (int i = 0; i < kPollLimit; ++i) {
        const std::optional<TaskRecord> read = ReadTask(task.TaskId);
        if (!read) break;
        state = *read;
        if (state.state != 0) break;
        std::this_thread::sleep_for(kPollInterval);
    }
    if (state.state != 2) return ReportFailure("import task did not finish: " + state.text, result);
    if (!json) return WriteResult(TaskLine(state) + '\n');
    return WriteJsonObject([&](JsonWriter &w) {
        w.Uint("task", task.TaskId);
        w.Uint("state", state.state);
        w.Uint("progress", state.progress);
        w.String("text", state.text);
    });
}

int ImportRoot(const std::string &file, bool json) {
    const LogOrigin origin = LocalOrigin();
    TaskHandle task{};
    const std::string path = AbsolutePath(file);
    return FollowImport(LIB_SSL_ImportRootCert(&origin, path.c_str(), kAuthWaitLimitMs, &task),
                        task, json);
}

int ImportClient(const std::string &file, uint32_t rootId, bool json) {
    const LogOrigin origin = LocalOrigin();
    TaskHandle task{};
    const std::string path = AbsolutePath(file);
    return FollowImport(
        LIB_SSL_ImportClientCert(&origin, path.c_str(), rootId, kAuthWaitLimitMs, &task), task,
        json);
}

int Login(const std::string &serial, bool showPassword, bool json) {
    char name[33] = {};
    char password[41] = {};
    const uint32_t result =
        LIB_SSL_GetNamePwdBySerial(serial.c_str(), sizeof name, name, sizeof password, password);
    if (result != 0) {
        OPENSSL_cleanse(password, sizeof password);
        return ReportFailure("no login for serial number " + serial, result);
    }
    std::string text;
    if (json) {
        JsonWriter w;
        w.BeginObject();
        w.String("user", name);
        if (showPassword) w.String("password", password);
        w.EndObject();
        text = w.Text() + '\n';
    } else {
        text = std::string(name) + '\n' + (showPassword ? std::string(password) + '\n' : "");
    }
    OPENSSL_cleanse(password, sizeof password);
    const int status = WriteResult(text);
    OPENSSL_cleanse(text.data(), text.size());
    return status;
}

int Ocsp(uint32_t certId) {
    const uint32_t result = LIB_SSL_CertRevokeCheck(certId);
    if (result != 0)
        return ReportFailure("client certificate " + std::to_string(certId) +
                                 " is not confirmed good by its OCSP responder",
                             result);
    return WriteResult("good\n");
}

int ForgetUser(uint32_t userId) {
    if (userId < 1 || userId > SSL_AUTH_MAX_USERS)
        return ReportFailure("no user " + std::to_string(userId), SSLCERT_ERR_GENERAL);
    LIB_SSL_ClearCertUserInfo(static_cast<uint8_t>(userId));
    CliCertUserList bindings{};
    const uint32_t result = LIB_SSL_GetClientCertUserList(&bindings);
    if (result != 0) return ReportFailure("bindings unavailable", result);
    if (bindings.astCertUser[userId - 1].uiCliCertId != 0)
        return ReportFailure("user " + std::to_string(userId) +
                                 " still holds a client certificate (details in " +
                                 DiagnosticsHint() + ")",
                             SSL_AUTH_MGMT_UNTIE_FAILED);
    return WriteResult("user " + std::to_string(userId) + " holds no client certificate\n");
}

} // namespace

void AddCertCommands(CLI::App &app, int &status) {
    // Options live as long as the parse: static storage keeps them simple.
    static bool json = false;
    static bool showPassword = false;
    static std::string file, serial;
    static uint32_t id = 0, rootId = 0, userId = 0;
    const Subcommands commands(status, &json, "Print the result as JSON");

    CLI::App *roots = app.get_subcommand("roots");
    CLI::App *rootImport = commands.AddJson(*roots, "import", "Import a trusted root certificate",
                                            [] { return ImportRoot(file, json); });
    rootImport->add_option("FILE", file, "PEM certificate (.pem, .crt or .cer)")->required();
    CLI::App *clients = app.get_subcommand("clients");
    CLI::App *clientImport = commands.Add(*clients, "import", "Import a client certificate",
                                          [] { return ImportClient(file, rootId, json); });
    clientImport->add_option("FILE", file, "PEM certificate (.pem, .crt or .cer)")->required();
    clientImport->add_option("--root", rootId, "Id of the root certificate that issued it")
        ->required();
    commands.AddJsonFlag(*clientImport);
    for (const bool root : {true, false}) {
        CLI::App *remove = commands.AddJson(
            root ? *roots : *clients, "delete",
            root ? "Delete a root certificate" : "Delete a client certificate", [root] {
                OperateDesc desc{};
                return Described(root ? LIB_SSL_DelRootCert(id, kAuthWaitLimitMs, &desc)
                                      : LIB_SSL_DelClientCert(id, kAuthWaitLimitMs, &desc),
                                 desc, json);
            });
        remove
            ->add_option("ID", id,
                         root ? "Root certificate id (1..20)" : "Client certificate id (1..20)")
            ->required();
    }

    for (const bool bind : {true, false}) {
        CLI::App *command = commands.AddJson(
            app, bind ? "bind" : "unbind",
            bind ? "Bind a client certificate to a user"
                 : "Unbind a client certificate from a user",
            [bind] {
                OperateDesc desc{};
                const uint32_t result =
                    bind ? LIB_SSL_ClientCertBindUser(id, userId, kAuthWaitLimitMs, &desc)
                         : LIB_SSL_ClientCertUntieUser(id, userId, kAuthWaitLimitMs, &desc);
                return Described(result, desc, json);
            });
        command->add_option("CERT_ID", id, "Client certificate id (1..20)")->required();
        command->add_option("USER_ID", userId, "User id (1..16)")->required();
    }

    CLI::App *login = commands.Add(app, "login", "Log in by a client certificate's serial number",
                                   [] { return Login(serial, showPassword, json); });
    login->add_option("--serial", serial, "Serial number as `openssl x509 -serial` prints it")
        ->required();
    login->add_flag("--show-password", showPassword, "Also print the user's password");
    commands.AddJsonFlag(*login);

    commands
        .Add(app, "ocsp", "Ask a client certificate's OCSP responder for its state",
             [] { return Ocsp(id); })
        ->add_option("CERT_ID", id, "Client certificate id (1..20)")
        ->required();
    commands
        .Add(app, "forget-user", "Unbind the client certificate of a user who goes away",
             [] { return ForgetUser(userId); })
        ->add_option("USER_ID", userId, "User id (1..16)")
        ->required();
}

} // namespace bmccert::cli
