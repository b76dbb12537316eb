// Readers at the same time, in one run: the calls a second that one thread
// and two threads make, of
//   - LIB_SECURITY_GetCertInfo, served from the configuration database,
//   - LIB_SSL_GetClientCertInfo (client list, bindings and the user table),
// beside the same measure of a pure CPU loop, which tells how far this
// machine lets two threads scale at all: on a loaded machine a second
// thread wins a larger share of contested cores, which would hide a
// serialised design, so the library's ratio is printed beside the loop's.
// Target: two threads make at least 1.7 times the calls of one, for both
// calls, on a quiet machine (the loop at 1.9 or more).
// Every configuration runs several rounds, interleaved in random order so
// that a change of the machine's load falls on all alike; medians compared.
// CPU time per call is each thread's own CPU time over its calls: when it
// grows with the second thread, the threads wait on each other inside the
// call (a lock, a shared cache line), not for a core.
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <random>
#include <thread>
#include <vector>

#include "bench/bench_support.h"
#include "lib_security_sslcert.h"
#include "lib_ssl_auth.h"

namespace {

constexpr int kRounds = 7;
constexpr double kSecondsPerRun = 0.5;
constexpr double kTarget = 1.7;

struct Rate {
    double callsPerSecond = 0;
    double cpuMicrosPerCall = 0;
};

double ThreadCpuSeconds() {
    timespec now{};
    (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs CALL in THREADS threads for a fixed time, all starting together.
Rate Measure(const std::function<bool()> &call, int threads, bool &failed) {
    std::atomic<int> ready{0};
    std::atomic<bool> go{false}, stop{false};
    std::vector<uint64_t> calls(threads, 0);
    std::vector<double> cpu(threads, 0);
    std::vector<std::thread> pool;
    std::atomic<bool> anyFailed{false};
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            ++ready;
            while (!go) std::this_thread::yield();
            const double cpuStart = ThreadCpuSeconds();
            uint64_t n = 0;
            while (!stop) {
                if (!call()) anyFailed = true;
                ++n;
            }
            cpu[t] = ThreadCpuSeconds() - cpuStart;
            calls[t] = n;
        });
    while (ready < threads) std::this_thread::yield();
    const auto start = std::chrono::steady_clock::now();
    go = true;
    std::this_thread::sleep_for(std::chrono::duration<double>(kSecondsPerRun));
    stop = true;
    for (std::thread &thread : pool) thread.join();
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start;
    failed = failed || anyFailed;
    uint64_t total = 0;
    double cpuTotal = 0;
    for (int t = 0; t < threads; ++t) {
        total += calls[t];
        cpuTotal += cpu[t];
    }
    return {static_cast<double>(total) / spent.count(),
            total == 0 ? 0 : cpuTotal * 1e6 / static_cast<double>(total)};
}

// A unit of work that touches nothing shared.
bool PureLoop() {
    volatile uint64_t x = 1;
    for (int i = 0; i < 2000; ++i) x = x * 6364136223846793005ull + 1442695040888963407ull;
    return x != 0;
}

bool GetCertInfo() {
    SSLCertInfo info{};
    return LIB_SECURITY_GetCertInfo(&info) == 0;
}

bool GetClientCertInfo() {
    CliCertDetail detail{};
    return LIB_SSL_GetClientCertInfo(1, &detail) == 0 && detail.stUser.ucUserId == 2;
}

struct Subject {
    const char *name;
    bool (*call)();
    std::vector<Rate> one, two;
};

Rate Median(std::vector<Rate> rates) {
    std::sort(rates.begin(), rates.end(),
              [](const Rate &a, const Rate &b) { return a.callsPerSecond < b.callsPerSecond; });
    return rates[rates.size() / 2];
}

} // namespace

int main() {
    if (SECURITY_UpdateCertInfo() != 0 || !bmcbench::PlaceBoundClient()) {
        std::printf("readers: the records could not be placed\n");
        return 1;
    }
    std::vector<Subject> subjects = {{"pure CPU loop", PureLoop, {}, {}},
                                     {"LIB_SECURITY_GetCertInfo", GetCertInfo, {}, {}},
                                     {"LIB_SSL_GetClientCertInfo", GetClientCertInfo, {}, {}}};
    std::vector<std::pair<size_t, int>> runs;
    for (int round = 0; round < kRounds; ++round)
        for (size_t s = 0; s < subjects.size(); ++s)
            for (int threads : {1, 2}) runs.emplace_back(s, threads);
    std::shuffle(runs.begin(), runs.end(), std::mt19937(20261125));
    bool failed = false;
    for (const auto &[s, threads] : runs) {
        const Rate rate = Measure(subjects[s].call, threads, failed);
        (threads == 1 ? subjects[s].one : subjects[s].two).push_back(rate);
    }
    if (failed) {
        std::printf("readers: a call failed\n");
        return 1;
    }

    double loads[3] = {};
    (void)getloadavg(loads, 3);
    std::printf("readers: medians of %d interleaved runs of %.1f s, load average %.2f\n", kRounds,
                kSecondsPerRun, loads[0]);
    const double machine = Median(subjects[0].two).callsPerSecond /
                           Median(subjects[0].one).callsPerSecond;
    bool met = true;
    for (const Subject &subject : subjects) {
        const Rate one = Median(subject.one), two = Median(subject.two);
        const double ratio = two.callsPerSecond / one.callsPerSecond;
        const bool isLoop = &subject == &subjects[0];
        std::printf("%-27s 1 thread %9.0f calls/s %6.2f us CPU/call; 2 threads %9.0f calls/s "
                    "%6.2f us CPU/call = %.2fx",
                    subject.name, one.callsPerSecond, one.cpuMicrosPerCall, two.callsPerSecond,
                    two.cpuMicrosPerCall, ratio);
        if (isLoop) {
            std::printf(" (what this machine allows)\n");
            continue;
        }
        std::printf(" (target >= %.1fx beside the loop's %.2fx): %s\n", kTarget, machine,
                    ratio >= kTarget ? "met" : "MISSED");
        met = met && ratio >= kTarget;
    }
    return met ? 0 : 1;
}
