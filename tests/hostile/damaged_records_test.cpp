// Database records that their owner did not write as they should be: of
// another size, cut short, zeroed, or full of bytes with no terminator in
// any text. Readers never read past a field, never write past an output
// and answer as documented.

#include <cstring>
#include <filesystem>
#include <string_view>

#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

struct StoredRecord {
    uint32_t key;
    uint32_t size;
    // Zeroed, the record holds nothing: the bound operator's login answers
    // this, the support flag and the information's key length read so.
    uint32_t zeroedLogin, zeroedSupport, zeroedKeyLength;
};

constexpr StoredRecord kRecords[] = {
    {SSL_AUTH_DB_KEY_STATE, 1, 0, 1, 2048},
    {SSL_AUTH_DB_KEY_REVOKE_CHECK, 1, 0, 1, 2048},
    {SSL_AUTH_DB_KEY_ROOT_LIST, sizeof(RootCertList), 0, 1, 2048},
    {SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof(CliCertList), SSL_AUTH_MGMT_LOGIN_NO_CERT, 1, 2048},
    {SSL_AUTH_DB_KEY_USER_LIST, sizeof(CliCertUserList), SSL_AUTH_MGMT_LOGIN_NO_USER, 1, 2048},
    {SSL_AUTH_DB_KEY_SUPPORT, 1, 0, 0, 2048},
    {SSLCERT_INFO_DB_KEY, sizeof(SSLCertInfo), 0, 1, 0},
};

// A shell would run this if a field ever reached one unquoted.
constexpr std::string_view kHostile = "$(touch /var/certs/mk)`touch /var/certs/mk`;|&'\"\n\xff\xc0";

template <size_t N> bool Terminated(const char (&text)[N]) {
    return std::memchr(text, '\0', N) != nullptr;
}

// An output filled with a pattern, so that what a reader leaves shows.
template <typename T> T Filled() {
    T out;
    std::memset(&out, 0xEE, sizeof out);
    return out;
}

// Every reader of the records, with outputs prefilled with a pattern: a
// result and its output bytes each, so that two states compare at once.
std::vector<std::string> ReadEverything() {
    std::vector<std::string> seen;
    const auto note = [&](uint32_t result, const void *out, size_t size) {
        seen.push_back(std::to_string(result) + ":" +
                       std::string(static_cast<const char *>(out), size));
    };
    uint8_t state = 0xEE;
    note(LIB_SSL_GetCertAuthState(&state), &state, 1);
    note(LIB_SSL_GetCertRevokeCheck(&state), &state, 1);
    note(LIB_SSL_IsEnableCertAuth(), nullptr, 0);
    note(LIB_SSL_IsSupportCertAuthFunc(), nullptr, 0);
    uint32_t id = 0xEEEE;
    note(LIB_SSL_GetActiveRootCertId(&id), &id, sizeof id);

    for (uint32_t cert : {1u, 2u, 20u}) {
        auto root = Filled<RootCertInfo>();
        note(LIB_SSL_IsExistRootCert(cert, &root), &root, sizeof root);
        note(LIB_SSL_GetRootCertInfo(cert, &root), &root, sizeof root);
        auto client = Filled<CliCertInfo>();
        note(LIB_SSL_IsExistClientCert(cert, &client), &client, sizeof client);
        // A certificate that no user holds leaves the user part as it was.
        CliCertDetail detail{};
        const uint32_t result = LIB_SSL_GetClientCertInfo(cert, &detail);
        EXPECT_TRUE(result != 0 ||
                    (Terminated(detail.stUser.szUserName) && Terminated(detail.stUser.szRoleName)));
        note(result, &detail, sizeof detail);
        note(LIB_SSL_IsCorrectCertRelation(1, cert), nullptr, 0);
    }
    auto roots = Filled<RootCertList>();
    note(LIB_SSL_GetRootCertList(&roots), &roots, sizeof roots);
    auto clients = Filled<CliCertList>();
    note(LIB_SSL_GetClientCertList(&clients), &clients, sizeof clients);
    clients = Filled<CliCertList>();
    uint32_t count = 0xEEEE;
    note(LIB_SSL_GetClientCertListByRoot(1, &count, clients.astCliCert), &clients, sizeof clients);
    seen.push_back(std::to_string(count));
    auto bindings = Filled<CliCertUserList>();
    note(LIB_SSL_GetClientCertUserList(&bindings), &bindings, sizeof bindings);
    auto usable = Filled<UsableUserList>();
    note(LIB_SSL_GetUsableUserList(&usable), &usable, sizeof usable);

    for (std::string serial : {std::string("0ABCDE"), std::string(kHostile),
                               std::string(102, '\xff'), std::string(500, '7')}) {
        char name[33], password[41];
        std::memset(name, 0xEE, sizeof name);
        std::memset(password, 0xEE, sizeof password);
        const uint32_t result = LIB_SSL_GetNamePwdBySerial(serial.c_str(), sizeof name, name,
                                                           sizeof password, password);
        EXPECT_TRUE(result != 0 || (Terminated(name) && Terminated(password)));
        note(result, name, result == 0 ? std::strlen(name) : 0);
    }
    note(LIB_SSL_CertRevokeCheck(1), nullptr, 0);

    auto info = Filled<SSLCertInfo>();
    note(LIB_SECURITY_GetCertInfo(&info), &info.stSSLConfig.uiPublicKeyLen,
         sizeof info.stSSLConfig.uiPublicKeyLen);
    // The factory certificate was made moments ago: its last day may be
    // turning over between two reads.
    note(LIB_SECURITY_GetCertLeftExpires() >= 5474, nullptr, 0);
    return seen;
}

class DamagedRecordsTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        AddOperator(true);
    }
    // Puts every record back as the owner and the library wrote them.
    void Restore(const std::vector<std::vector<char>> &stored) {
        for (size_t i = 0; i < std::size(kRecords); ++i)
            PutBytes(kRecords[i].key, stored[i].data(), kRecords[i].size);
    }
    std::vector<std::vector<char>> Snapshot() {
        (void)ReadEverything(); // the certificate information record exists from here
        std::vector<std::vector<char>> stored;
        for (const StoredRecord &record : kRecords) {
            stored.emplace_back(record.size);
            EXPECT_EQ(DB_Get(DB_GetCurrentDb(), record.key, record.size, stored.back().data()), 0);
        }
        return stored;
    }
};

// A record of any other size reads exactly as a missing one.
TEST_F(DamagedRecordsTest, WrongSizeReadsAsNoRecord) {
    const auto stored = Snapshot();
    for (size_t i = 0; i < std::size(kRecords); ++i) {
        const StoredRecord record = kRecords[i];
        SCOPED_TRACE(record.key);
        Restore(stored);
        ASSERT_EQ(BMCSIM_DbErase(record.key), 0);
        ClearDiagLog();
        const auto missing = ReadEverything();
        const auto missingDiags = ReadDiags();
        for (uint32_t size : {1u, record.size - 1, record.size + 1, record.size * 2}) {
            if (size == record.size || size == 0) continue;
            SCOPED_TRACE(size);
            Restore(stored);
            std::vector<char> damaged(size);
            std::memcpy(damaged.data(), stored[i].data(), std::min(size, record.size));
            PutBytes(record.key, damaged.data(), size);
            ClearDiagLog();
            const auto damagedReads = ReadEverything();
            ASSERT_EQ(damagedReads.size(), missing.size());
            for (size_t read = 0; read < missing.size(); ++read)
                EXPECT_EQ(damagedReads[read], missing[read]) << "read " << read;
            EXPECT_EQ(ReadDiags(), missingDiags);
        }
    }
}

// Zeroed records, and records whose every text is hostile and unterminated:
// no reader overflows, none runs the text, and the login still finds
// nothing it should not.
TEST_F(DamagedRecordsTest, ZeroedAndUnterminatedRecords) {
    const auto stored = Snapshot();
    for (const StoredRecord &record : kRecords) {
        SCOPED_TRACE(record.key);
        Restore(stored);
        PutBytes(record.key, std::vector<char>(record.size, 0).data(), record.size);
        (void)ReadEverything();
        char name[33] = {}, password[41] = {};
        EXPECT_EQ(
            LIB_SSL_GetNamePwdBySerial("0ABCDE", sizeof name, name, sizeof password, password),
            record.zeroedLogin);
        EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), record.zeroedSupport);
        SSLCertInfo info{};
        EXPECT_EQ(LIB_SECURITY_GetCertInfo(&info), 0u);
        EXPECT_EQ(info.stSSLConfig.uiPublicKeyLen, record.zeroedKeyLength);
    }

    RootCertList roots{};
    CliCertList clients{};
    for (uint32_t i = 0; i < 20; ++i) {
        RootCertInfo &root = roots.astRootCert[i];
        std::memset(&root, 0xFF, sizeof root);
        root.uiCertId = i + 1;
        root.ucActive = 1;
        root.iExpTime = INT32_MIN;
        CliCertInfo &client = clients.astCliCert[i];
        client.uiCertId = i + 1;
        client.uiRootCertId = 1;
        for (size_t at = 0; at < sizeof client.szFileName; ++at)
            client.szFileName[at] = kHostile[at % kHostile.size()];
        for (size_t at = 0; at < sizeof client.szSerialNum; ++at)
            client.szSerialNum[at] = kHostile[at % kHostile.size()];
    }
    CliCertUserList bindings;
    std::memset(&bindings, 0xFF, sizeof bindings);
    SSLCertInfo info;
    std::memset(&info, 'x', sizeof info);
    Restore(stored);
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    Put(SSL_AUTH_DB_KEY_CLIENT_LIST, clients);
    Put(SSL_AUTH_DB_KEY_USER_LIST, bindings);
    Put(SSLCERT_INFO_DB_KEY, info);
    const uint8_t on = 1;
    PutBytes(SSL_AUTH_DB_KEY_REVOKE_CHECK, &on, 1);
    (void)ReadEverything();

    EXPECT_FALSE(fs::exists("/var/certs/mk"));
    char name[33] = {}, password[41] = {};
    EXPECT_EQ(LIB_SSL_GetNamePwdBySerial(std::string(kHostile).c_str(), sizeof name, name,
                                         sizeof password, password),
              SSL_AUTH_MGMT_LOGIN_NO_CERT);
}

} // namespace
} // namespace bmctest
