// The one place that talks to the daemon owning the client-authentication
// records: module 36, the request's exact length, the caller's wait limit,
// and, for the two imports, a response that is always given back.
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

// The response of a call, handed back to the transport on every path.
class OwnerResponse {
  public:
    OwnerResponse() = default;
    OwnerResponse(const OwnerResponse &) = delete;
    OwnerResponse &operator=(const OwnerResponse &) = delete;
    ~OwnerResponse() { MRPC_MsgFree(&message_); }

    [[nodiscard]] MRPC_Msg **Address() noexcept { return &message_; }
    // Copies the task handle that heads the payload, when there is one.
    void CopyTask(TaskHandle &task) const noexcept {
        if (message_ == nullptr || message_->pPayload == nullptr) return;
        if (message_->uiPayloadLen < sizeof task) return;
        std::memcpy(&task, message_->pPayload, sizeof task);
    }

  private:
    MRPC_Msg *message_ = nullptr;
};

} // namespace

uint32_t SSL_CallOwner(OwnerCommand command, const void *pRequest, uint32_t uiRequestLen,
                       uint32_t uiWaitLimit, TaskHandle *pstTask) {
    const auto commandNumber = static_cast<uint32_t>(command);
    if (!HasResponse(command)) {
        return static_cast<uint32_t>(MRPC_Call(owner_protocol::kModule, commandNumber, uiRequestLen,
                                               pRequest, uiWaitLimit, nullptr));
    }
    OwnerResponse response;
    const auto result =
        static_cast<uint32_t>(MRPC_Call(owner_protocol::kModule, commandNumber, uiRequestLen,
                                        pRequest, uiWaitLimit, response.Address()));
    if (result == 0 && pstTask != nullptr) response.CopyTask(*pstTask);
    return result;
}

} // namespace bmccert::sslauth
