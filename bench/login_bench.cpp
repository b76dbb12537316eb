// Cost of a login by certificate (LIB_SSL_GetNamePwdBySerial), in one run:
//   - revocation checking off: records and the user table only; target at
//     least 1000 times faster than one bare openssl run, no process started;
//   - revocation checking on: the two openssl runs the check mandates (the
//     certificate's OCSP address, the OCSP query to a loopback responder);
//     target at most 1.3 times those two runs made bare.
// The responder is the tests' real `openssl ocsp`; it listens on every
// address, so this runs in `bmc-sandbox --private-network`.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "lib_ssl_auth.h"
#include "platform/host/bmc_sim.h"
#include "tests/sslauth/ocsp_responder.h"
#include "tests/support/test_certs.h"

namespace {

constexpr const char *kDir = "/var/certs/login-bench";
constexpr const char *kClient = "/conf/certs/client/operator.pem";
constexpr const char *kIssuer = "/conf/certs/client/ca.pem"; // the web server's ssl.ca-file

std::string g_url;

// The issuer, and the client it issued with the responder's address; the
// responder knows the client as good.
std::unique_ptr<bmctest::OcspResponder> StartResponder() {
    const bmctest::NameEntries rootName = {{"O", "Test Works"}, {"CN", "Test Root CA"}};
    bmctest::CertRecipe root;
    root.subject = rootName;
    root.extendedKeyUsage.clear();
    const std::string rootPem = bmctest::MakeCertPem(root);
    bmctest::WriteFile(kIssuer, rootPem);
    std::filesystem::create_directories(kDir);
    auto responder = std::make_unique<bmctest::OcspResponder>(
        kDir, rootPem, std::vector<bmctest::IndexEntry>{{'V', "0ABCDE"}});
    g_url = responder->Url();
    bmctest::CertRecipe client;
    client.subject = {{"CN", "operator"}};
    client.issuer = rootName;
    client.signer = bmctest::KeyKind::Rsa2048;
    client.key = bmctest::KeyKind::Ec256;
    client.serial = 0x0ABCDE;
    client.ocspUrl = g_url;
    client.extendedKeyUsage.clear();
    bmctest::WriteFile(kClient, bmctest::MakeCertPem(client));
    return responder;
}

// The client certificate bound to the administrator, revocation as given.
bool PlaceRecords(uint8_t revokeCheck) {
    return bmcbench::PlaceBoundClient() && bmcbench::Put(SSL_AUTH_DB_KEY_REVOKE_CHECK, revokeCheck);
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
    bmcbench::ReportSpawns(state, spawns);
}

void BM_LoginRevocationOff(benchmark::State &state) {
    Login(state, 0);
}
void BM_LoginRevocationOn(benchmark::State &state) {
    Login(state, 1);
}

using bmcbench::BM_BareOpensslDump;

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
BENCHMARK(BM_BareOpensslDump)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_LoginRevocationOn)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();
BENCHMARK(BM_BareOcspRuns)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    std::unique_ptr<bmctest::OcspResponder> responder;
    try {
        responder = StartResponder();
    } catch (const std::exception &e) {
        std::fprintf(stderr, "login_bench: the OCSP responder could not be set up: %s\n", e.what());
        return 1;
    }
    bmcbench::TimeReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    responder.reset();

    const double off = reporter.Seconds("BM_LoginRevocationOff");
    const double bare = reporter.Seconds("BM_BareOpensslDump");
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
