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
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "frame/unique_fd.h"
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

// One file of the installed set and where it lives.
struct Role {
    const char *name;
    const char *live;
};
constexpr Role kRoles[] = {
    {"cert", kUserCertPath},
    {"key", kUserKeyPath},
    {"combined", kCombinedPath},
    {"tunnel", kTunnelConfigPath},
};
constexpr const char *kLiveDirs[] = {kUserCertDir, kServerCertDir, kTunnelConfigDir};
constexpr const char *kNewSet = "new";
constexpr const char *kOldSet = "old";
constexpr const char *kDirectionName = "direction";
constexpr const char *kTurnBackName = "direction.old";
constexpr const char *kAbsentSuffix = ".absent";
constexpr mode_t kPrivateMode = S_IRUSR | S_IWUSR;

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
    return (rmdir(dir) == 0 || errno == ENOENT) && Sync(kServerCertDir);
}

} // namespace

bool CompletePendingInstallation() {
    // A journal still being written was never committed: the previous set
    // is whole and in force.
    if (Exists(kInstallStagingDir) && !RemoveJournal(kInstallStagingDir)) {
        BMCCERT_DIAG(kLevelHandling,
                     "Remove the unfinished installation record %s failed! strerrno:%s\n",
                     kInstallStagingDir, std::strerror(errno));
        return false;
    }
    if (!Exists(kInstallJournalDir)) return true;
    const char *set = ReadDirection(kInstallJournalDir);
    // The process may have died before it refreshed the record: the journal
    // goes only after the refresh.
    const bool applied = ApplySet(kInstallJournalDir, set);
    if (applied) (void)SECURITY_UpdateCertInfo();
    if (!applied || !RemoveJournal(kInstallJournalDir)) {
        BMCCERT_DIAG(kLevelHandling,
                     "Completing the interrupted installation recorded in %s failed! strerrno:%s\n",
                     kInstallJournalDir, std::strerror(errno));
        return false;
    }
    BMCCERT_DIAG(kLevelNotice, "Completed the interrupted installation recorded in %s: %s set.\n",
                 kInstallJournalDir, set);
    return true;
}

bool RecordInstallation(const char *tmpCert, const char *tmpKey) {
    const bool recorded =
        mkdir(kInstallStagingDir, S_IRWXU) == 0 && WriteOldSet(kInstallStagingDir) &&
        WriteNewSet(kInstallStagingDir, tmpCert, tmpKey) && WriteDirections(kInstallStagingDir) &&
        rename(kInstallStagingDir, kInstallJournalDir) == 0 && Sync(kServerCertDir);
    if (recorded) return true;
    BMCCERT_DIAG(kLevelHandling, "Record the installation in %s failed! strerrno:%s\n",
                 kInstallStagingDir, std::strerror(errno));
    (void)RemoveJournal(kInstallStagingDir);
    return false;
}

void FinishInstallation() {
    bool synced = true;
    for (const Role &role : kRoles)
        synced = (!Exists(role.live) || Sync(role.live)) && synced;
    // Until the live set is known to be on disk the journal stays: the next
    // installation or start moves the same files into place again.
    if (synced && SyncLiveDirectories()) (void)RemoveJournal(kInstallJournalDir);
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
    BMCCERT_DIAG(kLevelHandling,
                 "Putting back the previous certificate set from %s failed! strerrno:%s\n",
                 kInstallJournalDir, std::strerror(errno));
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_CompleteInstallation(void) {
    const InstallationLock installing;
    if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
    if (!CompletePendingInstallation()) return SSLCERT_EXT_ERR_INSTALL_PENDING;
    return SSLCERT_OK;
}
