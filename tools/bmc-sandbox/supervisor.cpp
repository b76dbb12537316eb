#include "supervisor.h"

#include "fs_util.h"
#include "layout.h"
#include "service_client.h"
#include "services.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace sandbox {

namespace {

constexpr int kRequestTimeoutSeconds = 5;
constexpr size_t kMaxRequest = 512;
constexpr auto kSupervisorStopTimeout = std::chrono::seconds(20);
constexpr std::string_view kReady = "ready\n";

const std::string kRun(kServicesRunDir);

// SIGPIPE is ignored in the supervisor: a reader that went away only
// ends the write, which is all a failed answer could do.
void answer(int fd, std::string_view text) {
    (void)WriteAll(fd, text.data(), text.size());
}

void remove_published_files() {
    ::unlink(std::string(kControlSocket).c_str());
    ::unlink(std::string(kServicesEnv).c_str());
    ::unlink(std::string(kToolLink).c_str());
    ::unlink(std::string(kLoginLink).c_str());
}

// A fresh run directory with the document root and the link to this tool.
[[nodiscard]] bool prepare_run_dir(std::string &why) {
    int err = 0;
    if (connect_control(err).Valid()) {
        why = "the services of this sandbox already run (another bmc-sandbox --services on the "
              "same ROOT)";
        return false;
    }
    if (!make_dirs(kRun, 0755, why) || !remove_contents(kRun, why) ||
        !make_dirs(kRun + "/www", 0755, why) ||
        !write_file_atomic(kRun + "/www/index.html",
                           "<!doctype html><title>bmc-sandbox</title>sandboxed controller\n", 0644,
                           why)) {
        return false;
    }
    ::unlink(std::string(kServicesEnv).c_str());
    char exe[4096];
    const ssize_t n = ::readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (n <= 0) {
        why = errno_text("cannot read", "/proc/self/exe", errno);
        return false;
    }
    exe[n] = '\0';
    if (::symlink(exe, std::string(kToolLink).c_str()) != 0) {
        why = errno_text("cannot create", std::string(kToolLink), errno);
        return false;
    }
    // The login endpoint is built beside this tool; without it /login fails
    // but everything else is served.
    std::string login(exe);
    login = login.substr(0, login.rfind('/') + 1) + "cert-login";
    if (::access(login.c_str(), X_OK) == 0 &&
        ::symlink(login.c_str(), std::string(kLoginLink).c_str()) != 0) {
        why = errno_text("cannot create", std::string(kLoginLink), errno);
        return false;
    }
    return true;
}

[[nodiscard]] UniqueFd listen_control(std::string &why) {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, kControlSocket.data(), kControlSocket.size());
    const std::string path(kControlSocket);
    if (!fd.Valid() || ::bind(fd.Get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
        ::chmod(path.c_str(), 0600) != 0 || ::listen(fd.Get(), 16) != 0) {
        why = errno_text("cannot listen on", path, errno);
        return {};
    }
    return fd;
}

// One request, "restart UNIT\n", "stop UNIT\n" or "start UNIT\n"; answers
// "ok\n" or "error WHY\n".
void serve_one(int listen_fd, Services &services) {
    const UniqueFd fd(::accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC));
    if (!fd.Valid()) {
        return;
    }
    const timeval timeout{kRequestTimeoutSeconds, 0};
    ::setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    std::string request;
    char buf[256];
    while (request.find('\n') == std::string::npos && request.size() < kMaxRequest) {
        const ssize_t n = ::read(fd.Get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        request.append(buf, static_cast<size_t>(n));
    }
    const size_t end = request.find('\n');
    const size_t space = request.find(' ');
    if (end == std::string::npos || space == std::string::npos || space > end) {
        answer(fd.Get(), "error malformed request\n");
        return;
    }
    const std::string verb = request.substr(0, space);
    const std::string unit = request.substr(space + 1, end - space - 1);
    std::string why;
    bool done = false;
    if (verb == "restart") {
        done = services.restart(unit, why);
    } else if (verb == "stop") {
        done = services.stop_unit(unit, why);
    } else if (verb == "start") {
        done = services.start_unit(unit, why);
    } else {
        why = "malformed request";
    }
    answer(fd.Get(), done ? "ok\n" : "error " + why + "\n");
}

void reap_children(Services &services) {
    for (;;) {
        int status = 0;
        const pid_t pid = ::waitpid(-1, &status, WNOHANG);
        if (pid <= 0) {
            return;
        }
        services.reaped(pid);
    }
}

// The supervisor's body; REPORT receives "ready\n" once the services
// listen, or the reason they could not be started.
[[nodiscard]] int supervise(const AcmeOptions &acme, int report) {
    ::signal(SIGPIPE, SIG_IGN);
    // The authority validates every challenge for real, whatever the
    // caller's environment says.
    ::unsetenv("PEBBLE_VA_ALWAYS_VALID");
    sigset_t mask;
    ::sigemptyset(&mask);
    for (const int sig : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) {
        ::sigaddset(&mask, sig);
    }
    ::sigprocmask(SIG_BLOCK, &mask, nullptr);
    const UniqueFd signals(::signalfd(-1, &mask, SFD_CLOEXEC));

    std::string why;
    Services services(acme);
    UniqueFd control;
    if (!signals.Valid()) {
        why = std::string("cannot create a signalfd: ") + std::strerror(errno);
    } else if (prepare_run_dir(why) && services.start_all(why)) {
        control = listen_control(why);
    }
    if (!control.Valid()) {
        services.stop_all();
        answer(report, why + "\n");
        return 1;
    }
    answer(report, kReady);
    ::close(report);

    for (bool running = true; running;) {
        pollfd fds[2] = {{signals.Get(), POLLIN, 0}, {control.Get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            break;
        }
        if ((fds[0].revents & POLLIN) != 0) {
            signalfd_siginfo info{};
            if (::read(signals.Get(), &info, sizeof info) == sizeof info) {
                if (info.ssi_signo == SIGCHLD) {
                    reap_children(services);
                } else {
                    running = false;
                }
            }
        }
        if (running && (fds[1].revents & POLLIN) != 0) {
            serve_one(control.Get(), services);
        }
    }
    services.stop_all();
    remove_published_files();
    return 0;
}

} // namespace

bool start_supervisor(const AcmeOptions &acme, pid_t &pid, std::string &why) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        why =
            std::string("cannot create a pipe for the service supervisor: ") + std::strerror(errno);
        return false;
    }
    UniqueFd report_read(fds[0]);
    UniqueFd report_write(fds[1]);
    const pid_t tool = ::getpid();
    pid = ::fork();
    if (pid == 0) {
        report_read.Reset();
        // Dies with the tool, however the tool ends; a session of its own
        // keeps the terminal's signals away.
        if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != tool) {
            ::_exit(1);
        }
        ::setsid();
        ::_exit(supervise(acme, report_write.Release()));
    }
    if (pid < 0) {
        why = std::string("cannot start the service supervisor: ") + std::strerror(errno);
        return false;
    }
    report_write.Reset();
    std::string report;
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(report_read.Get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        report.append(buf, static_cast<size_t>(n));
    }
    if (report == kReady) {
        return true;
    }
    stop_supervisor(pid);
    while (!report.empty() && report.back() == '\n') {
        report.pop_back();
    }
    why = report.empty() ? "the service supervisor ended before the services started" : report;
    return false;
}

void stop_supervisor(pid_t pid) {
    if (pid <= 0) {
        return;
    }
    ::kill(pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kSupervisorStopTimeout;
    int status = 0;
    for (;;) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid || (done < 0 && errno != EINTR)) {
            return;
        }
        if (std::chrono::steady_clock::now() > deadline) {
            ::kill(pid, SIGKILL); // the services die with it (PDEATHSIG)
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

void clear_stale_services() {
    if (!path_exists(std::string(kControlSocket))) {
        return;
    }
    int err = 0;
    if (!connect_control(err).Valid() && err == ECONNREFUSED) {
        remove_published_files();
    }
}

} // namespace sandbox
