// A controller with factory users and client-authentication records before
// every test, and helpers to write records, place certificates and read
// the calls the record owner received.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lib_ssl_auth.h"
#include "platform/bmc_platform.h"
#include "platform/owner_protocol.h"
#include "tests/support/controller.h"

namespace bmctest {

using namespace owner_protocol;

struct RpcCall {
    std::string module, command, length, waitLimit, requestHex, result;
};

class AuthTest : public ControllerTest {
  protected:
    void SetUp() override;

    template <typename Record> static void Put(uint32_t key, const Record &record) {
        PutBytes(key, &record, sizeof record);
    }
    static void PutBytes(uint32_t key, const void *data, uint32_t size);
    template <typename Record> static Record Get(uint32_t key) {
        Record record{};
        EXPECT_EQ(DB_Get(DB_GetCurrentDb(), key, sizeof record, &record), 0);
        return record;
    }
    static RootCertList Roots() { return Get<RootCertList>(SSL_AUTH_DB_KEY_ROOT_LIST); }
    static CliCertList Clients() { return Get<CliCertList>(SSL_AUTH_DB_KEY_CLIENT_LIST); }
    static CliCertUserList Bindings() { return Get<CliCertUserList>(SSL_AUTH_DB_KEY_USER_LIST); }

    // A root entry as the owner writes it, expiring at the given time.
    static RootCertInfo RootEntry(uint32_t id, int32_t expTime, uint8_t active = 0);
    static CliCertInfo ClientEntry(uint32_t id, uint32_t rootId, const char *serial);

    // A root (RSA 2048, self-signed) and a client it issued (EC P-256),
    // with the client's OCSP address when one is given; PEM.
    static std::string RootPem();
    static std::string ClientPem(long serial, const std::string &ocspUrl = "");
    // The same, written to the upload directory; the path.
    static std::string UploadRoot(const std::string &name);
    static std::string UploadClient(const std::string &name, long serial);

    // Owner commands sent straight through the platform call.
    static int32_t ImportRoot(const std::string &path);
    static int32_t ImportClient(const std::string &path, uint32_t rootId);
    static int32_t Bind(uint32_t certId, uint8_t userId);
    // Any command with a request of the given length.
    static int32_t Call(OwnerCommand command, uint32_t length, const void *request);

    // Root 1, client 1 with serial 0ABCDE issued by it, and user 3
    // "operator" with password "op-secret", bound to it when asked.
    static void AddOperator(bool bound);

    static std::vector<RpcCall> RpcLog();
    // A management call's outcome as "0x<code> <description>"; its log
    // class is checked on the way.
    static std::string Outcome(uint32_t result, const OperateDesc &desc);
    // Reports of this unit at level 4 (a handled failure), as ReadDiags
    // gives them.
    static std::vector<Diag> Handling(const std::vector<std::string> &messages) {
        return Reports(2, 4, messages);
    }
};

} // namespace bmctest
