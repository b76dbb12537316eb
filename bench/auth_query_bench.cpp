// Cost of the client-authentication queries, in one run:
//   - LIB_SSL_GetClientCertInfo (client list, bindings and the user table),
//   - LIB_SSL_GetUsableUserList (bindings and the user table),
//   - a bare `sh -c "openssl x509 ... > FILE"` for scale.
// Target: each query at least 1000 times faster than the bare openssl run,
// and no process started by either.
#include <benchmark/benchmark.h>

#include <cstdio>

#include "bench/bench_support.h"
#include "lib_ssl_auth.h"
#include "platform/host/bmc_sim.h"

namespace {

using bmcbench::BM_BareOpensslDump;

void BM_GetClientCertInfo(benchmark::State &state) {
    if (!bmcbench::PlaceBoundClient()) state.SkipWithError("records could not be placed");
    CliCertDetail detail{};
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (LIB_SSL_GetClientCertInfo(1, &detail) != 0 || detail.stUser.ucUserId != 2)
            state.SkipWithError("query failed");
        benchmark::DoNotOptimize(detail);
    }
    bmcbench::ReportSpawns(state, spawns);
}

void BM_GetUsableUserList(benchmark::State &state) {
    if (!bmcbench::PlaceBoundClient()) state.SkipWithError("records could not be placed");
    UsableUserList users{};
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (LIB_SSL_GetUsableUserList(&users) != 0) state.SkipWithError("query failed");
        benchmark::DoNotOptimize(users);
    }
    bmcbench::ReportSpawns(state, spawns);
}

BENCHMARK(BM_GetClientCertInfo)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_GetUsableUserList)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_BareOpensslDump)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    bmcbench::TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    const double bare = reporter.Seconds("BM_BareOpensslDump");
    bool met = bare > 0;
    for (const char *query : {"BM_GetClientCertInfo", "BM_GetUsableUserList"}) {
        const double seconds = reporter.Seconds(query);
        if (seconds <= 0 || bare <= 0) {
            std::printf("%s: not run\n", query);
            met = false;
            continue;
        }
        const double speedup = bare / seconds;
        const bool ok = speedup >= 1000 && reporter.Spawns(query) == 0.0;
        std::printf("bare openssl run / %s = %.0fx (target >= 1000x, 0 spawns): %s\n", query,
                    speedup, ok ? "met" : "MISSED");
        met = met && ok;
    }
    return met ? 0 : 1;
}
