// The health record against services that misbehave and records that are
// damaged: each is a finding, within the probe's time bound, never a hang.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <openssl/pem.h>
#include <openssl/ssl.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"
#include "platform/bmc_platform.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

enum class Behaviour { kSilent, kHangsUp, kChainOfNine };

// A listener on 127.0.0.1 that answers one connection as told.
class OddService {
  public:
    explicit OddService(Behaviour behaviour) {
        listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        EXPECT_EQ(::bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener_, 4), 0);
        EXPECT_EQ(::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length), 0);
        port_ = ntohs(address.sin_port);
        // Made before anyone connects: signing them under an emulator takes
        // longer than a probe waits.
        if (behaviour == Behaviour::kChainOfNine)
            for (long serial = 1; serial <= 8; ++serial) {
                CertRecipe recipe;
                recipe.serial = serial;
                chain_.push_back(MakeCertPem(recipe));
            }
        if (behaviour != Behaviour::kSilent) thread_ = std::thread([this, behaviour] { Serve(behaviour); });
    }
    OddService(const OddService &) = delete;
    OddService &operator=(const OddService &) = delete;
    ~OddService() {
        ::shutdown(listener_, SHUT_RDWR);
        if (thread_.joinable()) thread_.join();
        ::close(listener_);
    }
    [[nodiscard]] uint32_t Port() const { return port_; }

  private:
    void Serve(Behaviour behaviour) {
        const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        if (behaviour == Behaviour::kChainOfNine) {
            SSL_CTX *context = SSL_CTX_new(TLS_server_method());
            (void)SSL_CTX_use_certificate_chain_file(context, kFactoryCert);
            (void)SSL_CTX_use_PrivateKey_file(context, kFactoryKey, SSL_FILETYPE_PEM);
            for (const std::string &pem : chain_) {
                BIO *bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
                (void)SSL_CTX_add_extra_chain_cert(context,
                                                   PEM_read_bio_X509(bio, nullptr, nullptr, nullptr));
                BIO_free(bio);
            }
            SSL *ssl = SSL_new(context);
            (void)SSL_set_fd(ssl, fd);
            if (SSL_accept(ssl) == 1) (void)SSL_shutdown(ssl);
            SSL_free(ssl);
            SSL_CTX_free(context);
        } else {
            char hello[16];
            (void)::recv(fd, hello, sizeof hello, 0); // the client's first bytes, then away
        }
        ::close(fd);
    }
    int listener_ = -1;
    uint32_t port_ = 0;
    std::vector<std::string> chain_;
    std::thread thread_;
};

class HealthTest : public ControllerTest {};

TEST_F(HealthTest, MisbehavingServicesAreFindingsWithinTheBound) {
    ::signal(SIGPIPE, SIG_IGN); // this test's own server writes to a client that left
    struct Row {
        const char *name;
        Behaviour behaviour;
        uint32_t severity;
        const char *text; // what the tunnel's finding starts with, after "port N: "
        uint32_t timeoutMs; // a whole handshake gets time enough under an emulator
    } rows[] = {
        {"accepts and never answers", Behaviour::kSilent, SSLCERT_EXT_SEVERITY_FAULT,
         "no answer within 300 ms", 300},
        {"hangs up during the handshake", Behaviour::kHangsUp, SSLCERT_EXT_SEVERITY_FAULT,
         "TLS handshake failed", 300},
        {"a chain of 9", Behaviour::kChainOfNine, SSLCERT_EXT_SEVERITY_OK, "", 10000},
    };
    auto record = std::make_unique<SSLHealthRecord>();
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const OddService tunnel(row.behaviour);
        const OddService web(Behaviour::kHangsUp);
        const SSLHealthProbe probe{tunnel.Port(), web.Port(), row.timeoutMs};
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(LIB_SECURITY_SSL_CheckHealth(&probe, record.get()), 0u);
        // Both probes run at once: never a hang, never both waits in turn.
        EXPECT_LT(std::chrono::steady_clock::now() - start,
                  std::chrono::milliseconds(row.timeoutMs + 1200));
        const SSLHealthFinding &served = record->astFindings[0];
        EXPECT_EQ(served.uiKind, SSLCERT_EXT_FINDING_TUNNEL_SERVES);
        EXPECT_EQ(served.uiSeverity, row.severity) << served.szText;
        const std::string expected =
            *row.text != '\0' ? "port " + std::to_string(tunnel.Port()) + ": " + row.text
                              : "serves the certificate in force";
        EXPECT_EQ(std::string(served.szText).rfind(expected, 0), 0u) << served.szText;
        EXPECT_EQ(record->astFindings[1].uiSeverity, SSLCERT_EXT_SEVERITY_FAULT);
    }
}

template <typename Record> void PutRecord(uint32_t key, const Record &record) {
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, DB_GetCurrentDb(), key, sizeof record, &record),
              0);
}

TEST_F(HealthTest, DamagedRecordsAreFaultsNamingThem) {
    WriteFile("/conf/certs/client/junk.pem", "not a certificate\n");
    auto roots = std::make_unique<RootCertList>();
    roots->astRootCert[0].uiCertId = 1;
    std::strcpy(roots->astRootCert[0].szFileName, "../../tmp/x.pem");
    auto clients = std::make_unique<CliCertList>();
    clients->astCliCert[0].uiCertId = 2;
    std::strcpy(clients->astCliCert[0].szFileName, "gone.pem");
    clients->astCliCert[1].uiCertId = 3;
    std::strcpy(clients->astCliCert[1].szFileName, "junk.pem");
    PutRecord(SSL_AUTH_DB_KEY_ROOT_LIST, *roots);
    PutRecord(SSL_AUTH_DB_KEY_CLIENT_LIST, *clients);

    auto record = std::make_unique<SSLHealthRecord>();
    ASSERT_EQ(LIB_SECURITY_SSL_CheckHealthOffline(record.get()), 0u);
    std::vector<std::string> faults;
    for (uint32_t i = 0; i < record->uiCount; ++i) {
        const SSLHealthFinding &f = record->astFindings[i];
        if (f.uiKind == SSLCERT_EXT_FINDING_ROOT_RECORD ||
            f.uiKind == SSLCERT_EXT_FINDING_CLIENT_RECORD)
            faults.push_back(std::string(f.szSubject) + ": " + f.szText);
    }
    EXPECT_EQ(faults, (std::vector<std::string>{
                          "root record 1: names the file \"../../tmp/x.pem\", which is no plain "
                          "name in its directory: the record is refused",
                          "client record 2: names /conf/certs/client/gone.pem, which is missing or "
                          "not a plain file",
                          "client record 3: names /conf/certs/client/junk.pem, which holds no "
                          "readable certificate"}));
}

} // namespace
} // namespace bmctest
