// Stand-in of the daemon that owns the six client-authentication records:
// a peer of the library, reached over the platform's remote procedure calls
// (module 36), that applies commands 40 to 47 the way that daemon does. It
// runs inside the calling process and keeps its records in config.db; every
// command runs in one write transaction, so owners in several processes
// take turns.
#pragma once

#include <cstdint>
#include <string>

#include "platform/controller_paths.h"
#include "platform/host/sim_store.h"
#include "platform/owner_protocol.h"

namespace bmcsim::owner {

// Codes the owner answers with (the call's result).
inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kPlatformFail = BMC_PLATFORM_RPC_FAIL; // e.g. uploaded file unreadable
inline constexpr uint32_t kBadCertificate = owner_protocol::kRefusedBadCertificate;
inline constexpr uint32_t kListFull = owner_protocol::kRefusedListFull;
inline constexpr uint32_t kInUse = owner_protocol::kRefusedInUse;
inline constexpr uint32_t kAbsent = owner_protocol::kRefusedAbsent;
inline constexpr uint32_t kRootExpired = owner_protocol::kRefusedRootExpired;
inline constexpr uint32_t kRootAbsent = owner_protocol::kRefusedRootAbsent;
inline constexpr uint32_t kCaInstallFailed = owner_protocol::kRefusedCaInstall;

using controller_paths::kClientCertDir;
using controller_paths::kRootCertDir;
using controller_paths::kWebServerConfigPath;
using controller_paths::kWebServerCrlPath;
using owner_protocol::OwnerCommand;

// True for an id of a list of the given length (ids 1..slots).
[[nodiscard]] constexpr bool ValidId(uint32_t id, uint32_t slots) {
    return id >= 1 && id <= slots;
}

// The records as the owner changes them.
struct Records {
    uint8_t authState = 0;
    uint8_t revokeCheck = 0;
    RootCertList roots{};
    CliCertList clients{};
    CliCertUserList bindings{};
};
[[nodiscard]] bool Load(Store &store, Records &records) noexcept;
[[nodiscard]] bool Save(Store &store, const Records &records) noexcept;

// Imports (commands 42 and 43): the file is read, checked and copied (its
// new path in copiedFile) and the first free entry filled.
[[nodiscard]] uint32_t ImportRoot(Records &records, const RootCertImportReq &request,
                                  std::string &copiedFile);
[[nodiscard]] uint32_t ImportClient(Records &records, const CliCertImportReq &request,
                                    std::string &copiedFile);
// The import's task: registered before the import starts, so that an
// import the task service cannot track is refused as a whole; then
// reported finished (state 2) or failed (state 4).
[[nodiscard]] bool RegisterImportTask(bool root, TaskHandle &task) noexcept;
void ReportImportTask(bool root, const TaskHandle &task, bool imported) noexcept;

// The file that ssl.ca-file names in the web server's configuration, or "".
[[nodiscard]] std::string WebServerCaFile();
// The file that a record's name gives in its directory, read whole; false
// for a name that is not plain, a link, or anything but a regular file.
[[nodiscard]] bool ReadRecordFile(const char *dir, const char (&fileName)[33], std::string &bytes);
// Copies a file whole, or writes one, through a temporary file and a rename.
[[nodiscard]] bool CopyFileAtomically(const std::string &from, const std::string &to);
[[nodiscard]] bool WriteFileAtomically(const std::string &to, const std::string &bytes);

// The web server asks clients for a certificate exactly while
// authentication is on, and checks the root's revocation list while it has
// one; false when its configuration cannot be changed.
[[nodiscard]] bool SetClientVerification(bool on, bool withList = false);
// Gives the web server the revocation list installed beside the root, or
// takes its list away when the root has none; withList says which.
[[nodiscard]] bool HandOverRootList(const RootCertInfo &root, bool &withList);
// Restarts the web server so that it reads its authority and configuration.
void RestartWebServer();

// Applies one command whose request has the command's exact length; the
// response task is filled for the imports.
[[nodiscard]] uint32_t Apply(OwnerCommand command, const void *request, TaskHandle &task,
                             bool &answered);

// The owner's records in a factory-fresh controller, written inside the
// caller's transaction.
[[nodiscard]] bool ProvisionRecords(Store &store) noexcept;

} // namespace bmcsim::owner
