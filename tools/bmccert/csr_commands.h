// Keys born on the controller: the signing request, the CA's answer, and a
// self-signed certificate with names.
#pragma once

#include <string>

#include "csr_request.h"

namespace bmccert::cli {

// A new key and its signing request; the PEM to stdout, or to outPath when
// it is not empty.
[[nodiscard]] int RunCsr(const GenerateOptions &subject, const KeyType &key,
                         const AltNameOptions &names, const std::string &outPath);
// The pending request (with its PEM when pem is set).
[[nodiscard]] int RunShowCsr(bool pem, bool json);
// Drops the pending key and its request.
[[nodiscard]] int RunDropCsr();
// Installs a CA's answer to the pending request as a task and follows it.
[[nodiscard]] int RunInstallSigned(const std::string &certPath, bool json);
// Checks a CA's answer without installing it.
[[nodiscard]] int RunCheckSigned(const std::string &certPath, bool json);
// A self-signed certificate of the key type with names, installed, and the
// services restarted.
[[nodiscard]] int RunGenerateWithNames(const GenerateOptions &subject, const KeyType &key,
                                       const AltNameOptions &names, bool json);

} // namespace bmccert::cli
