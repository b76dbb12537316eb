// The outcome of a management call as the operation log would show it.
#pragma once

#include <cstdint>

#include "lib_security_sslcert.h"

namespace bmccert::cli {

// The description on stdout (or as {"operation": ...}) on success; on a
// failure the description and the code on stderr. Returns the exit status.
[[nodiscard]] int Described(uint32_t result, const OperateDesc &desc, bool json);

} // namespace bmccert::cli
