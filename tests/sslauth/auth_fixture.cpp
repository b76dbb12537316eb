#include "tests/sslauth/auth_fixture.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/host/bmc_sim.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;
constexpr const char *kUploadDir = "/var/certs/upload/";

const NameEntries kRootSubject = {{"O", "Test Works"}, {"CN", "Test Root CA"}};

// An import request for the uploaded file sent to the owner.
template <typename Request>
int32_t SendImport(OwnerCommand command, Request &request, const std::string &path) {
    std::snprintf(request.szFilePath, sizeof request.szFilePath, "%s", path.c_str());
    MRPC_Msg *response = nullptr;
    const int32_t result = MRPC_Call(kModule, static_cast<uint32_t>(command), sizeof request,
                                     &request, 1000, &response);
    MRPC_MsgFree(&response);
    return result;
}

} // namespace

void AuthTest::SetUp() {
    ControllerTest::SetUp();
    ASSERT_EQ(BMCSIM_AuthFactoryReset(), 0);
    std::error_code ec;
    fs::remove_all("/conf/certs/root", ec);
    for (const auto &entry : fs::directory_iterator("/conf/certs/client", ec))
        fs::remove_all(entry.path(), ec);
    fs::create_directories(kUploadDir);
    std::ofstream(BMCSIM_RPC_LOG, std::ios::trunc);
    ClearDiagLog();
}

void AuthTest::PutBytes(uint32_t key, const void *data, uint32_t size) {
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, DB_GetCurrentDb(), key, size, data), 0);
}

RootCertInfo AuthTest::RootEntry(uint32_t id, int32_t expTime, uint8_t active) {
    RootCertInfo entry{};
    entry.uiCertId = id;
    entry.ucActive = active;
    std::snprintf(entry.szFileName, sizeof entry.szFileName, "root%u.pem", id);
    std::snprintf(entry.szExpDate, sizeof entry.szExpDate, "exp-%d", expTime);
    entry.iExpTime = expTime;
    return entry;
}

CliCertInfo AuthTest::ClientEntry(uint32_t id, uint32_t rootId, const char *serial) {
    CliCertInfo entry{};
    entry.uiCertId = id;
    entry.uiRootCertId = rootId;
    std::snprintf(entry.szFileName, sizeof entry.szFileName, "client%u.pem", id);
    std::snprintf(entry.szSerialNum, sizeof entry.szSerialNum, "%s", serial);
    return entry;
}

std::string AuthTest::RootPem() {
    CertRecipe recipe;
    recipe.subject = kRootSubject;
    recipe.extendedKeyUsage.clear();
    recipe.ca = true;
    return MakeCertPem(recipe);
}

std::string AuthTest::ClientPem(long serial, const std::string &ocspUrl) {
    CertRecipe recipe;
    recipe.subject = {{"CN", "operator"}};
    recipe.issuer = kRootSubject;
    recipe.key = KeyKind::Ec256;
    recipe.signer = KeyKind::Rsa2048;
    recipe.extendedKeyUsage.clear();
    recipe.serial = serial;
    recipe.ocspUrl = ocspUrl;
    return MakeCertPem(recipe);
}

std::string AuthTest::UploadRoot(const std::string &name) {
    WriteFile(kUploadDir + name, RootPem());
    return kUploadDir + name;
}

std::string AuthTest::UploadClient(const std::string &name, long serial) {
    WriteFile(kUploadDir + name, ClientPem(serial));
    return kUploadDir + name;
}

int32_t AuthTest::ImportRoot(const std::string &path) {
    RootCertImportReq request{};
    return SendImport(OwnerCommand::ImportRoot, request, path);
}

int32_t AuthTest::ImportClient(const std::string &path, uint32_t rootId) {
    CliCertImportReq request{};
    request.uiRootCertId = rootId;
    return SendImport(OwnerCommand::ImportClient, request, path);
}

void AuthTest::AddOperator(bool bound) {
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(ImportClient(UploadClient("op.pem", 0x0ABCDE), 1), 0);
    ASSERT_EQ(BMCSIM_UserSet(3, "operator", 3, 0, "op-secret"), 0);
    if (bound) {
        ASSERT_EQ(Bind(1, 3), 0);
    }
}

int32_t AuthTest::Bind(uint32_t certId, uint8_t userId) {
    CertUserReq request{};
    request.uiCertId = certId;
    request.ucUserId = userId;
    return Call(OwnerCommand::BindUser, sizeof request, &request);
}

int32_t AuthTest::Call(OwnerCommand command, uint32_t length, const void *request) {
    return MRPC_Call(kModule, static_cast<uint32_t>(command), length, request, 1000, nullptr);
}

std::vector<RpcCall> AuthTest::RpcLog() {
    std::vector<RpcCall> calls;
    std::ifstream in(BMCSIM_RPC_LOG);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        RpcCall &call = calls.emplace_back();
        for (std::string *field : {&call.module, &call.command, &call.length, &call.waitLimit,
                                   &call.requestHex, &call.result})
            std::getline(fields, *field, '\t');
    }
    return calls;
}

std::string AuthTest::Outcome(uint32_t result, const OperateDesc &desc) {
    EXPECT_EQ(desc.ucLogClass, 37);
    char code[16];
    std::snprintf(code, sizeof code, "0x%08X ", result);
    return code +
           std::string(desc.szOperateDesc, strnlen(desc.szOperateDesc, sizeof desc.szOperateDesc));
}

} // namespace bmctest
