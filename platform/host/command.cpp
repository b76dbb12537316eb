// Command lines run through /bin/sh in a child started with posix_spawn:
// unlike system() and popen() it is safe from any thread and does not touch
// the caller's signal handling. Every descriptor of the stand-in is
// close-on-exec, so a child only ever holds the pipe it is meant to write.
#include <atomic>
#include <csignal>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "sim_internal.h"
#include "sim_log.h"

extern char **environ;

namespace {

std::atomic<uint64_t> g_spawnCount{0};

using FileActions = bmcsim::Owned<posix_spawn_file_actions_t, posix_spawn_file_actions_destroy>;
using SpawnAttr = bmcsim::Owned<posix_spawnattr_t, posix_spawnattr_destroy>;

constexpr off_t kStderrLogLimit = 1 << 20;

// The log that takes the children's standard error: a daemon's own stderr
// is no place for the openssl tool's progress dots and notes. Started
// afresh once it passes its limit; invalid when it cannot be opened (the
// child then keeps the caller's stderr).
[[nodiscard]] bmcsim::UniqueFd OpenStderrLog() noexcept {
    if (!bmcsim::OnController() || !bmcsim::MakeDirs(BMCSIM_STATE_DIR)) return {};
    struct stat st;
    const bool full = ::stat(BMCSIM_COMMANDS_STDERR_LOG, &st) == 0 && st.st_size > kStderrLogLimit;
    return bmcsim::UniqueFd(::open(BMCSIM_COMMANDS_STDERR_LOG,
                                   O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | (full ? O_TRUNC : 0),
                                   0600));
}

// Starts "/bin/sh -c cmd", its standard output on outFd when that is valid
// and its standard error on the commands' stderr log. The child gets the
// default SIGPIPE and an empty signal mask whatever the caller uses, so
// that a pipeline inside the command behaves as in a shell.
[[nodiscard]] bool Spawn(const char *cmd, int outFd, pid_t *pid) noexcept {
    posix_spawn_file_actions_t actionsStore;
    if (posix_spawn_file_actions_init(&actionsStore) != 0) return false;
    FileActions actions(&actionsStore);
    if (outFd >= 0 && posix_spawn_file_actions_adddup2(actions.get(), outFd, STDOUT_FILENO) != 0)
        return false;
    const bmcsim::UniqueFd errLog = OpenStderrLog();
    if (errLog.Valid() &&
        posix_spawn_file_actions_adddup2(actions.get(), errLog.Get(), STDERR_FILENO) != 0)
        return false;

    posix_spawnattr_t attrStore;
    if (posix_spawnattr_init(&attrStore) != 0) return false;
    SpawnAttr attr(&attrStore);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    if (posix_spawnattr_setsigmask(attr.get(), &none) != 0 ||
        posix_spawnattr_setsigdefault(attr.get(), &defaults) != 0 ||
        posix_spawnattr_setflags(attr.get(), POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) != 0)
        return false;

    char shell[] = "/bin/sh";
    char dashC[] = "-c";
    char *argv[] = {shell, dashC, const_cast<char *>(cmd), nullptr};
    if (posix_spawn(pid, shell, actions.get(), attr.get(), argv, environ) != 0) return false;
    g_spawnCount.fetch_add(1, std::memory_order_relaxed);
    return true;
}

// The child's wait status, or -1 when it cannot be collected.
[[nodiscard]] int Wait(pid_t pid) noexcept {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

enum class Keep { All, FirstLine };

// Runs the command and keeps its output in the buffer, terminated. The pipe
// is read to its end even once the buffer is full: a child blocked on a
// full pipe would never exit.
[[nodiscard]] int32_t Capture(const char *cmd, uint32_t size, char *buf, Keep keep) noexcept {
    if (cmd == nullptr || buf == nullptr || size == 0) return bmcsim::kFailSigned;
    buf[0] = '\0';
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return bmcsim::kFailSigned;
    bmcsim::UniqueFd readEnd(ends[0]);
    bmcsim::UniqueFd writeEnd(ends[1]);

    pid_t pid;
    if (!Spawn(cmd, writeEnd.Get(), &pid)) return bmcsim::kFailSigned;
    writeEnd.Reset(); // otherwise the pipe never reports its end

    size_t used = 0;
    bool full = false;
    char chunk[4096];
    for (;;) {
        ssize_t got = ::read(readEnd.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        for (ssize_t i = 0; i < got && !full; ++i) {
            if (used + 1 >= size) {
                full = true;
                break;
            }
            buf[used++] = chunk[i];
            if (keep == Keep::FirstLine && chunk[i] == '\n') full = true;
        }
    }
    buf[used] = '\0';
    return Wait(pid) < 0 ? bmcsim::kFailSigned : 0;
}

} // namespace

namespace bmcsim {

bool RunShell(const char *cmd) noexcept {
    pid_t pid;
    if (cmd == nullptr || !Spawn(cmd, -1, &pid)) return false;
    int status = Wait(pid);
    return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace bmcsim

// Every command line BMC_System runs is kept in commands.log, one a line,
// so that tests can assert them exactly; the log is private to its owner,
// as a command line may name a key file.
extern "C" uint32_t BMC_System(const char *pcCmd) {
    if (auto fault = bmcsim::InjectedFault("BMC_System")) return *fault;
    if (pcCmd != nullptr) {
        try {
            std::string line;
            bmcsim::AppendEscaped(line, pcCmd, std::strlen(pcCmd));
            bmcsim::AppendLogLine(BMCSIM_COMMANDS_LOG, std::move(line), 0600);
        } catch (...) {
        } // logging never changes the outcome of the call
    }
    return bmcsim::RunShell(pcCmd) ? 0 : bmcsim::kFail;
}

extern "C" int32_t BMC_GetCmdOutAllBuffer(const char *pcCmd, uint32_t uiSize, char *pcBuf) {
    if (auto fault = bmcsim::InjectedFault("BMC_GetCmdOutAllBuffer"))
        return static_cast<int32_t>(*fault);
    return Capture(pcCmd, uiSize, pcBuf, Keep::All);
}

// Keeps the first line with its line feed when the buffer has room for it;
// a longer line is cut like any other text.
extern "C" int32_t BMC_GetCmdOutLineBuffer(const char *pcCmd, uint32_t uiSize, char *pcBuf) {
    if (auto fault = bmcsim::InjectedFault("BMC_GetCmdOutLineBuffer"))
        return static_cast<int32_t>(*fault);
    return Capture(pcCmd, uiSize, pcBuf, Keep::FirstLine);
}

extern "C" uint64_t BMCSIM_SpawnCount(void) {
    return g_spawnCount.load(std::memory_order_relaxed);
}
