// The transport settings an enrolment's settings give, and the checks of
// the settings an operator stores.
#pragma once

#include "acme/http_client.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::acme {

[[nodiscard]] HttpSettings TransportOf(const SSLAcmeEnrollment &settings);
// 0, or the code of the first setting refused, after a diagnostic naming it.
[[nodiscard]] uint32_t CheckSettings(const SSLAcmeEnrollment &settings);

} // namespace bmccert::acme
