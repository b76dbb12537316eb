// Internal declarations of the client-certificate authentication source
// unit (lib_ssl_auth).
#pragma once

#include <cstdint>
#include <cstring>

#include "lib_ssl_auth.h"
#include "sslcert/frame.h"

namespace bmccert::sslauth {

inline constexpr uint32_t kDiagSubModule = 2;
inline constexpr uint32_t kNullReportModule = kDiagModule;
inline constexpr uint32_t kNullReportSubModule = kDiagSubModule;

// Management and internal codes of this unit.
inline constexpr uint32_t kMgmtStateRead = 0x18000001;
inline constexpr uint32_t kMgmtRevokeRead = 0x18000002;
inline constexpr uint32_t kMgmtQueryFailed = 0x18000003;
inline constexpr uint32_t kMgmtIdOutOfRange = 0x18000603;
inline constexpr uint32_t kMgmtCertAbsent = 0x1800060F;

// True when the id names no slot of a list of the given length (ids 1..n).
[[nodiscard]] constexpr bool IdOutOfRange(uint32_t id, uint32_t slots) {
    return id - 1u > slots - 1u;
}

// The working copy of a record: zero-filled before it is read.
template <typename Record> [[nodiscard]] Record ZeroedRecord() noexcept {
    Record record;
    std::memset(&record, 0, sizeof record);
    return record;
}

// ---- The controller's user table ------------------------------------------

// The 12120-byte table that the user service fills: 16 records of 756
// bytes, each holding a user's enciphered password. Allocated zero-filled
// per use and wiped before it is freed, so no password outlives the call.
class UserTable {
  public:
    UserTable() noexcept;
    UserTable(const UserTable &) = delete;
    UserTable &operator=(const UserTable &) = delete;
    ~UserTable();

    // False when the allocation failed.
    [[nodiscard]] bool Allocated() const noexcept { return bytes_ != nullptr; }
    [[nodiscard]] void *Data() noexcept { return bytes_; }

    // Fields of record k (0..15), the record of user id k + 1.
    [[nodiscard]] uint8_t UserId(uint32_t k) const noexcept;
    [[nodiscard]] uint8_t PrivRole(uint32_t k) const noexcept;
    // Copies the name, cut to fit and terminated; never reads past the
    // record's 33-byte name field, terminated or not.
    void CopyName(uint32_t k, char *pcDst, size_t uiSize) const noexcept;

    // Fills a brief from record k: id, name, role and the role's name.
    void FillBrief(uint32_t k, CertUserBrief &brief) const noexcept;

  private:
    uint8_t *bytes_;
};

// ---- Calls to the daemon that owns the records (module 36) ---------------

enum class OwnerCommand : uint32_t {
    SetAuthState = 40,
    SetRevokeCheck = 41,
    ImportRoot = 42,
    ImportClient = 43,
    BindUser = 44,
    UntieUser = 45,
    DeleteClient = 46,
    DeleteRoot = 47,
};

// The exact request length of each command.
[[nodiscard]] constexpr uint32_t RequestLength(OwnerCommand command) {
    switch (command) {
    case OwnerCommand::SetAuthState:
        return sizeof(CertAuthStateReq);
    case OwnerCommand::SetRevokeCheck:
        return 1;
    case OwnerCommand::ImportRoot:
        return sizeof(RootCertImportReq);
    case OwnerCommand::ImportClient:
        return sizeof(CliCertImportReq);
    case OwnerCommand::BindUser:
    case OwnerCommand::UntieUser:
        return sizeof(CertUserReq);
    case OwnerCommand::DeleteClient:
    case OwnerCommand::DeleteRoot:
        return sizeof(uint32_t);
    }
    return 0;
}

// Sends one command. Only the imports get a response: when pstTask is given
// and the owner answered with one, the task's handle is copied into it. The
// response is given back on every path. Returns 0 or the call's failure code.
[[nodiscard]] uint32_t SSL_CallOwner(OwnerCommand command, const void *pRequest,
                                     uint32_t uiRequestLen, uint32_t uiWaitLimit,
                                     TaskHandle *pstTask);

// Typed form: the request's size is checked against the command at compile
// time.
template <OwnerCommand Command, typename Request>
[[nodiscard]] uint32_t CallOwner(const Request &request, uint32_t waitLimit,
                                 TaskHandle *task = nullptr) {
    static_assert(sizeof(Request) == RequestLength(Command), "request length of the command");
    return SSL_CallOwner(Command, &request, sizeof request, waitLimit, task);
}

// ---- Checks shared by the state switches ----------------------------------

// 0 when the root certificate's validity has not ended (an expiry equal to
// the current second still counts as valid); otherwise an internal code.
[[nodiscard]] uint32_t SSL_CheckRootCertValidPeriod(uint32_t uiRootCertId);

// Internal codes of the authentication switch to management codes.
extern const BMC_ErrCodeMap CertAuthStateErrMap[4];

// ---- Certificate import ----------------------------------------------------

// 0 when the file name (the text after the path's last "/") may be
// imported: at most 32 characters, ending in ".cer", ".crt" or ".pem",
// none of the characters the import refuses. Otherwise an internal code.
[[nodiscard]] uint32_t SSL_IsValidFileName(const char *pcFilePath);

// Internal codes of the imports and deletions to management codes.
extern const BMC_ErrCodeMap RootCertErrMap[9];
extern const BMC_ErrCodeMap CliCertErrMap[9];

// ---- Command lines ---------------------------------------------------------

// Writes value as one single-quoted shell word ('...', a quote inside as
// '\''), so that the shell passes it on without interpreting anything.
// False when the quoted word does not fit in size bytes (nothing usable is
// written then).
[[nodiscard]] bool SSL_ShellQuote(const char *value, char *out, size_t size);

} // namespace bmccert::sslauth
