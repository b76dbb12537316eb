// Readers at the same time, in one run: the calls a second that one thread
// and two threads make together, each while an installation runs beside
// them (a thread installing the factory pair as the user certificate over
// and over: copies, the tunnel configuration and the refresh of the stored
// record, with its openssl text dump), of
//   - LIB_SECURITY_GetCertInfo, served from the configuration database,
//   - LIB_SSL_GetClientCertInfo (client list, bindings and the user table).
// Target: two threads make at least 1.6 times the calls a second of one.
// Each thread count runs several times, the runs of all four interleaved in
// random order so that a change of the machine's load falls on all alike;
// the medians are compared.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <map>
#include <thread>
#include <utility>
#include <vector>

#include "bench/bench_support.h"
#include "lib_security_sslcert.h"
#include "lib_ssl_auth.h"
#include "platform/controller_paths.h"

namespace {

constexpr int kRepetitions = 5;
constexpr double kTarget = 1.6;

// Installs the factory pair over and over until it goes out of scope.
class Installer {
  public:
    Installer() : thread_([this] { Loop(); }) {}
    Installer(const Installer &) = delete;
    Installer &operator=(const Installer &) = delete;
    ~Installer() {
        stop_ = true;
        thread_.join();
    }
    [[nodiscard]] uint64_t Installed() const { return installed_.load(); }
    [[nodiscard]] uint64_t Failed() const { return failed_.load(); }

  private:
    void Loop() {
        while (!stop_) {
            if (SECURITY_SSL_UpdateSSLCert(controller_paths::kDefaultCertPath,
                                           controller_paths::kDefaultKeyPath) == 0)
                ++installed_;
            else
                ++failed_;
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<uint64_t> installed_{0}, failed_{0};
    std::thread thread_;
};

// Runs READ in every thread of the benchmark while thread 0's installer
// runs; the loop's start and end are shared by all threads.
template <typename Read> void ReadBesideAnInstallation(benchmark::State &state, Read read) {
    std::unique_ptr<Installer> installer;
    if (state.thread_index() == 0) installer = std::make_unique<Installer>();
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        if (!read()) state.SkipWithError("read failed");
    state.counters["calls/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    if (installer) {
        const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
        state.counters["installs/s"] = static_cast<double>(installer->Installed()) / spent.count();
        if (installer->Failed() != 0) state.SkipWithError("an installation failed");
    }
}

void BM_GetCertInfo(benchmark::State &state) {
    if (state.thread_index() == 0 && SECURITY_UpdateCertInfo() != 0)
        state.SkipWithError("no record could be stored");
    ReadBesideAnInstallation(state, [] {
        SSLCertInfo info{};
        const bool ok = LIB_SECURITY_GetCertInfo(&info) == 0;
        benchmark::DoNotOptimize(info);
        return ok;
    });
}

void BM_GetClientCertInfo(benchmark::State &state) {
    if (state.thread_index() == 0 && !bmcbench::PlaceBoundClient())
        state.SkipWithError("records could not be placed");
    ReadBesideAnInstallation(state, [] {
        CliCertDetail detail{};
        const bool ok = LIB_SSL_GetClientCertInfo(1, &detail) == 0 && detail.stUser.ucUserId == 2;
        benchmark::DoNotOptimize(detail);
        return ok;
    });
}

// A setup in thread 0 must be done before the other threads read: the
// loop's start waits for all threads, so the setup runs before any timing.
void OneAndTwoThreads(benchmark::internal::Benchmark *bench) {
    bench->Threads(1)
        ->Threads(2)
        ->MinTime(1.0)
        ->Repetitions(kRepetitions)
        ->ReportAggregatesOnly(true)
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);
}
BENCHMARK(BM_GetCertInfo)->Apply(OneAndTwoThreads);
BENCHMARK(BM_GetClientCertInfo)->Apply(OneAndTwoThreads);

// Keeps the medians and shows them together at the end (the runs come
// interleaved), each with the counter "x1": its calls a second over those
// of the same benchmark's one-thread median.
class RateReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs) {
            if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median") continue;
            auto rate = run.counters.find("calls/s");
            if (rate == run.counters.end()) continue;
            rates_[{run.run_name.function_name, run.threads}] = rate->second.value;
            medians_.push_back(run);
        }
    }
    void Finalize() override {
        std::sort(medians_.begin(), medians_.end(), [](const Run &a, const Run &b) {
            return std::pair(a.run_name.function_name, a.threads) <
                   std::pair(b.run_name.function_name, b.threads);
        });
        for (Run &run : medians_) {
            const double one = Rate(run.run_name.function_name, 1);
            if (one > 0) run.counters["x1"] = run.counters["calls/s"].value / one;
        }
        if (!medians_.empty()) ConsoleReporter::ReportRuns(medians_);
        ConsoleReporter::Finalize();
    }
    [[nodiscard]] double Rate(const std::string &name, int threads) const {
        auto found = rates_.find({name, threads});
        return found == rates_.end() ? 0.0 : found->second;
    }

  private:
    std::map<std::pair<std::string, int>, double> rates_;
    std::vector<Run> medians_;
};

} // namespace

int main(int argc, char **argv) {
    bmcbench::InitializeInterleaved(argc, argv);
    RateReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    bool met = true;
    std::printf("\n");
    for (const char *name : {"BM_GetCertInfo", "BM_GetClientCertInfo"}) {
        const double one = reporter.Rate(name, 1), two = reporter.Rate(name, 2);
        if (one <= 0 || two <= 0) {
            std::printf("%s: not run\n", name);
            met = false;
            continue;
        }
        const double ratio = two / one;
        std::printf("%s beside an installation: %.0f calls/s with one thread, %.0f with two = "
                    "%.2fx (target >= %.1fx): %s\n",
                    name, one, two, ratio, kTarget, ratio >= kTarget ? "met" : "MISSED");
        met = met && ratio >= kTarget;
    }
    return met ? 0 : 1;
}
