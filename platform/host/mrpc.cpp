// Remote procedure calls of module 36 to the record owner. The transport
// checks what a real one would refuse (unknown module or command, a request
// of the wrong length, no time to wait), hands the request to the owner and
// logs every call with its request bytes and result in rpc.log.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "record_owner.h"
#include "sim_log.h"

namespace {

constexpr uint32_t kOwnerModule = 36;
constexpr uint32_t kLoggedMax = 4096;

[[nodiscard]] uint32_t ExpectedLength(uint32_t command) {
    switch (command) {
    case 40:
        return sizeof(CertAuthStateReq);
    case 41:
        return 1;
    case 42:
        return sizeof(RootCertImportReq);
    case 43:
        return sizeof(CliCertImportReq);
    case 44:
    case 45:
        return sizeof(CertUserReq);
    case 46:
    case 47:
        return sizeof(uint32_t);
    default:
        return 0;
    }
}

void LogCall(uint32_t module, uint32_t command, uint32_t length, const void *request,
             uint32_t waitLimit, uint32_t result) {
    try {
        char head[80];
        (void)std::snprintf(head, sizeof head, "%u\t%u\t%u\t%u\t", module, command, length,
                            waitLimit);
        std::string line = head;
        // The transport reads what the caller says it sent; the log keeps
        // at most the first kLoggedMax bytes of a request that large.
        if (request != nullptr)
            bmcsim::AppendHex(line, request, length < kLoggedMax ? length : kLoggedMax);
        char tail[16];
        (void)std::snprintf(tail, sizeof tail, "\t0x%08X", result);
        line += tail;
        bmcsim::AppendLogLine(BMCSIM_RPC_LOG, std::move(line));
    } catch (...) {
        // logging never changes a call's outcome
    }
}

[[nodiscard]] uint32_t Deliver(uint32_t module, uint32_t command, uint32_t length,
                               const void *request, uint32_t waitLimit, MRPC_Msg **response) {
    if (auto fault = bmcsim::InjectedFault("MRPC_Call")) return *fault;
    if (auto fault = bmcsim::InjectedFault("MRPC_Call", command)) return *fault;
    const uint32_t expected = ExpectedLength(command);
    if (module != kOwnerModule || expected == 0 || length != expected || request == nullptr)
        return bmcsim::owner::kPlatformFail;
    if (waitLimit == 0) return bmcsim::owner::kPlatformTimeout;

    TaskHandle task{};
    bool answered = false;
    const uint32_t result = bmcsim::owner::Apply(command, request, task, answered);
    if (result != 0 || !answered || response == nullptr) return result;
    auto *payload = new (std::nothrow) TaskHandle(task);
    auto *message = new (std::nothrow) MRPC_Msg{payload, sizeof *payload};
    if (payload == nullptr || message == nullptr) {
        delete payload;
        delete message;
        return result; // done, but without a handle to give back
    }
    *response = message;
    return result;
}

} // namespace

extern "C" int32_t MRPC_Call(uint32_t uiModule, uint32_t uiCommand, uint32_t uiReqLen,
                             const void *pReq, uint32_t uiWaitLimit, MRPC_Msg **ppstResp) {
    uint32_t result;
    try {
        result = Deliver(uiModule, uiCommand, uiReqLen, pReq, uiWaitLimit, ppstResp);
    } catch (...) {
        result = bmcsim::owner::kPlatformFail;
    }
    LogCall(uiModule, uiCommand, uiReqLen, pReq, uiWaitLimit, result);
    return static_cast<int32_t>(result);
}

extern "C" void MRPC_MsgFree(MRPC_Msg **ppstResp) {
    if (ppstResp == nullptr || *ppstResp == nullptr) return;
    delete static_cast<TaskHandle *>((*ppstResp)->pPayload);
    delete *ppstResp;
    *ppstResp = nullptr;
}
