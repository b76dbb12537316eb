// Shared pieces of the benchmarks: a bare shell run, the cost that no
// library call can avoid, the client records of the authentication
// benchmarks, and a reporter that keeps the times for the target checks at
// the end of a run.
#pragma once

#include <benchmark/benchmark.h>

#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "lib_ssl_auth.h"
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

// The scale of every target: one text dump of the factory certificate by a
// bare `sh -c "openssl x509 ... > FILE"`, the cost no file read can avoid.
inline void BM_BareOpensslDump(benchmark::State &state) {
    for (auto _ : state)
        if (!RunShell("openssl x509 -text -serial -startdate -enddate -purpose -noout "
                      "-in /conf/certs/server/default/server.pem > /var/certs/bench_dump"))
            state.SkipWithError("bare openssl run failed");
    std::remove("/var/certs/bench_dump");
}

// Processes the stand-in started per iteration since BEFORE, as a counter.
inline void ReportSpawns(benchmark::State &state, uint64_t before) {
    state.counters["spawns/op"] = benchmark::Counter(
        static_cast<double>(BMCSIM_SpawnCount() - before), benchmark::Counter::kAvgIterations);
}

template <typename Record> bool Put(uint32_t key, const Record &record) {
    BMC_Db *db = DB_GetCurrentDb();
    return db != nullptr &&
           DB_PutInternal(__FILE__, __LINE__, db, key, sizeof record, &record) == 0;
}

// One root and client certificate 1 (operator.pem, serial 0ABCDE) under it,
// bound to the administrator.
inline bool PlaceBoundClient() {
    RootCertList roots{};
    roots.astRootCert[0].uiCertId = 1;
    std::snprintf(roots.astRootCert[0].szFileName, 33, "ca-root.pem");
    CliCertList clients{};
    clients.astCliCert[0].uiCertId = 1;
    clients.astCliCert[0].uiRootCertId = 1;
    std::snprintf(clients.astCliCert[0].szFileName, 33, "operator.pem");
    std::snprintf(clients.astCliCert[0].szSerialNum, 103, "0ABCDE");
    CliCertUserList bindings{};
    bindings.astCertUser[1].uiCliCertId = 1;
    return Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots) && Put(SSL_AUTH_DB_KEY_CLIENT_LIST, clients) &&
           Put(SSL_AUTH_DB_KEY_USER_LIST, bindings);
}

// Real seconds (and spawns, when counted) per iteration, by benchmark name;
// repeated benchmarks are kept by name and aggregate ("BM_X/median").
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

// Hands the command line to Google Benchmark with the runs of the
// benchmarks interleaved in random order, so that a change of the shared
// machine's load does not fall on one benchmark alone.
inline void InitializeInterleaved(int argc, char **argv) {
    std::vector<char *> args(argv, argv + argc);
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    args.insert(args.begin() + 1, interleave);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
}

} // namespace bmcbench
