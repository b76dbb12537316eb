// Null pointers, checked by one macro everywhere: a row for each kind of
// answer the functions give (the frame's code, a management entry's own
// default, a boolean, nothing) and for each unit's report, with one report
// that names the parameter, the source file and the function, and no work
// done (no process, no call to the records' owner, no operation-log entry,
// no task).
#include <gtest/gtest.h>

#include <type_traits>

#include "lib_security_sslcert.h"
#include "lib_ssl_auth.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr uint32_t kNoResult = 0xFFFFFFFF; // functions that return nothing or a pointer

template <typename Call> uint32_t Run(Call call) {
    using Result = decltype(call());
    if constexpr (std::is_void_v<Result>)
        return call(), kNoResult;
    else if constexpr (std::is_pointer_v<Result>)
        return call() == nullptr ? kNoResult : 1;
    else
        return static_cast<uint32_t>(call());
}

// Any pointer that is not the null one: a zero-filled object of the type
// asked for, never read or written, since every check comes before any work.
constexpr struct {
    template <typename T> operator T *() const {
        static T object{};
        return &object;
    }
} any;

struct NullCase {
    const char *function, *parameter, *file;
    uint32_t expected;
    uint32_t (*call)();
};
#define ROW(fn, param, file, code, ...)                                                            \
    NullCase {                                                                                     \
#fn, #param, #file ".cpp", code, [] { return Run([] { return fn(__VA_ARGS__); }); }        \
    }

// clang-format off
// The server-certificate unit reports with module 0, sub-module 0.
const NullCase kServerCases[] = {
    ROW(LIB_SECURITY_GetSSLCertKeyPath, pcCertPath, cert_location, 0x81000002, 7, 1, 1, nullptr, nullptr),
    ROW(SECURITY_SSL_ParseCommon, pcReadline, text_dump, kNoResult, nullptr, any, 8, any),
    ROW(LIB_SECURITY_GetCertInfo, pstSSLCertInfo, cert_info, 0x18000019, nullptr),
    ROW(LIB_SECURITY_GenAndRestartService, pstSSLCert, gen_and_restart, 0x1800001A, nullptr, any),
    ROW(SECURITY_SSL_UpdateImportTask, pcTaskAbnormalInfo, import_task, kNoResult, 1, 4, 100, nullptr),
    ROW(LIB_SECURITY_UploadAndRestartService, pstUploadParam, import_thread, 0x1800001B, nullptr, any),
    ROW(SECURITY_SSL_ImportServerCertThread, pParam, import_thread, kNoResult, nullptr),
};

// The client-authentication unit reports with its own module 31, sub-module 2.
const NullCase kAuthCases[] = {
    ROW(LIB_SSL_GetCertAuthState, pbState, auth_records, 0x18000001, nullptr),
    ROW(LIB_SSL_IsExistRootCert, pstRootCertInfo, auth_records, 0, 1, nullptr),
    ROW(LIB_SSL_SetCertAuthState, pstRespData, auth_state, 0x18000004, 1, 1, 1000, nullptr),
    ROW(LIB_SSL_ImportRootCert, pstLogOrigin, cert_import, 0x18000006, nullptr, any, 1000, any),
    ROW(LIB_SSL_GetConfCertPath, pcLineBuf, revoke_check, kNoResult, nullptr, 8, any),
    ROW(LIB_SSL_GetNamePwdBySerial, pcSerialNum, cert_login, 0x81000002, nullptr, 8, any, 8, any),
};
// clang-format on
#undef ROW

class NullArgsTest : public ControllerTest {};

TEST_F(NullArgsTest, EachPointerIsReportedByNameAndNothingIsDone) {
    const auto check = [](const NullCase &c, uint32_t module, uint32_t subModule) {
        SCOPED_TRACE(std::string(c.function) + " " + c.parameter);
        ClearDiagLog();
        EXPECT_EQ(c.call(), c.expected);
        const auto diags = ReadDiags();
        ASSERT_EQ(diags.size(), 1u) << testing::PrintToString(diags);
        const Diag &d = diags[0];
        EXPECT_EQ(d, (Diag{module, subModule, 7,
                           std::string("Pointer ") + c.parameter + " is Null, File:" + c.file +
                               " Func:" + c.function + " Line:" + std::to_string(d.line)}));
        EXPECT_EQ(d.file, c.file);
    };
    const auto logs = [] {
        return std::vector{ReadLines(BMCSIM_RPC_LOG), ReadLines(BMCSIM_OPERATE_LOG),
                           ReadLines(BMCSIM_TASKS_LOG)};
    };
    const auto logsBefore = logs();
    const uint64_t spawns = BMCSIM_SpawnCount();
    for (const NullCase &c : kServerCases)
        check(c, 0, 0);
    for (const NullCase &c : kAuthCases)
        check(c, 31, 2);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    EXPECT_EQ(logs(), logsBefore);
}

} // namespace
} // namespace bmctest
