// The subcommands that main registers: one library call each, or a few;
// every one returns the exit status of the tool.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "csr_request.h"
#include "gen_request.h"

namespace bmccert::cli {

// What the certificate in force is.
[[nodiscard]] int RunType(bool json);
[[nodiscard]] int RunPaths(uint32_t type, bool json);
[[nodiscard]] int RunInfo(bool json);
[[nodiscard]] int RunDaysLeft(bool json);
[[nodiscard]] int RunRefresh();
// The name and meaning of a result code, given as the tool prints it
// (hexadecimal) or as the diagnostics log does (signed decimal, also after
// "iRet="). Needs no controller.
[[nodiscard]] int RunExplain(std::string_view codeText);

// What changes the certificate in force: generate, verify the generated
// temporary certificate, install an existing pair.
[[nodiscard]] int RunGenerate(const GenerateOptions &options, bool json);
[[nodiscard]] int RunVerify(bool json);
[[nodiscard]] int RunInstall(const std::string &certPath, const std::string &keyPath);
// Settles an interrupted installation: the whole new set or the previous
// one, and says which; with restart the services restart after it.
[[nodiscard]] int RunRecover(bool restart);

// Keys born on the controller. A new key and its signing request; the PEM
// to stdout, or to outPath when it is not empty.
[[nodiscard]] int RunCsr(const GenerateOptions &subject, const KeyType &key,
                         const AltNameOptions &names, const std::string &outPath);
// The pending request (with its PEM when pem is set).
[[nodiscard]] int RunShowCsr(bool pem, bool json);
// Drops the pending key and its request.
[[nodiscard]] int RunDropCsr();
// Installs a CA's answer to the pending request as a task and follows it.
[[nodiscard]] int RunInstallSigned(const std::string &certPath, bool json);
// The request of the options, or the exit status of their refusal (asked
// of the library once, so that the diagnostic is written once).
[[nodiscard]] std::optional<int> BuildRequest(const GenerateOptions &subject, const KeyType &key,
                                              const AltNameOptions &names, bool selfSigned,
                                              SSLCertRequest &request);
// An ACME order for the request of the options, stored as the enrolment's
// request (enable: renewed by `acme renew --if-due` from then on), followed
// to its installation.
[[nodiscard]] int RunAcmeOrder(const GenerateOptions &subject, const KeyType &key,
                               const AltNameOptions &names, bool enable, bool json);
// `acme register|status|deactivate|roll-key|renew`; main adds `order`.
CLI::App *AddAcmeCommands(CLI::App &app, int &status, bool &json);
// Checks a CA's answer without installing it.
[[nodiscard]] int RunCheckSigned(const std::string &certPath, bool json);
// A self-signed certificate of the key type with names, installed, and the
// services restarted.
[[nodiscard]] int RunGenerateWithNames(const GenerateOptions &subject, const KeyType &key,
                                       const AltNameOptions &names, bool json);

// `bmccert check`: whether the controller serves the certificate in force
// and whether that certificate, its key and the trusted and client
// certificates are fit. One finding per line (or one JSON object); the
// exit status is 1 when a finding is a fault, else 0.
struct CheckOptions {
    std::optional<int> tunnelPort; // else from the tunnel's configuration
    std::optional<int> webPort;    // else from the web server's configuration
    bool json = false;
};
[[nodiscard]] int RunCheck(const CheckOptions &options);

} // namespace bmccert::cli
