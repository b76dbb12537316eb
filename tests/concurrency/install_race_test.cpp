// Installations at once: two processes of several threads, each process
// installing a pair of its own. The installation lock must keep them from
// mixing their files: whenever the lock is free, and at the end, the user
// pair, the combined file and the tunnel configuration are one whole set.
// Beside them in each process, a rewrite of the tunnel configuration to the
// same pair and a read of the certificate in force from its files share
// their scratch files across the processes under their own locks: without
// the tunnel lock or the scratch-file lock, calls fail or read torn text.

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/support/controller.h"

namespace bmctest {
namespace {

using namespace controller_paths;

constexpr int kThreads = 3;
constexpr int kRounds = 4;

struct Pair {
    std::string certPath, keyPath, cert, key;
};

Pair MakePair(int process) {
    CertRecipe recipe;
    recipe.key = process == 0 ? KeyKind::Rsa2048 : KeyKind::Ec256;
    recipe.serial = 0x100 + process;
    recipe.keyUsage = kKuDigitalSignature | kKuKeyEncipherment;
    const std::string base = "/var/certs/race-" + std::to_string(process);
    return {base + "-cert.pem", base + "-key.pem", MakeCertPem(recipe), KeyPem(recipe.key)};
}

// What is wrong with the installed set, or "" when it is whole.
std::string BrokenSet(const Pair pairs[2]) {
    const std::string cert = ReadFile(kUserCertPath), key = ReadFile(kUserKeyPath);
    bool known = false;
    for (int p = 0; p < 2; ++p)
        known = known || (cert == pairs[p].cert && key == pairs[p].key);
    if (!known) return "the user certificate and key are not one pair";
    if (ReadFile(kCombinedPath) != cert + key) return "server.pem is not the pair";
    const std::string tunnel = ReadFile(kTunnelConfigPath);
    if (tunnel.find(std::string("cert = ") + kUserCertPath + "\n") == std::string::npos ||
        tunnel.find(std::string("key = ") + kUserKeyPath + "\n") == std::string::npos)
        return "stunnel.conf does not name the user pair";
    return "";
}

// A process that installs its pair from several threads, rewrites the
// tunnel configuration and reads the certificate's information; exits with
// the number of calls that did not return 0 or read no serial number.
[[noreturn]] void Installer(const Pair &pair) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&] {
            for (int r = 0; r < kRounds; ++r)
                if (SECURITY_SSL_UpdateSSLCert(pair.certPath.c_str(), pair.keyPath.c_str()) != 0)
                    ++failures;
        });
    threads.emplace_back([&] {
        for (int r = 0; r < kRounds * kThreads; ++r)
            failures += LIB_SECURITY_SSL_ModStunnelConfFile(kUserCertPath, kUserKeyPath) != 0;
    });
    threads.emplace_back([&] {
        for (int r = 0; r < kRounds * kThreads; ++r) {
            SSLCertInfo info{};
            failures += SECURITY_GetCertInfoFromFile(&info) != 0 || !info.stSSLConfig.szSerialNum[0];
        }
    });
    for (auto &thread : threads)
        thread.join();
    _exit(failures.load());
}

class InstallRaceTest : public ControllerTest {};

TEST_F(InstallRaceTest, ConcurrentInstallationsNeverMixTheirFiles) {
    const Pair pairs[2] = {MakePair(0), MakePair(1)};
    for (const Pair &pair : pairs) {
        WriteFile(pair.certPath, pair.cert);
        WriteFile(pair.keyPath, pair.key);
    }
    // A user pair in force from the start, as the readers expect one.
    ASSERT_EQ(SECURITY_SSL_UpdateSSLCert(pairs[0].certPath.c_str(), pairs[0].keyPath.c_str()), 0u);
    pid_t children[2];
    for (int p = 0; p < 2; ++p)
        if ((children[p] = fork()) == 0) Installer(pairs[p]);

    // Between two installations the set must be whole: look while holding
    // the lock they take, until both processes are done.
    int statuses[2] = {-1, -1};
    for (int looks = 0; statuses[0] == -1 || statuses[1] == -1; ++looks) {
        uint32_t handle = 0;
        ASSERT_EQ(BMC_FileLock_AcquireLock("sslcert_install.lock", &handle), 0);
        const std::string broken =
            access(kUserCertPath, F_OK) == 0 ? BrokenSet(pairs) : std::string();
        ASSERT_EQ(BMC_FileLock_ReleaseLock(handle), 0);
        ASSERT_EQ(broken, "") << "look " << looks;
        for (int p = 0; p < 2; ++p)
            if (statuses[p] == -1 && waitpid(children[p], &statuses[p], WNOHANG) == 0)
                statuses[p] = -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    for (int status : statuses) {
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), 0) << "failed calls";
    }
    EXPECT_EQ(BrokenSet(pairs), "");
    EXPECT_EQ(ReadDiags(), std::vector<Diag>{});
}

} // namespace
} // namespace bmctest
