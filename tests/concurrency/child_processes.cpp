#include "tests/concurrency/child_processes.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <thread>

namespace bmctest {

ChildProcesses::~ChildProcesses() {
    for (const pid_t pid : running_) {
        (void)kill(pid, SIGKILL);
        (void)waitpid(pid, nullptr, 0);
    }
}

bool ChildProcesses::Start(const std::function<int()> &body) {
    const pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        int status = 99;
        try {
            status = body();
        } catch (...) {
        }
        _exit(status);
    }
    running_.push_back(pid);
    return true;
}

std::vector<std::string> ChildProcesses::Wait(std::chrono::steady_clock::duration limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::vector<std::string> outcomes(running_.size());
    std::vector<bool> reaped(running_.size(), false);
    size_t left = running_.size();
    while (left > 0 && std::chrono::steady_clock::now() < deadline) {
        for (size_t i = 0; i < running_.size(); ++i) {
            int status = 0;
            if (reaped[i] || waitpid(running_[i], &status, WNOHANG) != running_[i]) continue;
            reaped[i] = true;
            --left;
            outcomes[i] = WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                            : "signal " + std::to_string(WTERMSIG(status));
        }
        if (left > 0) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (size_t i = 0; i < running_.size(); ++i) {
        if (reaped[i]) continue;
        (void)kill(running_[i], SIGKILL);
        (void)waitpid(running_[i], nullptr, 0);
        outcomes[i] = "killed at the deadline";
    }
    running_.clear();
    return outcomes;
}

} // namespace bmctest
