// The forms in which CAs hand out an answer: PEM certificates, one PEM
// "PKCS7" block, one DER certificate (.cer) or DER PKCS#7 (.p7b, .p7c).
#pragma once

#include <string_view>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {

// The answer's certificates, leaf first: PEM certificates in the order
// given; the certificates of a PKCS#7 bundle, which carries no order,
// ordered leaf first by their issuer names. 0 or, after a report,
// SSLCERT_EXT_ERR_SIGNED_NOT_PEM (another form: the report says how to
// convert it), _CHAIN_TOO_LONG, or _CHAIN_ORDER (a bundle that is not one
// chain). The size limit is the caller's to check first.
[[nodiscard]] uint32_t ReadAnswerCertificates(std::string_view bytes, CertChain &chain);

} // namespace bmccert::sslcert
