// Internal declarations of the client-certificate authentication source
// unit (lib_ssl_auth).
#pragma once

#include <cstdint>
#include <cstring>
#include <iterator>
#include <type_traits>

#include "lib_ssl_auth.h"
#include "frame/frame.h"
#include "platform/controller_paths.h"
#include "platform/owner_protocol.h"

namespace bmccert::sslauth {

using namespace controller_paths;

inline constexpr uint32_t kDiagSubModule = 2;
inline constexpr uint32_t kNullReportModule = kDiagModule;
inline constexpr uint32_t kNullReportSubModule = kDiagSubModule;

// Management and internal codes of this unit.
inline constexpr uint32_t kMgmtStateRead = SSL_AUTH_MGMT_STATE_READ_FAILED;
inline constexpr uint32_t kMgmtRevokeRead = SSL_AUTH_MGMT_REVOKE_READ_FAILED;
inline constexpr uint32_t kMgmtQueryFailed = SSL_AUTH_MGMT_QUERY_FAILED;
inline constexpr uint32_t kMgmtIdOutOfRange = SSL_AUTH_MGMT_ID_OUT_OF_RANGE;

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

// The table that the user service fills (BMC_USER_TABLE_SIZE bytes, laid
// out as the platform header gives), each record holding a user's
// enciphered password. Allocated zero-filled
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
    // The sealed password of record k, as the user service's decryption
    // takes it; null for a record past the table.
    [[nodiscard]] const uint8_t *SealedPassword(uint32_t k) const noexcept;
    // Copies the name, cut to fit and terminated; never reads past the
    // record's 33-byte name field, terminated or not.
    void CopyName(uint32_t k, char *pcDst, size_t uiSize) const noexcept;

    // Fills a brief from record k: id, name, role and the role's name.
    void FillBrief(uint32_t k, CertUserBrief &brief) const noexcept;

  private:
    uint8_t *bytes_;
};

// ---- Calls to the daemon that owns the records (module 36) ---------------

// The published codes of a failed call are the platform's own.
static_assert(BMC_PLATFORM_ERR_1 == BMC_PLATFORM_RPC_FAIL);
static_assert(BMC_PLATFORM_ERR_2 == BMC_PLATFORM_RPC_TIMEOUT);

// Commands and request lengths of the owner's wire contract.
using owner_protocol::HasResponse;
using owner_protocol::OwnerCommand;
using owner_protocol::RequestLength;

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
inline constexpr BMC_ErrCodeMap CertAuthStateErrMap[] = {
    {owner_protocol::kRefusedCaInstall, SSL_AUTH_MGMT_CA_INSTALL_FAILED},
    {SSL_AUTH_ERR_ROOT_LIST_READ, SSL_AUTH_MGMT_ROOT_LIST_READ},
    {SSL_AUTH_ERR_ROOT_ABSENT, SSL_AUTH_MGMT_ROOT_ABSENT},
    {SSL_AUTH_ERR_ROOT_EXPIRED, SSL_AUTH_MGMT_ROOT_EXPIRED},
};

// ---- Certificate import ----------------------------------------------------

// 0 when the file name (the text after the path's last "/") may be
// imported: at most 32 characters, ending in ".cer", ".crt" or ".pem",
// none of the characters the import refuses. Otherwise an internal code.
[[nodiscard]] uint32_t SSL_IsValidFileName(const char *pcFilePath);

// Internal codes of the imports and deletions to management codes; the
// two differ only in the code of a failed transport.
inline constexpr BMC_ErrCodeMap RootCertErrMap[] = {
    {SSL_AUTH_ERR_FILE_NAME_LONG, SSL_AUTH_MGMT_FILE_NAME_LONG},
    {SSL_AUTH_ERR_FILE_NAME_CHAR, SSL_AUTH_MGMT_FILE_NAME_CHAR},
    {SSL_AUTH_ERR_FILE_NAME_EXT, SSL_AUTH_MGMT_FILE_NAME_EXT},
    {owner_protocol::kRefusedListFull, SSL_AUTH_MGMT_LIST_FULL},
    {owner_protocol::kRefusedInUse, SSL_AUTH_MGMT_CERT_IN_USE},
    {BMC_PLATFORM_ERR_1, SSL_AUTH_MGMT_ROOT_CALL_FAILED},
    {BMC_PLATFORM_ERR_2, SSL_AUTH_MGMT_ROOT_CALL_FAILED},
    {owner_protocol::kRefusedBadCertificate, SSL_AUTH_MGMT_CERT_REFUSED},
    {SSL_AUTH_ERR_CERT_ABSENT, SSL_AUTH_MGMT_CERT_ABSENT},
};
inline constexpr BMC_ErrCodeMap CliCertErrMap[] = {
    {SSL_AUTH_ERR_FILE_NAME_LONG, SSL_AUTH_MGMT_FILE_NAME_LONG},
    {SSL_AUTH_ERR_FILE_NAME_CHAR, SSL_AUTH_MGMT_FILE_NAME_CHAR},
    {SSL_AUTH_ERR_FILE_NAME_EXT, SSL_AUTH_MGMT_FILE_NAME_EXT},
    {owner_protocol::kRefusedListFull, SSL_AUTH_MGMT_LIST_FULL},
    {owner_protocol::kRefusedInUse, SSL_AUTH_MGMT_CERT_IN_USE},
    {BMC_PLATFORM_ERR_1, SSL_AUTH_MGMT_CLIENT_CALL_FAILED},
    {BMC_PLATFORM_ERR_2, SSL_AUTH_MGMT_CLIENT_CALL_FAILED},
    {owner_protocol::kRefusedBadCertificate, SSL_AUTH_MGMT_CERT_REFUSED},
    {SSL_AUTH_ERR_CERT_ABSENT, SSL_AUTH_MGMT_CERT_ABSENT},
};
// The maps of the certificate imports and deletions share one shape.
using CertErrMap = decltype(RootCertErrMap);
static_assert(std::is_same_v<CertErrMap, decltype(CliCertErrMap)>);

// ---- Command lines ---------------------------------------------------------

// Writes value as one single-quoted shell word ('...', a quote inside as
// '\''), so that the shell passes it on without interpreting anything.
// False when the quoted word does not fit in size bytes (nothing usable is
// written then).
[[nodiscard]] bool SSL_ShellQuote(const char *value, char *out, size_t size);

} // namespace bmccert::sslauth
