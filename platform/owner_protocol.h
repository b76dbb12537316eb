// The wire contract with the daemon that owns the client-authentication
// records: remote procedure calls of module 36, one command per change, each
// with a request record of an exact length (the records are the library's
// published ones), and the codes with which the owner refuses a change. The
// library sends these calls; the owner's stand-in answers them.
#pragma once

#include <cstdint>

#include "lib_ssl_auth.h"

namespace owner_protocol {

inline constexpr uint32_t kModule = SSL_AUTH_RPC_MODULE;

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

// The exact request length of each command; 0 for a number that is none.
[[nodiscard]] constexpr uint32_t RequestLength(OwnerCommand command) {
    switch (command) {
    case OwnerCommand::SetAuthState:
        return sizeof(CertAuthStateReq);
    case OwnerCommand::SetRevokeCheck:
        return 1; // the new on/off byte
    case OwnerCommand::ImportRoot:
        return sizeof(RootCertImportReq);
    case OwnerCommand::ImportClient:
        return sizeof(CliCertImportReq);
    case OwnerCommand::BindUser:
    case OwnerCommand::UntieUser:
        return sizeof(CertUserReq);
    case OwnerCommand::DeleteClient:
    case OwnerCommand::DeleteRoot:
        return sizeof(uint32_t); // the certificate id
    }
    return 0;
}

// Only the imports answer: with the TaskHandle of the import's task.
[[nodiscard]] constexpr bool HasResponse(OwnerCommand command) {
    return command == OwnerCommand::ImportRoot || command == OwnerCommand::ImportClient;
}

// The owner's refusals. A transport failure comes from the platform instead
// (BMC_PLATFORM_ERR_1, and BMC_PLATFORM_ERR_2 for a wait limit of 0).
inline constexpr uint32_t kRefusedBadCertificate = 0x92000002u; // unreadable, not PEM, expired
inline constexpr uint32_t kRefusedListFull = 0x92000017u;
inline constexpr uint32_t kRefusedInUse = 0x92000018u; // bound, in force, or issuer of clients
inline constexpr uint32_t kRefusedAbsent = SSL_AUTH_ERR_CERT_ABSENT;
inline constexpr uint32_t kRefusedRootExpired = SSL_AUTH_ERR_ROOT_EXPIRED;
inline constexpr uint32_t kRefusedRootAbsent = SSL_AUTH_ERR_ROOT_ABSENT;
inline constexpr uint32_t kRefusedCaInstall = 0x92000025u; // the web server's authority

} // namespace owner_protocol
