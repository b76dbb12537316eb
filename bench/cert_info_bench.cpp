// Cost of the certificate information path, in one run:
//   - LIB_SECURITY_GetCertInfo served from the configuration database,
//   - SECURITY_GetCertInfoFromFile (the openssl text dump plus OpenSSL parsing),
//   - a bare `sh -c "openssl x509 ... > FILE"`, the cost no file read can avoid.
// Targets: the database-served get is at least 1000 times faster than the
// bare openssl run and starts no process; the read from the files costs at
// most 1.25 times the bare run.
#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <string>

#include "lib_security_sslcert.h"
#include "platform/host/bmc_sim.h"

extern char **environ;

namespace {

constexpr const char *kBareCommand =
    "openssl x509 -text -serial -startdate -enddate -purpose -noout "
    "-in /conf/certs/server/default/server.pem > /var/certs/bench_dump";

void ReportSpawns(benchmark::State &state, uint64_t before) {
    state.counters["spawns/op"] = benchmark::Counter(
        static_cast<double>(BMCSIM_SpawnCount() - before), benchmark::Counter::kAvgIterations);
}

void BM_GetCertInfoFromDatabase(benchmark::State &state) {
    SSLCertInfo info{};
    if (SECURITY_UpdateCertInfo() != 0) state.SkipWithError("no record could be stored");
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (LIB_SECURITY_GetCertInfo(&info) != 0) state.SkipWithError("get failed");
        benchmark::DoNotOptimize(info);
    }
    ReportSpawns(state, spawns);
}

void BM_GetCertInfoFromFile(benchmark::State &state) {
    SSLCertInfo info{};
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (SECURITY_GetCertInfoFromFile(&info) != 0) state.SkipWithError("file read failed");
        benchmark::DoNotOptimize(info);
    }
    ReportSpawns(state, spawns);
}

void BM_BareOpensslDump(benchmark::State &state) {
    char shell[] = "sh", dashC[] = "-c";
    std::string command = kBareCommand;
    char *argv[] = {shell, dashC, command.data(), nullptr};
    for (auto _ : state) {
        pid_t child = 0;
        int status = 0;
        if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, argv, environ) != 0 ||
            waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
            state.SkipWithError("bare openssl run failed");
    }
    std::remove("/var/certs/bench_dump");
}

BENCHMARK(BM_GetCertInfoFromDatabase)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_GetCertInfoFromFile)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_BareOpensslDump)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

// Keeps each benchmark's real time per iteration for the ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.run_type == Run::RT_Iteration && run.iterations > 0)
                seconds_[run.run_name.function_name] =
                    run.real_accumulated_time / static_cast<double>(run.iterations);
        ConsoleReporter::ReportRuns(runs);
    }
    [[nodiscard]] double Seconds(const std::string &name) const {
        auto found = seconds_.find(name);
        return found == seconds_.end() ? 0.0 : found->second;
    }

  private:
    std::map<std::string, double> seconds_;
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double database = reporter.Seconds("BM_GetCertInfoFromDatabase");
    const double file = reporter.Seconds("BM_GetCertInfoFromFile");
    const double bare = reporter.Seconds("BM_BareOpensslDump");
    if (database <= 0 || file <= 0 || bare <= 0) {
        std::printf("ratios: not all benchmarks ran\n");
        return 0;
    }
    const double speedup = bare / database;
    const double fileRatio = file / bare;
    std::printf("\nbare openssl run / database-served get = %.0fx (target >= 1000x): %s\n", speedup,
                speedup >= 1000 ? "met" : "MISSED");
    std::printf("read from files / bare openssl run      = %.3f (target <= 1.25): %s\n", fileRatio,
                fileRatio <= 1.25 ? "met" : "MISSED");
    return speedup >= 1000 && fileRatio <= 1.25 ? 0 : 1;
}
