// Installation on a /conf that is full, mounted over or read-only, and one
// killed half way: a clear failure or a pending installation that the
// recovery settles, and the pair installed before stays whole and loadable
// by the services. The scratch directory /var/certs kept private by every
// writer there.

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <openssl/pem.h>

#include <cstring>
#include <filesystem>
#include <functional>

#include "frame/frame.h"

#include "lib_security_sslcert_ext.h"
#include "tests/support/controller.h"
#include "tests/support/example_request.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

constexpr const char *kUploadedCert = "/var/certs/actualcert.pem";
constexpr const char *kUploadedKey = "/var/certs/actualprivkey.pem";
constexpr const char *kFiller = "/conf/filler";

// True when the combined file holds a certificate followed by its own key,
// as the web server needs it.
bool CombinedFileLoads() {
    using bmccert::UniquePtr;
    const std::string pem = ReadFile(kCombinedFile);
    const UniquePtr<BIO> bio(BIO_new_mem_buf(pem.data(), int(pem.size())));
    const UniquePtr<X509> cert(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr));
    const UniquePtr<EVP_PKEY> key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
    return cert && key && X509_check_private_key(cert.get(), key.get()) == 1;
}

// The installed pair, the combined file and the tunnel configuration.
std::vector<std::string> ReadInstalled() {
    return {ReadFile("/conf/certs/server/user/actualcert.pem"),
            ReadFile("/conf/certs/server/user/actualprivkey.pem"), ReadFile(kCombinedFile),
            ReadFile(kTunnelConfig)};
}

// /conf on a tmpfs of its own holding a copy of the controller's /conf,
// so that it can be filled; unmounted after each test.
class StorageTest : public ControllerTest {
  protected:
    void SetUp() override {
        ControllerTest::SetUp();
        const int original = open("/conf", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ASSERT_GE(original, 0);
        ASSERT_EQ(mount("bmccert-conf", "/conf", "tmpfs", 0, "size=256k,mode=0755"), 0);
        mounted_ = true;
        fs::copy("/proc/self/fd/" + std::to_string(original), "/conf", fs::copy_options::recursive);
        close(original);
    }
    void TearDown() override {
        if (mounted_) {
            EXPECT_EQ(umount2("/conf", MNT_DETACH), 0);
        }
        ControllerTest::TearDown();
    }
    static void Upload(const CertRecipe &recipe) {
        WriteFile(kUploadedCert, MakeCertPem(recipe));
        WriteFile(kUploadedKey, KeyPem(recipe.key));
    }
    static uint32_t Install() { return SECURITY_SSL_UpdateSSLCert(kUploadedCert, kUploadedKey); }
    // Fills /conf until exactly `spare` blocks are left.
    static void FillLeaving(uint64_t spare) {
        struct statvfs vfs;
        ASSERT_EQ(statvfs("/conf", &vfs), 0);
        const uint64_t used = fs::exists(kFiller) ? fs::file_size(kFiller) / vfs.f_frsize : 0;
        const uint64_t blocks = used + vfs.f_bavail - spare;
        WriteFile(kFiller, std::string(blocks * vfs.f_frsize, 'f'));
        ASSERT_EQ(statvfs("/conf", &vfs), 0);
        ASSERT_EQ(vfs.f_bavail, spare);
    }

  private:
    bool mounted_ = false;
};

TEST_F(StorageTest, FullDiskRefusesBeforeTouchingTheInstalledPair) {
    Upload({});
    ASSERT_EQ(Install(), 0u);
    const auto before = ReadInstalled();
    ASSERT_TRUE(CombinedFileLoads());

    CertRecipe next;
    next.key = KeyKind::Ec256;
    next.serial = 0x5EED;
    Upload(next);
    // Wherever the journal or one of the steps runs out of room, the
    // previous set stays whole; with room enough the new one is installed.
    uint64_t spare = 0;
    for (; spare <= 16; ++spare) {
        SCOPED_TRACE(spare);
        FillLeaving(spare);
        ClearDiagLog();
        if (Install() == 0u) break;
        if (spare == 0) {
            EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 4,
                                                       "Record the installation in "
                                                       "/conf/certs/server/.install.new failed! "
                                                       "strerrno:No space left on device\n"}}));
        }
        EXPECT_EQ(ReadInstalled(), before);
        EXPECT_TRUE(CombinedFileLoads());
        EXPECT_FALSE(fs::exists("/conf/certs/server/.install"));
    }
    ASSERT_LE(spare, 16u);
    EXPECT_EQ(ReadFile(kCombinedFile), ReadFile(kUploadedCert) + ReadFile(kUploadedKey));
    EXPECT_TRUE(CombinedFileLoads());

    // The tunnel configuration cannot be rewritten either, and stays whole.
    FillLeaving(0);
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/new/cert.pem", "/new/key.pem"), 0x81000001u);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 4,
                                               "Replace /conf/adviserd/stunnel.conf with "
                                               "/conf/adviserd/tmp_stunnel.conf failed! "
                                               "strerrno:No space left on device\n"}}));
    EXPECT_EQ(ReadFile(kTunnelConfig), before[3]);
    EXPECT_FALSE(fs::exists("/conf/adviserd/tmp_stunnel.conf"));
}

// The recovery's outcome, or its code when it fails.
uint32_t Recover() {
    uint32_t outcome = 99;
    const uint32_t result = LIB_SECURITY_SSL_RecoverInstallation(0, &outcome);
    return result != 0 ? result : outcome;
}

// Runs an upload's import in a child whose merge step never ends (a `cat`
// of the installed pair that waits), kills the child's whole process
// group there, and returns the import's task.
uint32_t KillImportWhileMerging() {
    const fs::path bin = "/var/lib/bmc-sim/stuck";
    fs::create_directories(bin);
    WriteFile(bin / "cat", "#!/bin/sh\ncase $1 in /conf/*) : > " + (bin / "merging").string() +
                               "; exec /bin/sleep 60;; esac\nexec /bin/cat \"$@\"\n");
    fs::permissions(bin / "cat", fs::perms::owner_all);
    int ids[2];
    EXPECT_EQ(pipe(ids), 0);
    const pid_t child = fork();
    if (child == 0) {
        (void)setpgid(0, 0);
        (void)setenv("PATH", (bin.string() + ":" + getenv("PATH")).c_str(), 1);
        UploadParam request{};
        std::strcpy(request.CertSrcPath, "/var/certs/src.crt");
        std::strcpy(request.PrivkeySrcPath, "/var/certs/src.key");
        TaskHandle task{};
        (void)LIB_SECURITY_UploadAndRestartService(&request, &task);
        (void)!write(ids[1], &task.TaskId, sizeof task.TaskId);
        pause();
    }
    uint32_t taskId = 0;
    EXPECT_EQ(read(ids[0], &taskId, sizeof taskId), ssize_t(sizeof taskId));
    for (int i = 0; i < 1000 && !fs::exists(bin / "merging"); ++i) usleep(10000);
    EXPECT_EQ(kill(-child, SIGKILL), 0);
    (void)waitpid(child, nullptr, 0);
    close(ids[0]);
    close(ids[1]);
    return taskId;
}

// Each fault of the journal leaves either the previous set in force or a
// pending installation that is told as such, and that the recovery
// completes once the fault has gone.
TEST_F(StorageTest, JournalFaultsSettleAndTheRecoverySaysHow) {
    struct Case {
        const char *name;
        std::function<void()> fault, heal;
        uint32_t installed, recovered; // the self-signed entry's result, the recovery's
        bool newSet;
    } cases[] = {
        {"a live directory on another file system",
         [] {
             const std::string config = ReadFile(kTunnelConfig);
             ASSERT_EQ(mount("other", "/conf/adviserd", "tmpfs", 0, "size=16k"), 0);
             WriteFile(kTunnelConfig, config);
             SetFaults("BMC_System=1");
         },
         [] { ASSERT_EQ(umount("/conf/adviserd"), 0); }, SSLCERT_EXT_ERR_INSTALL,
         SSLCERT_EXT_RECOVER_NONE, false},
        // A file mounted over the tunnel configuration lies on the same file
        // system, but no rename replaces it: the turn-back stops half way.
        {"a turn-back that cannot finish",
         [] {
             WriteFile("/conf/tunnel.copy", ReadFile(kTunnelConfig));
             ASSERT_EQ(mount("/conf/tunnel.copy", kTunnelConfig, nullptr, MS_BIND, nullptr), 0);
             SetFaults("BMC_System=1");
         },
         [] { ASSERT_EQ(umount(kTunnelConfig), 0); }, SSLCERT_EXT_ERR_INSTALL_PENDING,
         SSLCERT_EXT_RECOVER_OLD_SET, false},
        {"a failed refresh", [] { SetFaults("DB_PutInternal=1"); }, [] {}, 0,
         SSLCERT_EXT_RECOVER_NONE, true},
    };
    const SSLCertRequest request = ExampleRequest();
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ControllerTest::SetUp();
        Upload({});
        ASSERT_EQ(Install(), 0u);
        const auto before = ReadInstalled();
        c.fault();
        OperateDesc desc{};
        EXPECT_EQ(LIB_SECURITY_SSL_GenSelfSignedAndRestart(&request, &desc), c.installed);
        EXPECT_EQ(Recover(), c.installed == SSLCERT_EXT_ERR_INSTALL_PENDING
                                 ? SSLCERT_EXT_ERR_INSTALL_PENDING
                                 : SSLCERT_EXT_RECOVER_NONE);
        c.heal();
        SetFaults("");
        EXPECT_EQ(Recover(), c.recovered);
        EXPECT_EQ(ReadInstalled() != before, c.newSet);
        EXPECT_TRUE(CombinedFileLoads());
        // The stored record describes the certificate in force.
        SSLCertInfo stored{};
        ASSERT_EQ(LIB_SECURITY_GetCertInfo(&stored), 0u);
        EXPECT_STREQ(stored.stSSLConfig.stIssueTo.szCommonName,
                     c.newSet ? kExampleHost : "bmc.test");
        EXPECT_EQ(Install(), 0u);
    }
}

TEST_F(StorageTest, RecoveryEndsTheTaskOfAKilledImport) {
    Upload({});
    ASSERT_EQ(Install(), 0u);
    CertRecipe next;
    next.serial = 0x5EED;
    WriteFile("/var/certs/src.crt", MakeCertPem(next));
    WriteFile("/var/certs/src.key", KeyPem(next.key));
    const uint32_t task = KillImportWhileMerging();
    ASSERT_TRUE(fs::exists("/conf/certs/server/.install"));
    EXPECT_EQ(Recover(), SSLCERT_EXT_RECOVER_NEW_SET);
    EXPECT_EQ(ReadFile("/conf/certs/server/user/actualcert.pem"), MakeCertPem(next));
    EXPECT_TRUE(CombinedFileLoads());
    BMCSIM_TaskState state{};
    ASSERT_EQ(BMCSIM_TaskGet(task, &state), 0);
    EXPECT_EQ(state.ucState, 2);
    EXPECT_EQ(state.ucProgress, 100);
}

// Dropping the pending key: gone, nothing to drop, or a /conf that keeps it.
TEST_F(StorageTest, DropPendingKey) {
    const SSLCertRequest request = ExampleRequest();
    char pem[SSLCERT_EXT_CSR_PEM_SIZE];
    ASSERT_EQ(LIB_SECURITY_SSL_GenerateCSR(&request, pem, sizeof pem), 0u);
    ASSERT_EQ(mount(nullptr, "/conf", nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    EXPECT_EQ(LIB_SECURITY_SSL_DropPendingCSR(), SSLCERT_EXT_ERR_PENDING_WRITE);
    ASSERT_EQ(mount(nullptr, "/conf", nullptr, MS_REMOUNT, nullptr), 0);
    EXPECT_TRUE(fs::exists("/conf/certs/server/pending/csr.pem"));
    EXPECT_EQ(LIB_SECURITY_SSL_DropPendingCSR(), 0u);
    EXPECT_FALSE(fs::exists("/conf/certs/server/pending/csr.pem"));
    EXPECT_EQ(LIB_SECURITY_SSL_DropPendingCSR(), SSLCERT_EXT_ERR_NO_PENDING_KEY);
}

// Whatever writes under /var/certs finds it 0755 and leaves it 0700, and a
// link planted at the name it writes leaves the link's target as it was.
TEST_F(ControllerTest, ScratchWritersKeepTheDirectoryPrivateAndFollowNoLink) {
    constexpr const char *kOutside = "/conf/outside.txt";
    const std::function<void()> generate = [] {
        const SSLCertGenParam request = GenRequest(1024);
        (void)LIB_SECURITY_GenCert(&request);
    };
    const std::function<void()> fetch = [] {
        UploadParam r{
            {}, "/conf/certs/server/default/server.pem", "/conf/certs/server/default/privkey.pem"};
        (void)SECURITY_SSL_GetUploadCert(&r);
    };
    const std::pair<const char *, std::function<void()>> cases[] = {
        {"/var/certs/certtmp",
         [] {
             SSLConfig c{};
             (void)SECURITY_SSL_GetSSLCertCommon(4, &c);
         }},
        {"/var/certs/sslconf", generate},
        {"/var/certs/TmpPrivkeyGen.pem", generate},
        {kUploadedKey, fetch},
        {"/var/certs/TmpCombinedCert.pem",
         [&] {
             fetch();
             (void)SECURITY_SSL_ValidateSSLCert();
         }},
    };
    for (const auto &[planted, write] : cases) {
        SCOPED_TRACE(planted);
        SetUp();
        ASSERT_EQ(chmod("/var/certs", 0755), 0);
        WriteFile(kOutside, "outside\n");
        ASSERT_EQ(symlink(kOutside, planted), 0);
        write();
        EXPECT_EQ(ModeOf("/var/certs"), 0700u);
        EXPECT_EQ(ReadFile(kOutside), "outside\n");
        EXPECT_EQ(ModeOf(kOutside), 0644u);
    }
    // An uploaded key that arrived 0644 is 0600 as the transfer leaves it.
    FileTransferRecord record{0, 1, "/var/certs/key", "/conf/outside.txt"};
    ASSERT_EQ(FILEHANDLE_UploadDownloadFile(&record, 5), 0);
    EXPECT_EQ(ModeOf("/var/certs/key"), 0600u);
}

} // namespace
} // namespace bmctest
