// Internal declarations of the server-certificate source unit
// (lib_security_sslcert).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "frame/config_line.h"
#include "frame/frame.h"
#include "platform/controller_paths.h"

namespace bmccert::sslcert {

using namespace controller_paths;

inline constexpr uint32_t kDiagSubModule = 3;
// This unit's null-pointer reports carry module 0 and sub-module 0, which
// the management daemons' log filters already expect.
inline constexpr uint32_t kNullReportModule = 0;
inline constexpr uint32_t kNullReportSubModule = 0;

// The certificate and key paths of one certificate type, looked up into
// zero-filled buffers of the size every caller uses.
struct CertKeyPaths {
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
};

// Looks up the paths of a type; on failure reports "Failed to get Cert and
// Key Path" naming the calling operation and returns false.
[[nodiscard]] bool LookupCertKeyPaths(uint32_t certType, CertKeyPaths &paths,
                                      const char *callerName);

// Stores the information record in the configuration database.
[[nodiscard]] uint32_t SECURITY_PutCertInfo(const SSLCertInfo *pstSSLCertInfo);

// Outcomes of a server-certificate operation, as its operation-log
// description tells them.
enum SSLCertOutcome : uint32_t {
    kOutcomeGenFailed = 0,
    kOutcomeGenDone = 1,
    kOutcomeImportFailed = 2,
    kOutcomeImportDone = 3,
};

// Fills the caller's operation-log description of an outcome.
void SECURITY_SetSSLCertOperateLogDes(uint32_t uiOutcome, OperateDesc *pstOperateDesc);

// Internal codes that both management entries map to management codes of
// their own; every other non-zero code gets the entry's default.
extern const std::array<BMC_ErrCodeMap, 3> SSLCertErrMap;

// Management code of an entry's internal result: 0 stays 0.
[[nodiscard]] uint32_t ToManagementCode(uint32_t internalCode, uint32_t defaultCode);

inline constexpr const char *kTunnelService = "stunnel.service";
inline constexpr const char *kWebService = "lighttpd.service";
inline constexpr int kWebRestartDelaySeconds = 2;
// What the restart reports put where an error text goes: a restart sets no
// errno, and an unrelated one left from an earlier call would mislead.
inline constexpr const char *kRestartErrorText = "none, the restart reports only its status";

// Asks the service manager to restart a unit now; its result is the
// restart's result. The calling place is handed on for the service
// manager's own records.
[[nodiscard]] int32_t RestartServiceNow(const char *unit,
                                        const SourcePlace &where = BMCCERT_CALLER_PLACE);

// Starts the web server's restart in the background, after the delay, and
// returns at once: 0 when the shell command could be started.
[[nodiscard]] uint32_t RestartWebServerLater();

// Removes a scratch file; a failure is only reported ("File %s unlink
// failed. %s\n", level 6), never fatal.
void RemoveScratchFileReported(const char *path);

// Ends every text field of a request inside its array (see EndText).
void EndTexts(SSLCertGenParam &request);

// Serialises the operations that write the temporary pairs and install a
// pair (generation, import, direct installation) across threads and
// processes, from the first write of a temporary file to the last step of
// the installation, so that two of them never mix their files. Re-entrant
// on one thread: an entry holds it over the steps it calls. Readers never
// take it. A lock that cannot be taken (its file replaced by a link, the
// lock directory unusable) is reported, and the work it guards must not
// start: every holder checks Held() first.
class InstallationLock {
  public:
    InstallationLock();
    InstallationLock(const InstallationLock &) = delete;
    InstallationLock &operator=(const InstallationLock &) = delete;
    ~InstallationLock();
    [[nodiscard]] bool Held() const noexcept { return held_; }

  private:
    uint32_t handle_ = 0;
    bool held_ = false;
};

// The installation journal (install_journal.cpp), used under the
// installation lock. Record writes the new set made of the temporary pair
// and the previous set, durably, before anything installed changes; false
// after a report. Finish refreshes the record and removes the journal once
// the installed files are on disk; RollBack puts the previous set back after
// a failed step. Complete settles
// a journal left by an installation that died, and refreshes the record,
// before the next one starts or the services do; false after a report when
// it stays pending.
[[nodiscard]] bool RecordInstallation(const char *tmpCert, const char *tmpKey);
void FinishInstallation();
void RollBackInstallation();
[[nodiscard]] bool CompletePendingInstallation();

// Copies the tunnel configuration piece by piece (a piece ends after a line
// feed or after 255 characters), turning every piece that mentions either
// option into an active line with the new path.
void RewriteTunnelOptions(FILE *in, FILE *out, const char *certPath, const char *keyPath);

// Restricts a file that holds private key material to its owner (0600).
[[nodiscard]] bool RestrictToOwner(const char *path);

// Makes a file that a shell redirection is about to fill with key material
// private and empty first: the redirection creates a missing file with the
// process umask and keeps the mode of an existing one. A link at the name
// or a file that is not regular is refused (false, after a report).
[[nodiscard]] bool PreparePrivateFile(const char *path);

// OpenSSL's pass-phrase callback that supplies none: an encrypted key is
// refused instead of a pass phrase being asked for on a terminal.
int SupplyNoPassphrase(char *buf, int size, int rwflag, void *userdata);

// The import thread's own copy of an import request.
struct ImportProc {
    UploadParam stUploadParam;
    uint32_t TaskId;
};
static_assert(sizeof(ImportProc) == 2140);
static_assert(offsetof(ImportProc, TaskId) == 2136);

// The diagnostic event of a certificate refused for its MD5 signature.
[[nodiscard]] int32_t SECURITY_SSL_AddQdr();

// Checks that the first line of the temporary key does not announce a
// pass-phrase encrypted key.
[[nodiscard]] uint32_t SECURITY_SSL_VerifyEncryptedStatus();

// The tunnel configuration's option lines, each formatted into one buffer
// of this size: "cert = " or "key = ", the path and a line feed.
inline constexpr size_t kTunnelLineSize = 256;
inline constexpr std::string_view kTunnelCertOption = "cert = ";
inline constexpr std::string_view kTunnelKeyOption = "key = ";

// True when the path may be the value of the option's line: the check
// every writer of a configuration file applies (IsConfigLinePath), with
// the room the line's buffer leaves after the option, the line feed and
// the terminator.
[[nodiscard]] constexpr bool FitsTunnelLine(std::string_view option, std::string_view path) {
    return IsConfigLinePath(path, kTunnelLineSize - option.size() - 2);
}

// Makes the scratch directory /var/certs private before anything is written
// there: created 0700, or changed to 0700 when it exists; refused (false,
// after a report) when it is a link, not a directory, or not the process's
// user's. Keys lie there between their arrival and their installation, and
// shell redirections and the openssl tool write there by name.
[[nodiscard]] bool MakeScratchDirPrivate();

// Removes a stale scratch entry (a planted link among them) before a tool
// creates the file by name; a missing one is fine. False after a report.
[[nodiscard]] bool RemoveStaleScratch(const char *path);

// Creates an empty scratch file 0600 that is this call's own, for a
// redirection, the openssl tool or a stream to fill: a stale entry (a
// planted link among them) is removed first, and the new one is created
// exclusively without following a link. False after a report.
[[nodiscard]] bool CreateScratchFile(const char *path);

// What a completion of the installation journal found and did
// (install_journal.cpp): nothing recorded, an interrupted installation
// completed in either direction, or one that stays pending (reported).
enum class Completion { kNothing, kNewSet, kOldSet, kPending };
[[nodiscard]] Completion CompleteRecordedInstallation();

// The extension's code for a failed SECURITY_SSL_UpdateSSLCert, asked
// under the installation lock right after it: SSLCERT_EXT_ERR_INSTALL_PENDING
// when a journal stays (a completion will settle the set), else
// SSLCERT_EXT_ERR_INSTALL (the previous set is in force).
[[nodiscard]] uint32_t InstallationFailureCode();

// Names the task that the installations of the calling thread run for,
// while it lives, so that the journal records it and the completion of an
// installation whose process died ends that task.
class InstallationTask {
  public:
    explicit InstallationTask(uint32_t taskId) noexcept;
    InstallationTask(const InstallationTask &) = delete;
    InstallationTask &operator=(const InstallationTask &) = delete;
    ~InstallationTask();
};

} // namespace bmccert::sslcert
