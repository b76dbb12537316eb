// Cost of a login by certificate (LIB_SSL_GetNamePwdBySerial), in one run:
//   - revocation checking off: records and the user table only; target at
//     least 1000 times faster than one bare openssl run, no process started;
//   - revocation checking on: the two openssl runs the check mandates (the
//     certificate's OCSP address, the OCSP query to a loopback responder);
//     target at most 1.3 times those two runs made bare.
// The responder is a real `openssl ocsp`; it listens on every address, so
// this runs in `bmc-sandbox --private-network`.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "bench/bench_support.h"
#include "lib_ssl_auth.h"
#include "platform/host/bmc_sim.h"

namespace {

constexpr const char *kDir = "/var/certs/login-bench";
constexpr const char *kClient = "/conf/certs/client/operator.pem";
constexpr const char *kIssuer = "/conf/certs/client/ca.pem"; // the web server's ssl.ca-file
constexpr const char *kBareDump =
    "openssl x509 -text -serial -startdate -enddate -purpose -noout "
    "-in /conf/certs/server/default/server.pem > /var/certs/bench_dump";

pid_t g_responder = -1;
std::string g_url;

// Root, responder and client certificates, and a responder that knows the
// client as good. Made once, with the openssl tool.
bool StartResponder() {
    const std::string d = kDir;
    if (!bmcbench::RunShell(
            "mkdir -p " + d + " && cd " + d +
            " && openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.pem -days 30"
            " -subj /CN=BenchRoot 2>/dev/null"
            " && openssl req -newkey rsa:2048 -nodes -keyout rsp.key -out rsp.csr"
            " -subj /CN=Responder 2>/dev/null"
            " && echo extendedKeyUsage=OCSPSigning > rsp.ext"
            " && openssl x509 -req -in rsp.csr -CA ca.pem -CAkey ca.key -set_serial 2 -days 30"
            " -out rsp.pem -extfile rsp.ext 2>/dev/null"
            " && printf 'V\\t340101000000Z\\t\\t0ABCDE\\tunknown\\t/CN=operator\\n' > index.txt"
            " && cp ca.pem " + kIssuer))
        return false;
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::string index = d + "/index.txt", rsp = d + "/rsp.pem", key = d + "/rsp.key",
                      ca = d + "/ca.pem";
    const char *argv[] = {"openssl", "ocsp", "-index", index.c_str(), "-port", "0",
                          "-rsigner", rsp.c_str(), "-rkey", key.c_str(), "-CA", ca.c_str(),
                          "-ignore_err", nullptr};
    const bool spawned = posix_spawnp(&g_responder, "openssl", &actions, nullptr,
                                      const_cast<char *const *>(argv), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    std::string line;
    char c;
    pollfd wait{ends[0], POLLIN, 0};
    while (spawned && ::poll(&wait, 1, 10000) == 1 && ::read(ends[0], &c, 1) == 1 && c != '\n')
        line += c;
    // "ACCEPT [::]:PORT PID=N"; the pipe stays open while the responder runs.
    const size_t colon = line.rfind(':', line.find(" PID="));
    if (!spawned || line.rfind("ACCEPT ", 0) != 0 || colon == std::string::npos) return false;
    g_url = "http://127.0.0.1:" + std::to_string(std::atoi(line.c_str() + colon + 1)) + "/";
    return bmcbench::RunShell(
        "cd " + d + " && openssl req -newkey rsa:2048 -nodes -keyout op.key -out op.csr"
        " -subj /CN=operator 2>/dev/null"
        " && echo authorityInfoAccess=OCSP\\;URI:" + g_url + " > op.ext"
        " && openssl x509 -req -in op.csr -CA ca.pem -CAkey ca.key -set_serial 0x0ABCDE -days 9"
        " -out " + std::string(kClient) + " -extfile op.ext 2>/dev/null");
}

void StopResponder() {
    if (g_responder <= 0) return;
    ::kill(g_responder, SIGTERM);
    int status;
    ::waitpid(g_responder, &status, 0);
    g_responder = -1;
}

// The client certificate bound to the administrator, revocation as given.
bool PlaceRecords(uint8_t revokeCheck) {
    BMC_Db *db = DB_GetCurrentDb();
    CliCertList clients{};
    clients.astCliCert[0].uiCertId = 1;
    clients.astCliCert[0].uiRootCertId = 1;
    std::snprintf(clients.astCliCert[0].szFileName, 33, "operator.pem");
    std::snprintf(clients.astCliCert[0].szSerialNum, 103, "0ABCDE");
    CliCertUserList bindings{};
    bindings.astCertUser[1].uiCliCertId = 1;
    return db != nullptr &&
           DB_PutInternal(__FILE__, __LINE__, db, SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof clients,
                          &clients) == 0 &&
           DB_PutInternal(__FILE__, __LINE__, db, SSL_AUTH_DB_KEY_USER_LIST, sizeof bindings,
                          &bindings) == 0 &&
           DB_PutInternal(__FILE__, __LINE__, db, SSL_AUTH_DB_KEY_REVOKE_CHECK, 1,
                          &revokeCheck) == 0;
}

void Login(benchmark::State &state, uint8_t revokeCheck) {
    if (!PlaceRecords(revokeCheck)) state.SkipWithError("records could not be placed");
    char name[33], password[41];
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (auto _ : state) {
        if (LIB_SSL_GetNamePwdBySerial("0ABCDE", sizeof name, name, sizeof password, password) != 0)
            state.SkipWithError("login failed");
        benchmark::DoNotOptimize(name);
    }
    state.counters["spawns/op"] = benchmark::Counter(
        static_cast<double>(BMCSIM_SpawnCount() - spawns), benchmark::Counter::kAvgIterations);
}

void BM_LoginRevocationOff(benchmark::State &state) { Login(state, 0); }
void BM_LoginRevocationOn(benchmark::State &state) { Login(state, 1); }

void BM_BareOpensslRun(benchmark::State &state) {
    for (auto _ : state)
        if (!bmcbench::RunShell(kBareDump)) state.SkipWithError("bare openssl run failed");
    std::remove("/var/certs/bench_dump");
}

// The two runs of a check, output kept as the library keeps it; like the
// library, the exit status of the query is not what counts.
void BM_BareOcspRuns(benchmark::State &state) {
    const std::string address =
        std::string("openssl x509 -in ") + kClient + " -noout -ocsp_uri > /var/certs/bench_out";
    const std::string query = std::string("openssl ocsp -timeout 2 -issuer ") + kIssuer +
                              " -cert " + kClient + " -url " + g_url +
                              " > /var/certs/bench_out 2>/dev/null || true";
    for (auto _ : state)
        if (!bmcbench::RunShell(address) || !bmcbench::RunShell(query))
            state.SkipWithError("bare OCSP runs failed");
    std::remove("/var/certs/bench_out");
}

BENCHMARK(BM_LoginRevocationOff)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_BareOpensslRun)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_LoginRevocationOn)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();
BENCHMARK(BM_BareOcspRuns)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (!StartResponder()) {
        std::fprintf(stderr, "login_bench: the OCSP responder could not be set up\n");
        StopResponder();
        return 1;
    }
    bmcbench::TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    StopResponder();

    const double off = reporter.Seconds("BM_LoginRevocationOff");
    const double bare = reporter.Seconds("BM_BareOpensslRun");
    const double on = reporter.Seconds("BM_LoginRevocationOn");
    const double bareTwo = reporter.Seconds("BM_BareOcspRuns");
    if (off <= 0 || bare <= 0 || on <= 0 || bareTwo <= 0) {
        std::printf("login_bench: a benchmark did not run\n");
        return 1;
    }
    const bool fast = bare / off >= 1000;
    const bool close = on / bareTwo <= 1.3;
    std::printf("bare openssl run / login, revocation off = %.0fx (target >= 1000x): %s\n",
                bare / off, fast ? "met" : "MISSED");
    std::printf("login, revocation on / two bare openssl runs = %.2f (target <= 1.3): %s\n",
                on / bareTwo, close ? "met" : "MISSED");
    return fast && close ? 0 : 1;
}
