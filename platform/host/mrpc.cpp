// Remote procedure calls. The transport checks what a real one would refuse
// (unknown module or command, a request of the wrong length, no time to
// wait), hands the call to the daemon of its module and logs every call with its request bytes and
// result in rpc.log.
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "peer_daemons.h"
#include "sim_log.h"

namespace {

constexpr uint32_t kLoggedMax = 4096;

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
    if (request == nullptr || !bmcsim::PeerTakes(module, command, length))
        return BMC_PLATFORM_RPC_FAIL;
    if (waitLimit == 0) return BMC_PLATFORM_RPC_TIMEOUT;

    std::vector<uint8_t> payload;
    const uint32_t result = bmcsim::DeliverToPeer(command, request, payload);
    if (result != 0 || payload.empty() || response == nullptr) return result;
    auto *bytes = new (std::nothrow) uint8_t[payload.size()];
    auto *message = new (std::nothrow) MRPC_Msg{bytes, static_cast<uint32_t>(payload.size())};
    if (bytes == nullptr || message == nullptr) {
        delete[] bytes;
        delete message;
        return result; // done, but without an answer to give back
    }
    std::memcpy(bytes, payload.data(), payload.size());
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
        result = BMC_PLATFORM_RPC_FAIL;
    }
    LogCall(uiModule, uiCommand, uiReqLen, pReq, uiWaitLimit, result);
    return static_cast<int32_t>(result);
}

extern "C" void MRPC_MsgFree(MRPC_Msg **ppstResp) {
    if (ppstResp == nullptr || *ppstResp == nullptr) return;
    delete[] static_cast<uint8_t *>((*ppstResp)->pPayload);
    delete *ppstResp;
    *ppstResp = nullptr;
}
