// Shared pieces of the benchmarks: a bare shell run, the cost that no
// library call can avoid, and a reporter that keeps the times for the
// target checks at the end of a run.
#pragma once

#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>

#include <map>
#include <string>

#include "platform/host/bmc_sim.h"

extern char **environ;

namespace bmcbench {

// Runs "sh -c COMMAND" as the platform does; true when it exited with 0.
inline bool RunShell(const std::string &command) {
    char shell[] = "sh", dashC[] = "-c";
    std::string text = command;
    char *argv[] = {shell, dashC, text.data(), nullptr};
    pid_t child = 0;
    int status = 0;
    return posix_spawn(&child, "/bin/sh", nullptr, nullptr, argv, environ) == 0 &&
           waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Processes the stand-in started per iteration since BEFORE, as a counter.
inline void ReportSpawns(benchmark::State &state, uint64_t before) {
    state.counters["spawns/op"] = benchmark::Counter(
        static_cast<double>(BMCSIM_SpawnCount() - before), benchmark::Counter::kAvgIterations);
}

// Real seconds (and spawns, when counted) per iteration, by benchmark name; repeated benchmarks are
// kept by name and aggregate ("BM_X/median").
class TimeReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.iterations <= 0) continue;
            std::string name = run.run_name.function_name;
            if (run.run_type == Run::RT_Aggregate)
                name += "/" + run.aggregate_name;
            else if (run.repetitions > 1)
                continue;
            seconds_[name] = run.real_accumulated_time / static_cast<double>(run.iterations);
            auto spawns = run.counters.find("spawns/op");
            if (spawns != run.counters.end()) spawns_[name] = spawns->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    [[nodiscard]] double Seconds(const std::string &name) const {
        auto found = seconds_.find(name);
        return found == seconds_.end() ? 0.0 : found->second;
    }

    // -1 when the benchmark counted no spawns.
    [[nodiscard]] double Spawns(const std::string &name) const {
        auto found = spawns_.find(name);
        return found == spawns_.end() ? -1.0 : found->second;
    }

  private:
    std::map<std::string, double> seconds_, spawns_;
};

} // namespace bmcbench
