// The record owner's state switches, bindings and deletions, and the one
// transaction around every command.
#include <cstring>
#include <ctime>
#include <fstream>

#include <unistd.h>

#include "frame/record_file_name.h"
#include "platform/owner/record_owner.h"
#include "platform/host/user_store.h"

namespace bmcsim::owner {
namespace {

[[nodiscard]] bool ValidCertId(uint32_t id) {
    return ValidId(id, SSL_AUTH_MAX_CERTS);
}

[[nodiscard]] uint32_t SetAuthState(Records &records, const CertAuthStateReq &request) {
    if (request.ucState != 1) {
        if (!SetClientVerification(false)) return kCaInstallFailed;
        records.authState = 0; // the active root stays marked for the next switch-on
        return kOk;
    }
    const uint32_t id = request.uiRootCertId;
    if (!ValidCertId(id) || records.roots.astRootCert[id - 1].uiCertId != id) return kRootAbsent;
    const RootCertInfo &root = records.roots.astRootCert[id - 1];
    if (static_cast<time_t>(root.iExpTime) < std::time(nullptr)) return kRootExpired;
    // The web server trusts exactly this root from now on.
    const std::string caFile = WebServerCaFile();
    std::string rootBytes;
    bool withList = false;
    if (caFile.empty() || !ReadRecordFile(kRootCertDir, root.szFileName, rootBytes) ||
        !WriteFileAtomically(caFile, rootBytes) || !HandOverRootList(root, withList) ||
        !SetClientVerification(true, withList))
        return kCaInstallFailed;
    for (RootCertInfo &entry : records.roots.astRootCert)
        entry.ucActive = &entry == &root ? 1 : 0;
    records.authState = 1;
    return kOk;
}

[[nodiscard]] bool UserExists(Store &store, uint8_t id, bool &anonymous) {
    auto select = store.Prepare("SELECT anonymous FROM users WHERE id = ?1");
    if (!select) return false;
    (void)sqlite3_bind_int(select.get(), 1, id);
    if (sqlite3_step(select.get()) != SQLITE_ROW) return false;
    anonymous = sqlite3_column_int(select.get(), 0) != 0;
    return true;
}

[[nodiscard]] uint32_t Bind(Store &store, Records &records, const CertUserReq &request) {
    const uint32_t cert = request.uiCertId;
    const uint8_t user = request.ucUserId;
    bool anonymous = false;
    if (!ValidCertId(cert) || records.clients.astCliCert[cert - 1].uiCertId != cert ||
        !ValidId(user, SSL_AUTH_MAX_USERS) || !UserExists(store, user, anonymous))
        return kAbsent;
    if (anonymous || records.bindings.astCertUser[user - 1].uiCliCertId != 0) return kInUse;
    for (const CliCertUserEntry &entry : records.bindings.astCertUser)
        if (entry.uiCliCertId == cert) return kInUse; // one user per certificate
    records.bindings.astCertUser[user - 1].uiCliCertId = cert;
    return kOk;
}

[[nodiscard]] uint32_t Untie(Records &records, const CertUserReq &request) {
    const uint8_t user = request.ucUserId;
    if (!ValidId(user, SSL_AUTH_MAX_USERS) || request.uiCertId == 0 ||
        records.bindings.astCertUser[user - 1].uiCliCertId != request.uiCertId)
        return kAbsent;
    records.bindings.astCertUser[user - 1].uiCliCertId = 0;
    return kOk;
}

[[nodiscard]] uint32_t DeleteClient(Records &records, uint32_t id, std::string &removedFile) {
    if (!ValidCertId(id) || records.clients.astCliCert[id - 1].uiCertId != id) return kAbsent;
    CliCertInfo &entry = records.clients.astCliCert[id - 1];
    // A name that would lead out of the directory names no file of ours.
    if (!bmccert::IsPlainFileName(entry.szFileName)) return kAbsent;
    removedFile = kClientCertDir + std::string(entry.szFileName);
    std::memset(&entry, 0, sizeof entry);
    for (CliCertUserEntry &binding : records.bindings.astCertUser)
        if (binding.uiCliCertId == id) binding.uiCliCertId = 0;
    return kOk;
}

[[nodiscard]] uint32_t DeleteRoot(Records &records, uint32_t id, std::string &removedFile) {
    if (!ValidCertId(id) || records.roots.astRootCert[id - 1].uiCertId != id) return kAbsent;
    RootCertInfo &entry = records.roots.astRootCert[id - 1];
    // A root in force, or one that client certificates name, stays.
    if (records.authState == 1 && entry.ucActive == 1) return kInUse;
    for (const CliCertInfo &client : records.clients.astCliCert)
        if (client.uiCertId != 0 && client.uiRootCertId == id) return kInUse;
    if (!bmccert::IsPlainFileName(entry.szFileName)) return kAbsent;
    removedFile = kRootCertDir + std::string(entry.szFileName);
    std::memset(&entry, 0, sizeof entry);
    return kOk;
}

template <typename T> [[nodiscard]] T RequestAs(const void *request) {
    T value;
    std::memcpy(&value, request, sizeof value);
    return value;
}

} // namespace

bool Load(Store &store, Records &records) noexcept {
    return GetRecord(store, SSL_AUTH_DB_KEY_STATE, 1, &records.authState) &&
           GetRecord(store, SSL_AUTH_DB_KEY_REVOKE_CHECK, 1, &records.revokeCheck) &&
           GetRecord(store, SSL_AUTH_DB_KEY_ROOT_LIST, sizeof records.roots, &records.roots) &&
           GetRecord(store, SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof records.clients,
                     &records.clients) &&
           GetRecord(store, SSL_AUTH_DB_KEY_USER_LIST, sizeof records.bindings, &records.bindings);
}

bool Save(Store &store, const Records &records) noexcept {
    return PutRecord(store, SSL_AUTH_DB_KEY_STATE, 1, &records.authState) &&
           PutRecord(store, SSL_AUTH_DB_KEY_REVOKE_CHECK, 1, &records.revokeCheck) &&
           PutRecord(store, SSL_AUTH_DB_KEY_ROOT_LIST, sizeof records.roots, &records.roots) &&
           PutRecord(store, SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof records.clients,
                     &records.clients) &&
           PutRecord(store, SSL_AUTH_DB_KEY_USER_LIST, sizeof records.bindings, &records.bindings);
}

std::string WebServerCaFile() {
    std::ifstream config(kWebServerConfigPath);
    for (std::string line; std::getline(config, line);) {
        if (line.find("ssl.ca-file") == std::string::npos) continue;
        const size_t open = line.find('"');
        const size_t close = open == std::string::npos ? open : line.find('"', open + 1);
        if (close == std::string::npos) return {};
        return line.substr(open + 1, close - open - 1);
    }
    return {};
}

namespace {

// One command in one write transaction of config.db.
[[nodiscard]] uint32_t ApplyInTransaction(OwnerCommand command, const void *request) {
    auto store = Store::Open();
    if (!store) return kPlatformFail;
    WriteTransaction txn(*store);
    Records records;
    // A record the owner cannot read is a record it cannot change.
    if (!txn.Begun() || !Load(*store, records)) return kPlatformFail;

    uint32_t result = kOk;
    std::string copiedFile, removedFile;
    switch (command) {
    case OwnerCommand::SetAuthState:
        result = SetAuthState(records, RequestAs<CertAuthStateReq>(request));
        break;
    case OwnerCommand::SetRevokeCheck:
        records.revokeCheck = *static_cast<const uint8_t *>(request) == 1 ? 1 : 0;
        break;
    case OwnerCommand::ImportRoot:
        result = ImportRoot(records, RequestAs<RootCertImportReq>(request), copiedFile);
        break;
    case OwnerCommand::ImportClient:
        result = ImportClient(records, RequestAs<CliCertImportReq>(request), copiedFile);
        break;
    case OwnerCommand::BindUser:
        result = Bind(*store, records, RequestAs<CertUserReq>(request));
        break;
    case OwnerCommand::UntieUser:
        result = Untie(records, RequestAs<CertUserReq>(request));
        break;
    case OwnerCommand::DeleteClient:
        result = DeleteClient(records, RequestAs<uint32_t>(request), removedFile);
        break;
    case OwnerCommand::DeleteRoot:
        result = DeleteRoot(records, RequestAs<uint32_t>(request), removedFile);
        break;
    default:
        return kPlatformFail;
    }
    if (result == kOk && (!Save(*store, records) || !txn.Commit())) result = kPlatformFail;
    if (result != kOk) {
        if (!copiedFile.empty()) (void)::unlink(copiedFile.c_str());
        return result;
    }
    if (!removedFile.empty()) (void)::unlink(removedFile.c_str());
    return kOk;
}

} // namespace

uint32_t Apply(OwnerCommand command, const void *request, TaskHandle &task, bool &answered) {
    answered = false;
    if (!EnsureFactoryState()) return kPlatformFail;
    // An import runs as a task, registered before anything changes (the
    // task service writes config.db too, so not inside the transaction):
    // an import the task service cannot take is not made at all.
    const bool import = owner_protocol::HasResponse(command);
    const bool root = command == OwnerCommand::ImportRoot;
    if (import && !RegisterImportTask(root, task)) return kPlatformFail;
    const uint32_t result = ApplyInTransaction(command, request);
    if (import) ReportImportTask(root, task, result == kOk);
    if (result != kOk) return result;
    if (command == OwnerCommand::SetAuthState) RestartWebServer();
    answered = import;
    return kOk;
}

} // namespace bmcsim::owner
