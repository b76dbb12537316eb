// The installation journal: a server certificate is installed whole or not
// at all, across failed steps, killed processes and power cuts.
//
// The installed set is four files at fixed paths that the services and the
// location rule open by name: the user certificate, its key, the combined
// file and the tunnel configuration. The installation steps rewrite them one
// after another (the combined file through a shell redirection that empties
// it first), so a process that stops between two writes would leave a mix.
// Before the first of those writes, the journal records durably the whole
// new set and the whole previous set in a directory of its own; renaming the
// finished directory into place is the commit. From then on the set is the
// journal's to settle: the installation removes the journal once the steps
// are done and synchronised; a failed step puts the previous set back; an
// installation that died is completed, by renaming the recorded new files
// over the live ones, by the next installation or by the controller's start
// before the services. A rename replaces a file whole, and one that did not
// reach the disk is done again, so every state on disk, the journal
// included, settles to the previous set or the new one.
//
// Two facts outlive the journal's files. The task an installation runs for
// is recorded with it, so that completing the installation of a process
// that died also ends its task. And the information record is refreshed
// before the journal goes; a refresh that fails leaves a mark beside it, so
// that the next completion refreshes again instead of the stale record
// being served for good.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "frame/unique_fd.h"
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

// One file of the installed set, where it lives and the directory that
// holds it.
struct Role {
    const char *name;
    const char *live;
    const char *dir;
};
constexpr Role kRoles[] = {
    {"cert", kUserCertPath, kUserCertDir},
    {"key", kUserKeyPath, kUserCertDir},
    {"combined", kCombinedPath, kServerCertDir},
    {"tunnel", kTunnelConfigPath, kTunnelConfigDir},
};
constexpr const char *kLiveDirs[] = {kUserCertDir, kServerCertDir, kTunnelConfigDir};
constexpr const char *kNewSet = "new";
constexpr const char *kOldSet = "old";
constexpr const char *kDirectionName = "direction";
constexpr const char *kTurnBackName = "direction.old";
constexpr const char *kAbsentSuffix = ".absent";
constexpr const char *kTaskName = "task";
constexpr const char *kRefreshMark = "/conf/certs/server/.install.refresh";
constexpr mode_t kPrivateMode = S_IRUSR | S_IWUSR;
constexpr uint8_t kTaskStateDone = 2;
constexpr uint8_t kTaskStateFailed = 4;
constexpr uint8_t kProgressComplete = 100;

// The task the installations of this thread run for (InstallationTask).
thread_local std::optional<uint32_t> t_installationTask;

// A path inside a journal directory: "<dir>/<set>.<role><suffix>".
struct JournalPath {
    char text[128] = {};
    JournalPath(const char *dir, const char *set, const char *role, const char *suffix = "") {
        (void)std::snprintf(text, sizeof text, "%s/%s.%s%s", dir, set, role, suffix);
    }
    JournalPath(const char *dir, const char *name) {
        (void)std::snprintf(text, sizeof text, "%s/%s", dir, name);
    }
};

bool Exists(const char *path) {
    return access(path, F_OK) == 0;
}

bool Sync(const char *path) {
    UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
    return fd.Valid() && fsync(fd.Get()) == 0 && fd.Close();
}

// A directory that does not exist holds no file of the set.
bool SyncLiveDirectories() {
    bool synced = true;
    for (const char *dir : kLiveDirs)
        synced = (Sync(dir) || errno == ENOENT) && synced;
    return synced;
}

// Appends a file's bytes to an open descriptor.
bool AppendFile(int out, const char *source) {
    UniqueFd in(open(source, O_RDONLY | O_CLOEXEC));
    if (!in.Valid()) return false;
    char chunk[4096];
    for (;;) {
        const ssize_t got = read(in.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        if (!WriteAll(out, chunk, static_cast<size_t>(got))) return false;
    }
}

// Creates a journal file with the given mode, whatever the umask.
UniqueFd CreateJournalFile(const char *path, mode_t mode) {
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    if (fd.Valid() && fchmod(fd.Get(), mode) != 0) fd.Reset();
    return fd;
}

bool FinishJournalFile(UniqueFd &fd, bool durable = true) {
    return (!durable || fsync(fd.Get()) == 0) && fd.Close();
}

// Writes the concatenation of the sources as one journal file.
bool WriteJoined(const char *path, mode_t mode, bool durable, const char *first,
                 const char *second = nullptr) {
    UniqueFd out = CreateJournalFile(path, mode);
    return out.Valid() && AppendFile(out.Get(), first) &&
           (second == nullptr || AppendFile(out.Get(), second)) && FinishJournalFile(out, durable);
}

mode_t ModeOf(const char *path, mode_t fallback) {
    struct stat st;
    return stat(path, &st) == 0 ? (st.st_mode & 07777) : fallback;
}

// The tunnel configuration as the installation will leave it. A missing
// configuration is left out of the set: the rewrite step reports it.
bool WriteNewTunnel(const char *dir) {
    StdioFile current(kTunnelConfigPath, "r");
    if (!current.IsOpen()) return true;
    const JournalPath path(dir, kNewSet, "tunnel");
    UniqueFd out = CreateJournalFile(path.text, ModeOf(kTunnelConfigPath, kPrivateMode));
    if (!out.Valid()) return false;
    FILE *stream = fdopen(out.Get(), "w");
    if (stream == nullptr) return false;
    (void)out.Release();
    RewriteTunnelOptions(current.get(), stream, kUserCertPath, kUserKeyPath);
    const bool written = std::ferror(current.get()) == 0 && std::ferror(stream) == 0 &&
                         std::fflush(stream) == 0 && fsync(fileno(stream)) == 0;
    return std::fclose(stream) == 0 && written;
}

// A rename moves a file only within one mount: a set with a place on
// another file system than the journal could be neither completed nor put
// back, and would stay pending until that mount went. Such a set is
// refused before anything is written. A missing directory is refused too:
// nothing could be moved into it.
bool OnJournalFileSystem() {
    struct stat journal;
    if (stat(kServerCertDir, &journal) != 0) return false;
    for (const Role &role : kRoles) {
        struct stat place;
        if (stat(role.dir, &place) != 0) return false;
        const bool foreign = place.st_dev != journal.st_dev ||
                             (lstat(role.live, &place) == 0 && place.st_dev != journal.st_dev);
        if (foreign) {
            errno = EXDEV;
            return false;
        }
    }
    return true;
}

// The task of the installation, when it runs for one, so that a completion
// ends it.
bool WriteTask(const char *dir) {
    if (!t_installationTask) return true;
    char text[16] = {};
    const auto [end, error] = std::to_chars(text, text + sizeof text - 1, *t_installationTask);
    UniqueFd fd = CreateJournalFile(JournalPath(dir, kTaskName).text, kPrivateMode);
    return error == std::errc() && fd.Valid() && WriteAll(fd.Get(), text, end - text) &&
           FinishJournalFile(fd);
}

std::optional<uint32_t> ReadTask(const char *dir) {
    char text[16] = {};
    UniqueFd fd(open(JournalPath(dir, kTaskName).text, O_RDONLY | O_CLOEXEC));
    const ssize_t got = fd.Valid() ? read(fd.Get(), text, sizeof text - 1) : -1;
    uint32_t id = 0;
    if (got <= 0 || std::from_chars(text, text + got, id).ptr != text + got) return std::nullopt;
    return id;
}

// The installation returns to a caller that reports its task itself: a
// journal that stays must not report it a second time.
void LeaveTaskToCaller() {
    (void)unlink(JournalPath(kInstallJournalDir, kTaskName).text);
}

// Refreshes the information record. A refresh that fails leaves the mark
// (synchronised, so that a power cut does not lose it) for the next
// completion; one that succeeds removes it. False when the record is stale
// and no mark says so.
bool RefreshRecord() {
    if (SECURITY_UpdateCertInfo() == 0) {
        if (unlink(kRefreshMark) == 0) (void)Sync(kServerCertDir);
        return true;
    }
    UniqueFd mark = CreateJournalFile(kRefreshMark, kPrivateMode);
    return (mark.Valid() || errno == EEXIST) && mark.Close() && Sync(kServerCertDir);
}

// The previous set: each live file's bytes and mode, or a mark that it was
// absent, so that putting it back removes what the installation added. Only
// a failed step turns back to it, in the same call: its files reach the
// disk then, before the journal points at them, and a completed
// installation never waits for them.
bool WriteOldSet(const char *dir) {
    for (const Role &role : kRoles) {
        if (Exists(role.live)) {
            const JournalPath path(dir, kOldSet, role.name);
            if (!WriteJoined(path.text, ModeOf(role.live, kPrivateMode), false, role.live))
                return false;
        } else {
            const JournalPath mark(dir, kOldSet, role.name, kAbsentSuffix);
            UniqueFd fd = CreateJournalFile(mark.text, kPrivateMode);
            if (!fd.Valid() || !FinishJournalFile(fd, false)) return false;
        }
    }
    return true;
}

bool WriteNewSet(const char *dir, const char *tmpCert, const char *tmpKey) {
    const JournalPath cert(dir, kNewSet, "cert");
    const JournalPath key(dir, kNewSet, "key");
    const JournalPath combined(dir, kNewSet, "combined");
    return WriteJoined(cert.text, ModeOf(tmpCert, kPrivateMode), true, tmpCert) &&
           WriteJoined(key.text, kPrivateMode, true, tmpKey) &&
           WriteJoined(combined.text, kPrivateMode, true, tmpCert, tmpKey) && WriteNewTunnel(dir);
}

// Which set settles the journal: "new", and once a step failed "old". Both
// are written with the journal, so that turning back needs only a rename,
// which a full disk does not refuse.
bool WriteDirections(const char *dir) {
    for (const auto &[name, set] :
         {std::pair{kDirectionName, kNewSet}, std::pair{kTurnBackName, kOldSet}}) {
        UniqueFd fd = CreateJournalFile(JournalPath(dir, name).text, kPrivateMode);
        if (!fd.Valid() || !WriteAll(fd.Get(), set, std::strlen(set)) || !FinishJournalFile(fd))
            return false;
    }
    return Sync(dir);
}

const char *ReadDirection(const char *dir) {
    const JournalPath direction(dir, kDirectionName);
    char set[8] = {};
    UniqueFd fd(open(direction.text, O_RDONLY | O_CLOEXEC));
    if (fd.Valid() && read(fd.Get(), set, sizeof set - 1) > 0 && std::strcmp(set, kOldSet) == 0)
        return kOldSet;
    return kNewSet;
}

// Moves a recorded set into place. A file already moved is no longer in
// the journal, so that a move cut short is finished by doing it again.
bool ApplySet(const char *dir, const char *set) {
    for (const Role &role : kRoles) {
        const JournalPath recorded(dir, set, role.name);
        if (rename(recorded.text, role.live) == 0) continue;
        // Gone from the journal: moved before. Still there: the place is.
        if (errno != ENOENT || Exists(recorded.text)) return false;
        const JournalPath absent(dir, set, role.name, kAbsentSuffix);
        if (!Exists(absent.text)) continue;
        if (unlink(role.live) != 0 && errno != ENOENT) return false;
        (void)unlink(absent.text);
    }
    return SyncLiveDirectories();
}

// Removes a journal directory and what is left in it.
bool RemoveJournal(const char *dir) {
    for (const char *set : {kNewSet, kOldSet}) {
        for (const Role &role : kRoles) {
            (void)unlink(JournalPath(dir, set, role.name).text);
            (void)unlink(JournalPath(dir, set, role.name, kAbsentSuffix).text);
        }
    }
    (void)unlink(JournalPath(dir, kDirectionName).text);
    (void)unlink(JournalPath(dir, kTurnBackName).text);
    (void)unlink(JournalPath(dir, kTaskName).text);
    return (rmdir(dir) == 0 || errno == ENOENT) && Sync(kServerCertDir);
}

} // namespace

InstallationTask::InstallationTask(uint32_t taskId) noexcept {
    t_installationTask = taskId;
}

InstallationTask::~InstallationTask() {
    t_installationTask.reset();
}

Completion CompleteRecordedInstallation() {
    // A journal still being written was never committed: the previous set
    // is whole and in force.
    if (Exists(kInstallStagingDir) && !RemoveJournal(kInstallStagingDir)) {
        BMCCERT_DIAG(kLevelHandling,
                     "Remove the unfinished installation record %s failed! strerrno:%s\n",
                     kInstallStagingDir, std::strerror(errno));
        return Completion::kPending;
    }
    if (!Exists(kInstallJournalDir)) {
        // A refresh that failed after an installation is retried; the set
        // itself is whole either way.
        if (Exists(kRefreshMark)) (void)RefreshRecord();
        return Completion::kNothing;
    }
    const char *set = ReadDirection(kInstallJournalDir);
    const bool isNew = std::strcmp(set, kNewSet) == 0;
    // The process may have died before it refreshed the record: the journal
    // goes only after the refresh.
    if (!ApplySet(kInstallJournalDir, set) || !RefreshRecord()) {
        BMCCERT_DIAG(kLevelHandling,
                     "Completing the interrupted installation recorded in %s failed! strerrno:%s\n",
                     kInstallJournalDir, std::strerror(errno));
        return Completion::kPending;
    }
    // Reported before the journal goes: a completion cut short here reports
    // the same end again rather than none.
    if (const std::optional<uint32_t> task = ReadTask(kInstallJournalDir)) {
        SECURITY_SSL_UpdateImportTask(*task, isNew ? kTaskStateDone : kTaskStateFailed,
                                      kProgressComplete,
                                      isNew ? "Installed, completed on recovery"
                                            : "Interrupted; previous cert kept");
    }
    if (!RemoveJournal(kInstallJournalDir)) {
        BMCCERT_DIAG(kLevelHandling,
                     "Completing the interrupted installation recorded in %s failed! strerrno:%s\n",
                     kInstallJournalDir, std::strerror(errno));
        return Completion::kPending;
    }
    BMCCERT_DIAG(kLevelNotice, "Completed the interrupted installation recorded in %s: %s set.\n",
                 kInstallJournalDir, set);
    return isNew ? Completion::kNewSet : Completion::kOldSet;
}

bool CompletePendingInstallation() {
    return CompleteRecordedInstallation() != Completion::kPending;
}

uint32_t InstallationFailureCode() {
    return Exists(kInstallJournalDir) ? SSLCERT_EXT_ERR_INSTALL_PENDING : SSLCERT_EXT_ERR_INSTALL;
}

bool RecordInstallation(const char *tmpCert, const char *tmpKey) {
    const bool recorded =
        OnJournalFileSystem() && mkdir(kInstallStagingDir, S_IRWXU) == 0 &&
        WriteOldSet(kInstallStagingDir) && WriteNewSet(kInstallStagingDir, tmpCert, tmpKey) &&
        WriteTask(kInstallStagingDir) && WriteDirections(kInstallStagingDir) &&
        rename(kInstallStagingDir, kInstallJournalDir) == 0 && Sync(kServerCertDir);
    if (recorded) return true;
    BMCCERT_DIAG(kLevelHandling, "Record the installation in %s failed! strerrno:%s\n",
                 kInstallStagingDir, std::strerror(errno));
    (void)RemoveJournal(kInstallStagingDir);
    return false;
}

void FinishInstallation() {
    // A refresh that fails and cannot leave its mark keeps the journal: its
    // completion refreshes again.
    bool finished = RefreshRecord();
    for (const Role &role : kRoles)
        finished = (!Exists(role.live) || Sync(role.live)) && finished;
    // Until the live set is known to be on disk the journal stays: the next
    // installation or start moves the same files into place again.
    if (!finished || !SyncLiveDirectories() || !RemoveJournal(kInstallJournalDir))
        LeaveTaskToCaller();
}

void RollBackInstallation() {
    bool synced = true;
    for (const Role &role : kRoles) {
        const JournalPath recorded(kInstallJournalDir, kOldSet, role.name);
        synced = (!Exists(recorded.text) || Sync(recorded.text)) && synced;
    }
    if (synced &&
        rename(JournalPath(kInstallJournalDir, kTurnBackName).text,
               JournalPath(kInstallJournalDir, kDirectionName).text) == 0 &&
        Sync(kInstallJournalDir) && ApplySet(kInstallJournalDir, kOldSet) &&
        RemoveJournal(kInstallJournalDir)) {
        return;
    }
    // The journal stays and names the set a completion will put in force:
    // the installation is pending, not refused.
    BMCCERT_DIAG(kLevelHandling,
                 "Putting back the previous certificate set from %s failed! strerrno:%s\n",
                 kInstallJournalDir, std::strerror(errno));
    LeaveTaskToCaller();
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_CompleteInstallation(void) {
    uint32_t outcome = SSLCERT_EXT_RECOVER_NONE;
    return LIB_SECURITY_SSL_RecoverInstallation(0, &outcome);
}

extern "C" uint32_t LIB_SECURITY_SSL_RecoverInstallation(uint8_t bRestartServices,
                                                         uint32_t *puiOutcome) {
    BMCCERT_CHECK_NULL(puiOutcome, SSLCERT_ERR_NULL_POINTER);
    *puiOutcome = SSLCERT_EXT_RECOVER_NONE;
    Completion completion;
    {
        const InstallationLock installing;
        if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
        completion = CompleteRecordedInstallation();
    }
    switch (completion) {
    case Completion::kPending:
        return SSLCERT_EXT_ERR_INSTALL_PENDING;
    case Completion::kNothing:
        return SSLCERT_OK;
    case Completion::kNewSet:
        *puiOutcome = SSLCERT_EXT_RECOVER_NEW_SET;
        break;
    case Completion::kOldSet:
        *puiOutcome = SSLCERT_EXT_RECOVER_OLD_SET;
        break;
    }
    if (bRestartServices == 0) return SSLCERT_OK;
    // The services may have read a mix while the installation was cut
    // short: the same two restarts as after an installation.
    if (const int32_t result = RestartServiceNow(kTunnelService); result != 0) {
        BMCCERT_DIAG(kLevelFailure, "Recover:Restart stunnel service failed! iRet=%d. ERR:%s.\n",
                     result, kRestartErrorText);
        return SSLCERT_EXT_ERR_RESTART;
    }
    if (const uint32_t result = RestartWebServerLater(); result != 0) {
        BMCCERT_DIAG(kLevelFailure, "Recover:Restart lighttpd service failed! iRet=%d. ERR:%s.\n",
                     result, kRestartErrorText);
        return SSLCERT_EXT_ERR_RESTART;
    }
    return SSLCERT_OK;
}
