// The subcommands of the tool: each runs one function whose result is the
// tool's exit status; many print their result as JSON with --json.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace bmccert::cli {

class Subcommands {
  public:
    // The chosen subcommand stores its exit status in status; --json sets
    // json and says jsonHelp in the help (none without json).
    explicit Subcommands(int &status, bool *json = nullptr, std::string jsonHelp = {})
        : status_(status), json_(json), jsonHelp_(std::move(jsonHelp)) {}

    CLI::App *Add(CLI::App &parent, const std::string &name, const std::string &description,
                  std::function<int()> run) const {
        CLI::App *command = parent.add_subcommand(name, description);
        command->callback([&status = status_, run = std::move(run)] { status = run(); });
        return command;
    }

    // A subcommand with --json and positional arguments alone: help lists
    // its named options in the order they are added.
    CLI::App *AddJson(CLI::App &parent, const std::string &name, const std::string &description,
                      std::function<int()> run) const {
        CLI::App *command = Add(parent, name, description, std::move(run));
        AddJsonFlag(*command);
        return command;
    }

    // --json after the other options of a subcommand that has some.
    void AddJsonFlag(CLI::App &command) const { command.add_flag("--json", *json_, jsonHelp_); }

  private:
    int &status_;
    bool *json_;
    std::string jsonHelp_;
};

// The wait limit the management daemons use for their own calls.
inline constexpr uint32_t kAuthWaitLimitMs = 10000;

// The groups of subcommands; the chosen one stores its exit status in status.
// `auth`, `roots`, `root`, `clients`, `client` and `users`.
void AddAuthCommands(CLI::App &app, int &status);
// `roots import|delete`, `clients import|delete` (to the listing subcommands
// that AddAuthCommands made), `bind`, `unbind`, `login`, `ocsp` and
// `forget-user`.
void AddCertCommands(CLI::App &app, int &status);
// The CA pinned for signed answers: `ca pin FILE`, `ca show`, `ca unpin`.
void AddCaCommands(CLI::App &app, int &status);
// How client certificates' revocation is checked: `revocation` (show),
// `revocation set`, and the lists of the trusted roots: `crl add ROOT-ID
// FILE`, `crl fetch ROOT-ID`, `crl show`.
void AddRevocationCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
