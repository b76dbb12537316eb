// Many management callers at once, in several processes with several
// threads each: reading and refreshing the certificate information,
// rewriting the tunnel configuration while others read it, and logging in
// by certificate. Every call must give its documented result, readers must
// only ever see a whole configuration, no scratch file may stay behind and
// no caller may wait forever.

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <new>
#include <thread>

#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

using namespace std::chrono_literals;

constexpr int kProcesses = 8;
constexpr const char *kSerial = "0ABCDE";

struct PathPair {
    std::string cert, key;
};
// The installed user certificate and the factory one, written in turn.
const PathPair kPairs[2] = {
    {"/conf/certs/server/user/actualcert.pem", "/conf/certs/server/user/actualprivkey.pem"},
    {kFactoryCert, kFactoryKey}};

enum Kind { kRefresh, kFileRead, kCachedRead, kRewrite, kTunnelRead, kLogin, kKinds };
const char *const kKindNames[kKinds] = {"refresh", "file read",   "cached read",
                                        "rewrite", "tunnel read", "login"};
// The eight threads of every worker process.
constexpr Kind kThreads[] = {kRefresh, kFileRead,   kCachedRead, kCachedRead,
                             kRewrite, kTunnelRead, kLogin,      kLogin};
// Rounds of one thread. Refreshes and file reads each run the openssl tool
// under the one scratch-file lock, so they are the fewest; a tunnel reader
// goes on while its process rewrites.
constexpr int kRounds[kKinds] = {16, 16, 32, 32, 1, 32};

// What the workers report, in memory shared with the test process: the
// rounds of each kind, the failures and the first failure's text.
struct Board {
    std::atomic<uint32_t> rounds[kKinds];
    std::atomic<uint32_t> failures;
    char first[512];

    void Record(Kind kind, int process, const std::string &failure) {
        rounds[kind].fetch_add(1);
        if (!failure.empty() && failures.fetch_add(1) == 0)
            std::snprintf(first, sizeof first, "process %d, %s: %s", process, kKindNames[kind],
                          failure.c_str());
    }
};

struct Expected {
    SSLCertInfo info{};
    int32_t daysLeft = 0;
    std::string tunnel[2]; // the configuration as a rewrite to each pair leaves it
};

std::string Code(uint32_t result) {
    char text[32];
    std::snprintf(text, sizeof text, "result 0x%08X", result);
    return result == 0 ? "" : text;
}

std::string CompareInfo(uint32_t result, const SSLCertInfo &info, const Expected &expected) {
    if (result != 0) return Code(result);
    return std::memcmp(&info, &expected.info, sizeof info) == 0 ? "" : "record differs";
}

// One call of the kind; empty when it gave the documented result.
std::string Round(Kind kind, int turn, const Expected &expected) {
    SSLCertInfo info{};
    switch (kind) {
    case kRefresh:
        return Code(static_cast<uint32_t>(SECURITY_UpdateCertInfo()));
    case kFileRead:
        return CompareInfo(SECURITY_GetCertInfoFromFile(&info), info, expected);
    case kCachedRead: {
        const std::string failure = CompareInfo(LIB_SECURITY_GetCertInfo(&info), info, expected);
        const int32_t days = LIB_SECURITY_GetCertLeftExpires();
        // A midnight of the expiry's clock may pass during the run.
        if (days != expected.daysLeft && days != expected.daysLeft - 1)
            return "days left " + std::to_string(days);
        return failure;
    }
    case kRewrite:
        return Code(LIB_SECURITY_SSL_ModStunnelConfFile(kPairs[turn % 2].cert.c_str(),
                                                        kPairs[turn % 2].key.c_str()));
    case kTunnelRead: {
        const std::string config = ReadFile(kTunnelConfig);
        if (config == expected.tunnel[0] || config == expected.tunnel[1]) return "";
        return "torn configuration of " + std::to_string(config.size()) + " bytes";
    }
    case kLogin: {
        char name[33] = {}, password[41] = {};
        const uint32_t result =
            LIB_SSL_GetNamePwdBySerial(kSerial, sizeof name, name, sizeof password, password);
        if (result != 0) return Code(result);
        const std::string got = std::string(name) + "/" + password;
        return got == "operator/op-secret" ? "" : "got " + got;
    }
    case kKinds:
        break;
    }
    return "no such kind";
}

void RunThread(Kind kind, int process, const Expected &expected, Board &board,
               std::atomic<bool> &rewriting) {
    for (int i = 0; i < kRounds[kind] || (kind == kTunnelRead && rewriting.load()); ++i) {
        std::string failure;
        try {
            failure = Round(kind, process + i, expected);
        } catch (const std::exception &error) {
            failure = error.what();
        }
        board.Record(kind, process, failure);
        // Readers sample rather than spin, leaving the two cores to the writers.
        if (kind == kTunnelRead) std::this_thread::sleep_for(200us);
    }
    if (kind == kRewrite) rewriting = false;
}

int WorkerProcess(int process, const Expected &expected, Board &board) {
    std::atomic<bool> rewriting{true};
    std::vector<std::jthread> threads;
    for (const Kind kind : kThreads)
        threads.emplace_back(RunThread, kind, process, std::cref(expected), std::ref(board),
                             std::ref(rewriting));
    threads.clear(); // joins them all
    return 0;
}

// Forks one worker per process, each leaving with _exit so that no
// destructor or exit handler of the forked test runner runs twice; waits
// for them until the limit has passed and kills the rest. One text per
// worker: "exit N", "signal N" or "killed at the deadline". Called while
// this process has a single thread: a child of a threaded process may
// inherit a lock that another thread held.
std::vector<std::string> RunWorkers(const std::function<int(int)> &body,
                                    std::chrono::steady_clock::duration limit) {
    std::vector<pid_t> pids;
    for (int p = 0; p < kProcesses; ++p) {
        const pid_t pid = fork();
        if (pid == 0) {
            int status = 99;
            try {
                status = body(p);
            } catch (...) {
            }
            _exit(status);
        }
        pids.push_back(pid);
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::vector<std::string> outcomes;
    for (const pid_t pid : pids) {
        int status = 0;
        pid_t done = 0;
        while (pid > 0 && (done = waitpid(pid, &status, WNOHANG)) == 0 &&
               std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(20ms);
        if (pid > 0 && done != pid) {
            (void)kill(pid, SIGKILL);
            (void)waitpid(pid, nullptr, 0);
        }
        outcomes.push_back(pid < 0             ? "not started"
                           : done != pid       ? "killed at the deadline"
                           : WIFEXITED(status) ? "exit " + std::to_string(WEXITSTATUS(status))
                                               : "signal " + std::to_string(WTERMSIG(status)));
    }
    return outcomes;
}

class ConcurrencyTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        // A client certificate bound to a user, as a login finds it.
        AddOperator(true);

        // The configuration as a rewrite to each pair leaves it (the rule
        // itself is the installation tests'); from here on every whole
        // configuration is one of the two texts.
        for (int p : {1, 0}) {
            ASSERT_EQ(
                LIB_SECURITY_SSL_ModStunnelConfFile(kPairs[p].cert.c_str(), kPairs[p].key.c_str()),
                0u);
            expected_.tunnel[p] = ReadFile(kTunnelConfig);
        }
        ASSERT_NE(expected_.tunnel[0], expected_.tunnel[1]);

        // A stored record, so that cached reads never fall back to the files.
        ASSERT_EQ(SECURITY_UpdateCertInfo(), 0);
        ASSERT_EQ(LIB_SECURITY_GetCertInfo(&expected_.info), 0u);
        ASSERT_EQ(expected_.info.stKeyFileInfo.ucCertType, SSL_CERT_TYPE_DEFAULT);
        ASSERT_EQ(expected_.info.stSSLConfig.uiPublicKeyLen, 2048u);
        ASSERT_STREQ(expected_.info.stSSLConfig.szSSLServer, "Yes");
        expected_.daysLeft = LIB_SECURITY_GetCertLeftExpires();
        ASSERT_GT(expected_.daysLeft, 0);
        ClearDiagLog();
    }

    Expected expected_;
};

TEST_F(ConcurrencyTest, EveryCallerGetsWholeResultsAndNothingIsLeftBehind) {
    // The workers report in memory shared with this process.
    void *shared =
        mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    Board *board = new (shared) Board{};
    // The deadline catches a deadlock, not a slow machine: sanitizer builds
    // on two busy cores take a third of it.
    EXPECT_EQ(RunWorkers([&](int p) { return WorkerProcess(p, expected_, *board); }, 150s),
              std::vector<std::string>(kProcesses, "exit 0"));
    EXPECT_EQ(board->failures, 0u) << board->first;
    for (int kind = 0; kind < kKinds; ++kind) {
        const auto threads = std::count(std::begin(kThreads), std::end(kThreads), kind);
        if (kind == kTunnelRead) // a reader goes on while its process rewrites
            EXPECT_GE(board->rounds[kind], static_cast<uint32_t>(kProcesses));
        else
            EXPECT_EQ(board->rounds[kind], kProcesses * threads * kRounds[kind])
                << kKindNames[kind];
    }

    EXPECT_FALSE(std::filesystem::exists("/var/certs/certtmp"));
    EXPECT_FALSE(std::filesystem::exists("/conf/adviserd/tmp_stunnel.conf"));
    const std::string config = ReadFile(kTunnelConfig);
    EXPECT_TRUE(config == expected_.tunnel[0] || config == expected_.tunnel[1]) << config;
    SSLCertInfo info{};
    EXPECT_EQ(CompareInfo(LIB_SECURITY_GetCertInfo(&info), info, expected_), "");
    EXPECT_EQ(ReadDiags(), std::vector<Diag>{});
    munmap(shared, sizeof(Board));
}

} // namespace
} // namespace bmctest
