#include "spawn.h"

#include "fs_util.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>

namespace sandbox {

namespace {

constexpr size_t kMaxCapturedOutput = 64 * 1024;
constexpr std::array kForwardedSignals{SIGTERM, SIGHUP};
constexpr std::array kTerminalSignals{SIGINT, SIGQUIT};

volatile sig_atomic_t forward_to_pid = 0;

void forward_signal(int sig) {
    const pid_t pid = forward_to_pid;
    if (pid > 0) {
        ::kill(pid, sig);
    }
}

void set_handler(int sig, void (*handler)(int)) {
    struct sigaction sa {};
    sa.sa_handler = handler;
    sa.sa_flags = SA_RESTART;
    ::sigemptyset(&sa.sa_mask);
    ::sigaction(sig, &sa, nullptr);
}

void set_all_handlers(void (*forward)(int), void (*terminal)(int)) {
    for (const int sig : kForwardedSignals) {
        set_handler(sig, forward);
    }
    for (const int sig : kTerminalSignals) {
        set_handler(sig, terminal);
    }
}

[[nodiscard]] bool make_pipe(UniqueFd &read_end, UniqueFd &write_end) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        return false;
    }
    read_end.Reset(fds[0]);
    write_end.Reset(fds[1]);
    return true;
}

// Runs in the forked child: only async-signal-safe calls until exec.
[[noreturn]] void exec_child(char *const *argv, const RunOptions &options, int output_fd,
                             const ExecFailurePipe &failure, const sigset_t &original_mask) {
    if (options.forward_signals) {
        set_all_handlers(SIG_DFL, SIG_DFL);
    }
    ::sigprocmask(SIG_SETMASK, &original_mask, nullptr);
    if (options.umask) {
        ::umask(*options.umask);
    }
    if (output_fd >= 0) {
        const int null_fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        if (null_fd < 0 || ::dup2(null_fd, STDIN_FILENO) < 0 ||
            ::dup2(output_fd, STDOUT_FILENO) < 0 || ::dup2(output_fd, STDERR_FILENO) < 0) {
            failure.fail_child();
        }
    }
    failure.exec_child(argv);
}

void read_all(int fd, std::string &out) {
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return;
        }
        out.append(buf, static_cast<size_t>(n));
        if (out.size() > kMaxCapturedOutput) {
            out.erase(0, out.size() - kMaxCapturedOutput);
        }
    }
}

[[nodiscard]] int wait_for(pid_t pid) {
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return 128 + SIGKILL;
        }
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    return WEXITSTATUS(status);
}

} // namespace

bool ExecFailurePipe::open() {
    return make_pipe(read_, write_);
}

void ExecFailurePipe::fail_child() const noexcept {
    const int err = errno;
    (void)!::write(write_.Get(), &err, sizeof err);
    ::_exit(127);
}

void ExecFailurePipe::exec_child(char *const *argv) const noexcept {
    ::execvp(argv[0], argv);
    fail_child();
}

int ExecFailurePipe::wait_exec() {
    write_.Reset();
    int exec_errno = 0;
    ssize_t n;
    do {
        n = ::read(read_.Get(), &exec_errno, sizeof exec_errno);
    } while (n < 0 && errno == EINTR);
    return n == static_cast<ssize_t>(sizeof exec_errno) ? exec_errno : 0;
}

bool run_program(const std::vector<std::string> &argv, const RunOptions &options, RunResult &result,
                 std::string &why) {
    if (argv.empty()) {
        why = "no program to run";
        return false;
    }
    std::vector<std::string> args = argv;
    std::vector<char *> cargs;
    cargs.reserve(args.size() + 1);
    for (auto &a : args) {
        cargs.push_back(a.data());
    }
    cargs.push_back(nullptr);

    ExecFailurePipe failure;
    UniqueFd output_read;
    UniqueFd output_write;
    if (!failure.open() || (options.capture_output && !make_pipe(output_read, output_write))) {
        why = errno_text("cannot create a pipe for", argv[0], errno);
        return false;
    }

    // Signals stay blocked across fork so that none arrives before the
    // parent knows whom to forward it to.
    sigset_t all;
    sigset_t original;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &original);
    if (options.forward_signals) {
        set_all_handlers(forward_signal, SIG_IGN);
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        exec_child(cargs.data(), options, output_write.Get(), failure, original);
    }
    const int fork_errno = errno;
    if (pid > 0 && options.forward_signals) {
        forward_to_pid = pid;
    }
    ::sigprocmask(SIG_SETMASK, &original, nullptr);
    if (pid < 0) {
        if (options.forward_signals) {
            set_all_handlers(SIG_DFL, SIG_DFL);
        }
        why = errno_text("cannot start", argv[0], fork_errno);
        return false;
    }
    output_write.Reset();
    const int exec_errno = failure.wait_exec();
    if (output_read.Valid()) {
        read_all(output_read.Get(), result.output);
    }
    result.exit_code = wait_for(pid);
    if (options.forward_signals) {
        forward_to_pid = 0;
        set_all_handlers(SIG_DFL, SIG_DFL);
    }
    if (exec_errno != 0) {
        why = errno_text("cannot execute", argv[0], exec_errno);
        return false;
    }
    return true;
}

} // namespace sandbox
