// bmc-sandbox: runs a command against a private, factory-fresh controller
// file system so that tests and demos never touch the host's /conf,
// /var/certs or services.
#include "fs_util.h"
#include "layout.h"
#include "mount_namespace.h"
#include "network_namespace.h"
#include "provision.h"
#include "root_guard.h"
#include "service_client.h"
#include "spawn.h"
#include "supervisor.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace {

constexpr int kExitUsage = 2;
constexpr int kExitSandboxFailed = 125;
constexpr int kExitCannotExecute = 127;

constexpr std::string_view kUsage =
    "usage: bmc-sandbox [--fresh] [--services [--acme [--acme-eab] [--acme-validity SECONDS]]]\n"
    "                   [--private-network] ROOT -- COMMAND [ARG...]\n"
    "\n"
    "Runs COMMAND in a private mount namespace in which ROOT/conf is /conf,\n"
    "ROOT/var/certs is /var/certs and ROOT/state is /var/lib/bmc-sim, with\n"
    "ROOT/bin first on PATH, then the directory of bmc-sandbox itself (where\n"
    "bmccert and bmc-sim lie), and BMC_SANDBOX_ROOT set to ROOT. A ROOT that was\n"
    "never provisioned first receives the files of a factory-fresh controller;\n"
    "later runs keep what earlier ones wrote.\n"
    "\n"
    "  --fresh     empty ROOT first (it may hold only what a sandbox holds)\n"
    "  --services  also run stunnel and lighttpd from the controller's files,\n"
    "              on free loopback ports written to\n"
    "              /var/lib/bmc-sim/services.env; systemctl restart UNIT then\n"
    "              really restarts them; they stop when COMMAND ends\n"
    "  --acme      with --services: also run a test ACME certificate authority\n"
    "              (pebble) that validates http-01 challenges against the web\n"
    "              server's plain-HTTP port; its addresses and files are in\n"
    "              services.env; systemctl stop|start pebble.service\n"
    "  --acme-eab  accounts need an external account binding (the package's\n"
    "              example MAC keys; the first is named in services.env)\n"
    "  --acme-validity SECONDS\n"
    "              lifetime of the certificates it issues\n"
    "  --private-network\n"
    "              run in a network namespace of its own whose only interface\n"
    "              is loopback (for servers that listen on every address)\n"
    "  --help      show this text\n"
    "\n"
    "Exit status: that of COMMAND (128+N if signal N ended it), 127 if COMMAND\n"
    "cannot be executed, 125 if the sandbox cannot be set up, 2 on bad usage.\n";

struct Arguments {
    bool fresh = false;
    bool services = false;
    bool private_network = false;
    sandbox::AcmeOptions acme;
    std::string root;
    std::vector<std::string> command;
};

void complain(std::string_view message) {
    std::fprintf(stderr, "bmc-sandbox: %.*s\n", static_cast<int>(message.size()), message.data());
}

[[nodiscard]] int usage_error(std::string_view message) {
    complain(message);
    std::fputs("usage: bmc-sandbox [--fresh] [--services [--acme ...]] [--private-network] ROOT -- "
               "COMMAND [ARG...] (see --help)\n",
               stderr);
    return kExitUsage;
}

// Returns an exit status when the tool is done before running anything.
[[nodiscard]] std::optional<int> parse(int argc, char **argv, Arguments &args) {
    int i = 1;
    for (; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage.data(), stdout);
            return 0;
        }
        if (arg == "--fresh" && !args.fresh) {
            args.fresh = true;
            continue;
        }
        if (arg == "--fresh") {
            return usage_error("--fresh given twice");
        }
        if (arg == "--services" && !args.services) {
            args.services = true;
            continue;
        }
        if (arg == "--services") {
            return usage_error("--services given twice");
        }
        if (arg == "--private-network" && !args.private_network) {
            args.private_network = true;
            continue;
        }
        if (arg == "--private-network") {
            return usage_error("--private-network given twice");
        }
        if (arg == "--acme" || arg == "--acme-eab") {
            bool &flag = arg == "--acme" ? args.acme.enabled : args.acme.eab;
            if (flag) {
                return usage_error(std::string(arg) + " given twice");
            }
            flag = true;
            continue;
        }
        if (arg == "--acme-validity") {
            if (args.acme.validity_seconds) {
                return usage_error("--acme-validity given twice");
            }
            const std::string_view value = i + 1 < argc ? argv[++i] : "";
            long seconds = 0;
            const auto [end, err] =
                std::from_chars(value.data(), value.data() + value.size(), seconds);
            if (err != std::errc() || end != value.data() + value.size() || seconds <= 0) {
                return usage_error("--acme-validity needs a number of seconds above 0");
            }
            args.acme.validity_seconds = seconds;
            continue;
        }
        if (arg.starts_with("-")) {
            return usage_error("unknown option " + std::string(arg));
        }
        break;
    }
    if (args.acme.enabled && !args.services) {
        return usage_error("--acme needs --services (the authority validates against the web "
                           "server)");
    }
    if ((args.acme.eab || args.acme.validity_seconds) && !args.acme.enabled) {
        return usage_error("--acme-eab and --acme-validity need --acme");
    }
    if (i >= argc) {
        return usage_error("missing ROOT");
    }
    args.root = argv[i++];
    if (args.root.empty()) {
        return usage_error("ROOT is empty");
    }
    if (args.root.find(':') != std::string::npos) {
        return usage_error("ROOT must not contain ':', as ROOT/bin goes on PATH");
    }
    if (i >= argc || std::string_view(argv[i]) != "--") {
        return usage_error("expected -- after ROOT");
    }
    ++i;
    if (i >= argc) {
        return usage_error("missing COMMAND after --");
    }
    args.command.assign(argv + i, argv + argc);
    return std::nullopt;
}

[[nodiscard]] int run(const Arguments &args) {
    const auto root = sandbox::absolute_path(args.root);
    if (!root) {
        complain("cannot make " + args.root + " absolute");
        return kExitSandboxFailed;
    }
    // Checked once before ROOT is created, so that no stray top-level
    // directory is left behind, and again on the resolved path.
    if (root->find('/', 1) == std::string::npos) {
        complain("refusing ROOT " + *root + ": it is the root or a top-level directory");
        return kExitUsage;
    }
    std::string why;
    if (!sandbox::make_dirs(*root, 0755, why)) {
        complain(why);
        return kExitSandboxFailed;
    }
    if (const auto reason = sandbox::root_refusal(*root, args.fresh)) {
        complain(*reason);
        return kExitUsage;
    }
    if (args.fresh && !sandbox::remove_contents(*root, why)) {
        complain("cannot empty the sandbox: " + why);
        return kExitSandboxFailed;
    }
    if (!sandbox::provision_if_needed(*root, why)) {
        complain("cannot provision the sandbox: " + why);
        return kExitSandboxFailed;
    }

    std::vector<sandbox::BindMount> mounts;
    for (const sandbox::MountPlace &place : sandbox::kMountPlaces) {
        mounts.push_back({*root + "/" + std::string(place.below_root), std::string(place.target)});
    }
    if (!sandbox::enter_private_mounts(mounts, why) ||
        (args.private_network && !sandbox::enter_private_network(why))) {
        complain(why);
        return kExitSandboxFailed;
    }

    // The tools built or installed beside bmc-sandbox (bmccert, bmc-sim)
    // come right after the sandbox's own commands.
    const char *host_path = std::getenv("PATH");
    std::string path = *root + "/" + std::string(sandbox::kBinDir) + ":";
    std::error_code no_exe;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", no_exe);
    if (!no_exe && exe.string().find(':') == std::string::npos)
        path += exe.parent_path().string() + ":";
    path += host_path != nullptr ? host_path : "/usr/local/bin:/usr/bin:/bin";
    if (::setenv("PATH", path.c_str(), 1) != 0 ||
        ::setenv("BMC_SANDBOX_ROOT", root->c_str(), 1) != 0) {
        complain("cannot set the environment");
        return kExitSandboxFailed;
    }

    sandbox::clear_stale_services();
    pid_t supervisor = -1;
    if (args.services && !sandbox::start_supervisor(args.acme, supervisor, why)) {
        complain("cannot start the services: " + why);
        return kExitSandboxFailed;
    }

    sandbox::RunOptions options;
    options.forward_signals = true;
    sandbox::RunResult result;
    const bool ran = sandbox::run_program(args.command, options, result, why);
    sandbox::stop_supervisor(supervisor);
    if (!ran) {
        complain(why);
        return kExitCannotExecute;
    }
    return result.exit_code;
}

} // namespace

int main(int argc, char **argv) {
    // Hidden: what the sandbox's systemctl runs under --services.
    for (const std::string_view verb : {"restart", "stop", "start"}) {
        if (argc >= 2 && std::string_view(argv[1]) == "--service-" + std::string(verb)) {
            return sandbox::request_units(std::string(verb),
                                          std::vector<std::string>(argv + 2, argv + argc));
        }
    }
    Arguments args;
    if (const auto done = parse(argc, argv, args)) {
        return *done;
    }
    return run(args);
}
