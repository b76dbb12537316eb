// Stand-in of the daemon that owns the six client-authentication records:
// it applies commands 40 to 47 of module 36 the way that daemon does. Every
// command runs in one write transaction of config.db, so owners in several
// processes take turns.
#pragma once

#include <cstdint>
#include <string>

#include "include/lib_ssl_auth.h"
#include "sim_store.h"

namespace bmcsim::owner {

// Codes the owner answers with (the call's result).
inline constexpr int32_t kOk = 0;
inline constexpr uint32_t kPlatformFail = 0x82000001;    // uploaded file unreadable
inline constexpr uint32_t kPlatformTimeout = 0x82000002; // wait limit 0
inline constexpr uint32_t kBadCertificate = 0x92000002;
inline constexpr uint32_t kListFull = 0x92000017;
inline constexpr uint32_t kInUse = 0x92000018;
inline constexpr uint32_t kAbsent = 0x92000019;
inline constexpr uint32_t kRootExpired = 0x9200001F;
inline constexpr uint32_t kRootAbsent = 0x92000021;
inline constexpr uint32_t kCaInstallFailed = 0x92000025;

inline constexpr const char *kRootDir = "/conf/certs/root/";
inline constexpr const char *kClientDir = "/conf/certs/client/";
inline constexpr const char *kWebServerConfig = "/conf/lighttpd/lighttpd.conf";

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
// Copies a file whole, or writes one, through a temporary file and a rename.
[[nodiscard]] bool CopyFileAtomically(const std::string &from, const std::string &to);
[[nodiscard]] bool WriteFileAtomically(const std::string &to, const std::string &bytes);

// The web server asks clients for a certificate exactly while
// authentication is on; false when its configuration cannot be changed.
[[nodiscard]] bool SetClientVerification(bool on);
// Restarts the web server so that it reads its authority and configuration.
void RestartWebServer();

// Applies one command; the response task is filled for the imports.
[[nodiscard]] uint32_t Apply(uint32_t command, const void *request, TaskHandle &task,
                             bool &answered);

} // namespace bmcsim::owner
