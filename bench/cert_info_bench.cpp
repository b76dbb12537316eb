// Cost of the certificate information path, in one run:
//   - LIB_SECURITY_GetCertInfo served from the configuration database,
//   - SECURITY_GetCertInfoFromFile (the openssl text dump plus OpenSSL parsing),
//   - a bare `sh -c "openssl x509 ... > FILE"`, the cost no file read can avoid.
// Targets: the database-served get is at least 1000 times faster than the
// bare openssl run and starts no process; the read from the files costs at
// most 1.25 times the bare run.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "bench/bench_support.h"
#include "lib_security_sslcert.h"
#include "platform/host/bmc_sim.h"

namespace {

using bmcbench::BM_BareOpensslDump;

void BM_GetCertInfoFromDatabase(benchmark::State &state) {
    SSLCertInfo info{};
    if (SECURITY_UpdateCertInfo() != 0) state.SkipWithError("no record could be stored");
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (LIB_SECURITY_GetCertInfo(&info) != 0) state.SkipWithError("get failed");
        benchmark::DoNotOptimize(info);
    }
    bmcbench::ReportSpawns(state, spawns);
}

void BM_GetCertInfoFromFile(benchmark::State &state) {
    SSLCertInfo info{};
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (SECURITY_GetCertInfoFromFile(&info) != 0) state.SkipWithError("file read failed");
        benchmark::DoNotOptimize(info);
    }
    bmcbench::ReportSpawns(state, spawns);
}

BENCHMARK(BM_GetCertInfoFromDatabase)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_GetCertInfoFromFile)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_BareOpensslDump)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    bmcbench::TimeReporter reporter;
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
