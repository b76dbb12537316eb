// Runs a program from an argument vector and waits for it. Nothing here
// goes through a shell: paths under the sandbox root are arbitrary text.
#ifndef BMC_SANDBOX_SPAWN_H
#define BMC_SANDBOX_SPAWN_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "fs_util.h"

namespace sandbox {

// The close-on-exec pipe through which a forked child tells its parent why
// it could not run its program: a successful exec closes the pipe, so the
// parent then reads nothing.
class ExecFailurePipe {
  public:
    // Before the fork; false (errno set) when no pipe could be made.
    [[nodiscard]] bool open();
    // In the child, until exec async-signal-safe: reports errno and ends
    // the child with status 127.
    [[noreturn]] void fail_child() const noexcept;
    // In the child: runs the program (searched on PATH) or reports why not.
    [[noreturn]] void exec_child(char *const *argv) const noexcept;
    // In the parent, after the fork: 0 once the child runs its program,
    // otherwise the errno of its failure.
    [[nodiscard]] int wait_exec();

  private:
    UniqueFd read_;
    UniqueFd write_;
};

struct RunOptions {
    // File creation mask of the program, e.g. 077 while a key is written.
    std::optional<mode_t> umask;
    // Collects standard output and error instead of showing them and gives
    // the program /dev/null as input, for helpers whose chatter only
    // matters when they fail.
    bool capture_output = false;
    // Passes SIGTERM and SIGHUP on to the program and leaves SIGINT and
    // SIGQUIT, which the terminal sends to it directly, to the program.
    bool forward_signals = false;
};

struct RunResult {
    // The program's exit status, or 128+N when signal N ended it.
    int exit_code = 0;
    // Its last output when captured; bounded so a runaway helper cannot
    // exhaust memory.
    std::string output;
};

// False when the program could not be started at all (not found, not
// executable, no process available); WHY then says so.
[[nodiscard]] bool run_program(const std::vector<std::string> &argv, const RunOptions &options,
                               RunResult &result, std::string &why);

} // namespace sandbox

#endif
