// The diagnostic identity of the enrolment's flows.
#pragma once

#include <cstdint>

namespace bmccert::acme {

inline constexpr uint32_t kDiagSubModule = 4;
inline constexpr uint32_t kNullReportModule = 0;
inline constexpr uint32_t kNullReportSubModule = 0;

} // namespace bmccert::acme
