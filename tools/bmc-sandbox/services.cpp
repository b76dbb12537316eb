#include "services.h"

#include "fs_util.h"
#include "spawn.h"
#include "layout.h"
#include "service_configs.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <vector>

namespace sandbox {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kStartTimeout = std::chrono::seconds(10);
constexpr auto kStopTimeout = std::chrono::seconds(5);
constexpr auto kPollInterval = std::chrono::milliseconds(20);
constexpr size_t kLogTail = 2000;
constexpr size_t kLogTailLines = 8;

// Positions in kUnits: the controller's tunnel and web server (1), then the
// certificate authority's DNS server and the authority, which resolves
// names through it.
constexpr size_t kTunnel = 0;
constexpr size_t kAcmeDns = 2;
constexpr size_t kAcmeCa = 3;
constexpr size_t kControllerUnits = 2;

struct UnitInfo {
    std::string_view unit;
    std::string_view log_name;
};
constexpr std::array<UnitInfo, 4> kUnits{
    UnitInfo{"stunnel.service", "stunnel.log"},
    UnitInfo{"lighttpd.service", "lighttpd.log"},
    UnitInfo{"pebble-challtestsrv.service", "pebble-challtestsrv.log"},
    UnitInfo{"pebble.service", "pebble.log"},
};

std::string run_path(std::string_view name) {
    return std::string(kServicesRunDir) + "/" + std::string(name);
}

// PATH first, then the system directories that lighttpd lives in and a
// user's PATH may lack.
std::string find_program(const std::string &name) {
    const char *env = std::getenv("PATH");
    std::string dirs = env != nullptr ? env : "";
    dirs += ":/usr/sbin:/sbin:/usr/bin:/bin";
    size_t pos = 0;
    while (pos <= dirs.size()) {
        size_t end = dirs.find(':', pos);
        if (end == std::string::npos) {
            end = dirs.size();
        }
        const std::string dir = dirs.substr(pos, end - pos);
        pos = end + 1;
        if (dir.empty() || dir.front() != '/') {
            continue;
        }
        const std::string path = dir + "/" + name;
        if (::access(path.c_str(), X_OK) == 0) {
            return path;
        }
    }
    return name;
}

std::string env_name(std::string_view section) {
    std::string out = "BMC_SIM_TUNNEL_PORT_";
    for (const char c : section) {
        out += std::isalnum(static_cast<unsigned char>(c)) != 0
                   ? static_cast<char>(std::toupper(static_cast<unsigned char>(c)))
                   : '_';
    }
    return out;
}

std::string status_text(int status) {
    if (WIFSIGNALED(status)) {
        return "was killed by signal " + std::to_string(WTERMSIG(status));
    }
    return "exited with status " + std::to_string(WEXITSTATUS(status));
}

// What the service wrote to its log since FROM: its last few lines.
std::string log_since(const std::string &log, off_t from) {
    std::string text;
    std::string ignored;
    if (!read_file(log, text, ignored)) {
        return {};
    }
    text.erase(0, std::min(text.size(), static_cast<size_t>(from)));
    if (text.size() > kLogTail) {
        text.erase(0, text.size() - kLogTail);
    }
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    size_t start = text.size();
    for (size_t lines = 0; lines < kLogTailLines && start != std::string::npos && start > 0;
         ++lines) {
        start = text.rfind('\n', start - 1);
    }
    if (start != std::string::npos && start > 0) {
        text.erase(0, start + 1);
    }
    return text.empty() ? std::string{} : "; its log " + log + " says:\n" + text;
}

// Runs in the forked child until exec: async-signal-safe calls only.
[[noreturn]] void exec_service(char *const *argv, pid_t supervisor, int log_fd,
                               const ExecFailurePipe &failure) {
    // The service dies with the supervisor, however the supervisor ends.
    if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != supervisor) {
        ::_exit(127);
    }
    ::setpgid(0, 0);
    for (const int sig : {SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGCHLD}) {
        ::signal(sig, SIG_DFL);
    }
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    const int null_fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (null_fd >= 0 && ::dup2(null_fd, STDIN_FILENO) >= 0 && ::dup2(log_fd, STDOUT_FILENO) >= 0 &&
        ::dup2(log_fd, STDERR_FILENO) >= 0) {
        failure.exec_child(argv);
    }
    failure.fail_child();
}

} // namespace

struct Services::Launch {
    std::vector<std::string> argv;
    std::vector<int> ports;
};

Services::Services(AcmeOptions acme)
    : acme_(acme), unit_count_(acme.enabled ? kUnits.size() : kControllerUnits) {}

bool Services::acme_ports(AcmePorts &ports, std::string &why) {
    ports.directory = ports_.port_for("acme", why);
    ports.management = ports_.port_for("acme-management", why);
    ports.http = ports_.port_for("http", why);
    ports.tls_alpn = ports_.port_for("acme-tls-alpn", why);
    ports.dns = ports_.port_for("acme-dns", why);
    ports.dns_management = ports_.port_for("acme-dns-management", why);
    return ports.directory != 0 && ports.management != 0 && ports.http != 0 &&
           ports.tls_alpn != 0 && ports.dns != 0 && ports.dns_management != 0;
}

bool Services::prepare(size_t unit, Launch &launch, std::string &why) {
    if (unit == kAcmeDns || unit == kAcmeCa) {
        AcmePorts ports;
        if (!acme_ports(ports, why)) {
            return false;
        }
        if (unit == kAcmeDns) {
            launch.argv = acme_dns_argv(find_program("pebble-challtestsrv"), ports);
            launch.ports = {ports.dns, ports.dns_management};
            return true;
        }
        launch.argv = acme_ca_argv(find_program("pebble"), ports);
        launch.ports = {ports.directory, ports.management};
        const auto config =
            make_acme_tls(why) ? acme_ca_config(acme_, ports, eab_kid_, why) : std::nullopt;
        return config && write_file_atomic(acme_file(kAcmeConfig), *config, 0644, why);
    }
    const std::string source(unit == kTunnel ? kTunnelControllerConfig : kWebControllerConfig);
    std::string controller;
    if (!read_file(source, controller, why)) {
        return false;
    }
    std::optional<std::string> derived;
    std::string config;
    if (unit == kTunnel) {
        const std::vector<std::string> sections = tunnel_sections(controller);
        if (sections.empty()) {
            why = source + " has no service section";
            return false;
        }
        std::map<std::string, int> ports;
        for (const std::string &section : sections) {
            const int port = ports_.port_for("tunnel:" + section, why);
            if (port == 0) {
                return false;
            }
            ports[section] = port;
            launch.ports.push_back(port);
        }
        first_tunnel_section_ = sections.front();
        derived = derive_tunnel_config(controller, std::string(kServicesRunDir), ports, why);
        config = run_path("stunnel.conf");
        launch.argv = {find_program("stunnel"), config};
    } else {
        const int http_port = ports_.port_for("http", why);
        const int https_port = http_port == 0 ? 0 : ports_.port_for("https", why);
        if (https_port == 0) {
            return false;
        }
        launch.ports = {http_port, https_port};
        derived = derive_web_config(controller, std::string(kServicesRunDir), http_port, https_port,
                                    path_exists, why);
        config = run_path("lighttpd.conf");
        launch.argv = {find_program("lighttpd"), "-D", "-f", config};
    }
    return derived && write_file_atomic(config, *derived, 0644, why);
}

bool Services::start(size_t unit, std::string &why) {
    const std::string name(kUnits[unit].unit);
    Launch launch;
    if (!prepare(unit, launch, why)) {
        why = "cannot prepare " + name + ": " + why;
        return false;
    }
    const std::string log = run_path(kUnits[unit].log_name);
    const UniqueFd log_fd(::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644));
    struct stat st {};
    if (!log_fd.Valid() || ::fstat(log_fd.Get(), &st) != 0) {
        why = errno_text("cannot open the log", log, errno);
        return false;
    }
    ExecFailurePipe failure;
    if (!failure.open()) {
        why = errno_text("cannot create a pipe for", name, errno);
        return false;
    }
    std::vector<char *> argv;
    for (std::string &arg : launch.argv) {
        argv.push_back(arg.data());
    }
    argv.push_back(nullptr);

    const pid_t supervisor = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0) {
        exec_service(argv.data(), supervisor, log_fd.Get(), failure);
    }
    if (pid < 0) {
        why = errno_text("cannot start", name, errno);
        return false;
    }
    ::setpgid(pid, pid); // also in the child: whichever runs first
    pids_[unit] = pid;
    if (const int exec_errno = failure.wait_exec(); exec_errno != 0) {
        stop(unit);
        why = errno_text("cannot execute " + launch.argv[0] + " for", name, exec_errno);
        return false;
    }

    const auto deadline = Clock::now() + kStartTimeout;
    for (;;) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            pids_[unit] = -1;
            why = name + " " + status_text(status) + " while starting" + log_since(log, st.st_size);
            return false;
        }
        bool listening = true;
        for (const int port : launch.ports) {
            listening = listening && loopback_port_listening(port);
        }
        if (listening && unit == kAcmeCa) {
            // Listening is not serving yet; and the root changes at every
            // start.
            AcmePorts ports;
            if (acme_ports(ports, why) && fetch_acme_root(ports, deadline, why)) {
                return true;
            }
            stop(unit);
            why = name + ": " + why + log_since(log, st.st_size);
            return false;
        }
        if (listening) {
            return true;
        }
        if (Clock::now() > deadline) {
            stop(unit);
            why =
                name + " did not listen on its port within 10 seconds" + log_since(log, st.st_size);
            return false;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
}

void Services::stop(size_t unit) {
    const pid_t pid = pids_[unit];
    if (pid <= 0) {
        return;
    }
    ::kill(-pid, SIGTERM);
    ::kill(pid, SIGTERM);
    const auto deadline = Clock::now() + kStopTimeout;
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            ::kill(-pid, SIGKILL);
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
            }
            break;
        }
        std::this_thread::sleep_for(kPollInterval);
    }
    // Whatever the service left in its group goes with it.
    ::kill(-pid, SIGKILL);
    pids_[unit] = -1;
}

bool Services::write_env(std::string &why) const {
    std::string text =
        "# Loopback ports of the services of this sandbox (bmc-sandbox --services).\n";
    const auto &ports = ports_.ports();
    if (const auto it = ports.find("tunnel:" + first_tunnel_section_); it != ports.end()) {
        text += "BMC_SIM_TUNNEL_PORT=" + std::to_string(it->second) + "\n";
    }
    for (const auto &[name, port] : ports) {
        if (name.starts_with("tunnel:")) {
            text += env_name(std::string_view(name).substr(7)) + "=" + std::to_string(port) + "\n";
        }
    }
    const auto port_of = [&ports](const std::string &name) {
        const auto it = ports.find(name);
        return it == ports.end() ? std::string("0") : std::to_string(it->second);
    };
    text += "BMC_SIM_HTTPS_PORT=" + port_of("https") + "\n";
    text += "BMC_SIM_HTTP_PORT=" + port_of("http") + "\n";
    if (acme_.enabled) {
        text += "BMC_SIM_ACME_CHALLENGE_DIR=/" + std::string(kAcmeChallengeBelowRoot) + "\n" +
                "BMC_SIM_ACME_DIRECTORY=https://127.0.0.1:" + port_of("acme") + "/dir\n" +
                "BMC_SIM_ACME_MANAGEMENT=https://127.0.0.1:" + port_of("acme-management") + "\n" +
                "BMC_SIM_ACME_ROOT=" + acme_file(kAcmeRoot) + "\n" +
                "BMC_SIM_ACME_TLS_CA=" + acme_file(kAcmeTlsCa) + "\n" +
                "BMC_SIM_ACME_DNS_MANAGEMENT=http://127.0.0.1:" + port_of("acme-dns-management") +
                "\n";
        if (acme_.eab) {
            text += "BMC_SIM_ACME_EAB_KID=" + eab_kid_ + "\n" +
                    "BMC_SIM_ACME_EAB_KEY_FILE=" + acme_file(kAcmeEabKey) + "\n";
        }
    }
    return write_file_atomic(std::string(kServicesEnv), text, 0644, why);
}

bool Services::start_all(std::string &why) {
    for (size_t unit = 0; unit < unit_count_; ++unit) {
        if (!start(unit, why)) {
            stop_all();
            return false;
        }
    }
    return write_env(why);
}

std::optional<size_t> Services::find(const std::string &unit, bool acme_only,
                                     std::string &why) const {
    std::string known;
    for (size_t i = acme_only ? kControllerUnits : 0; i < unit_count_; ++i) {
        if (kUnits[i].unit == unit) {
            return i;
        }
        known += (known.empty() ? "" : ", ") + std::string(kUnits[i].unit);
    }
    why = "Unit " + unit + " not found: " +
          (known.empty() ? std::string("this sandbox runs no certificate authority (--acme)")
                         : "this sandbox " + std::string(acme_only ? "stops and starts" : "runs") +
                               " only " + known);
    return std::nullopt;
}

bool Services::restart(const std::string &unit, std::string &why) {
    const auto i = find(unit, false, why);
    if (!i) {
        return false;
    }
    stop(*i);
    return start(*i, why) && write_env(why);
}

bool Services::stop_unit(const std::string &unit, std::string &why) {
    const auto i = find(unit, true, why);
    if (i) {
        stop(*i);
    }
    return i.has_value();
}

bool Services::start_unit(const std::string &unit, std::string &why) {
    const auto i = find(unit, true, why);
    return i && (pids_[*i] > 0 || (start(*i, why) && write_env(why)));
}

void Services::stop_all() {
    for (size_t unit = 0; unit < unit_count_; ++unit) {
        stop(unit);
    }
}

void Services::reaped(pid_t pid) {
    for (pid_t &p : pids_) {
        if (p == pid) {
            p = -1;
        }
    }
}

} // namespace sandbox
