// Cost of a login by certificate (LIB_SSL_GetNamePwdBySerial), in one run:
//   - revocation checking off: records and the user table only; target at
//     least 1000 times faster than one bare openssl run, no process started;
//   - revocation checking on: the two openssl runs the check mandates (the
//     certificate's OCSP address, the OCSP query to a loopback responder);
//     target at most 1.3 times those two runs made bare;
//   - verified OCSP in process against the same responder: at most 1.2
//     times the published check's login (it saves two tool starts);
//   - the revocation check against the root's list of 10,000 entries: at
//     least 100 times faster than one bare openssl run.
// The responder is the tests' real `openssl ocsp`; it listens on every
// address, so this runs in `bmc-sandbox --private-network`.
#include <cstdio>
#include <ctime>
#include <vector>
#include <exception>
#include <filesystem>
#include <memory>
#include <string>

#include "bench/bench_support.h"
#include "lib_security_sslcert_ext.h"
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
    root.ca = true;
    const std::string rootPem = bmctest::MakeCertPem(root);
    bmctest::WriteFile(kIssuer, rootPem);
    std::filesystem::create_directories("/conf/certs/root");
    bmctest::WriteFile("/conf/certs/root/ca-root.pem", rootPem); // root record 1's file
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
bool PlaceRecords(uint8_t revokeCheck, uint32_t method) {
    const SSLRevocationPolicy policy{method, SSLCERT_EXT_ON_FAILURE_REFUSE, 604800, 300};
    return bmcbench::PlaceBoundClient() &&
           bmcbench::Put(SSL_AUTH_DB_KEY_REVOKE_CHECK, revokeCheck) &&
           LIB_SECURITY_SSL_SetRevocationPolicy(&policy) == 0;
}

void Login(benchmark::State &state, uint8_t revokeCheck,
           uint32_t method = SSLCERT_EXT_REVOCATION_COMMAND) {
    if (!PlaceRecords(revokeCheck, method)) state.SkipWithError("records could not be placed");
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
void BM_LoginVerifiedOcsp(benchmark::State &state) {
    Login(state, 1, SSLCERT_EXT_REVOCATION_OCSP);
}

// The check alone against a list of 10,000 other serials.
void BM_CrlCheck10k(benchmark::State &state) {
    std::vector<long> serials;
    for (long serial = 1; serial <= 10000; ++serial) serials.push_back(0x100000 + serial);
    const int64_t now = std::time(nullptr);
    const std::string crl = bmctest::MakeCrlPem({{"O", "Test Works"}, {"CN", "Test Root CA"}},
                                                bmctest::KeyKind::Rsa2048, serials, now - 3600,
                                                now + 86400);
    if (!PlaceRecords(1, SSLCERT_EXT_REVOCATION_CRL) ||
        LIB_SECURITY_SSL_AddRootCRL(1, crl.data(), static_cast<uint32_t>(crl.size())) != 0)
        state.SkipWithError("list could not be installed");
    for (auto _ : state)
        if (LIB_SSL_CertRevokeCheck(1) != 0) state.SkipWithError("check failed");
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
BENCHMARK(BM_LoginVerifiedOcsp)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();
BENCHMARK(BM_CrlCheck10k)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

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
    const double verified = reporter.Seconds("BM_LoginVerifiedOcsp");
    const double crl = reporter.Seconds("BM_CrlCheck10k");
    if (off <= 0 || bare <= 0 || on <= 0 || bareTwo <= 0 || verified <= 0 || crl <= 0) {
        std::printf("login_bench: a benchmark did not run\n");
        return 1;
    }
    const bool fast = bare / off >= 1000;
    const bool close = on / bareTwo <= 1.3;
    std::printf("bare openssl run / login, revocation off = %.0fx (target >= 1000x): %s\n",
                bare / off, fast ? "met" : "MISSED");
    std::printf("login, revocation on / two bare openssl runs = %.2f (target <= 1.3): %s\n",
                on / bareTwo, close ? "met" : "MISSED");
    const bool verifiedFast = verified / on <= 1.2;
    const bool crlFast = bare / crl >= 100;
    std::printf("login, verified OCSP / login, published check = %.2f (target <= 1.2): %s\n",
                verified / on, verifiedFast ? "met" : "MISSED");
    std::printf("bare openssl run / check against 10,000 listed = %.0fx (target >= 100x): %s\n",
                bare / crl, crlFast ? "met" : "MISSED");
    return fast && close && verifiedFast && crlFast ? 0 : 1;
}
