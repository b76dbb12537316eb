#include "subcommands.h"

#include <string>

#include "answer_leaf.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"

namespace bmccert::cli {
namespace {

int Pin(const std::string &path) {
    std::string pem;
    if (!ReadCertFile(path, pem))
        return ReportFailure("cannot read " + path, SSLCERT_EXT_ERR_PIN_BAD);
    const uint32_t result =
        LIB_SECURITY_SSL_SetPinnedCA(pem.data(), static_cast<uint32_t>(pem.size()));
    if (result != SSLCERT_OK)
        return ReportFailure("CA not pinned: " + ResultMeaning(result), result);
    return WriteResult("pinned: signed answers must now chain to this CA\n");
}

int Show() {
    std::string pem(SSLCERT_EXT_SIGNED_MAX_BYTES + 1, '\0');
    const uint32_t result =
        LIB_SECURITY_SSL_GetPinnedCA(pem.data(), static_cast<uint32_t>(pem.size()));
    if (result != SSLCERT_OK) return ReportFailure(ResultMeaning(result), result);
    return WriteResult(pem.c_str());
}

int Unpin() {
    const uint32_t result = LIB_SECURITY_SSL_ClearPinnedCA();
    if (result != SSLCERT_OK)
        return ReportFailure("pin not removed: " + ResultMeaning(result), result);
    return WriteResult("no CA pinned\n");
}

} // namespace

void AddCaCommands(CLI::App &app, int &status) {
    const Subcommands commands(status);
    CLI::App *ca = app.add_subcommand("ca", "The CA that signed answers must chain to");
    ca->require_subcommand(1);
    static std::string pinPath;
    commands
        .Add(*ca, "pin", "Pin a root CA (PEM file) for signed answers", [] { return Pin(pinPath); })
        ->add_option("FILE", pinPath, "PEM file of one self-signed CA certificate")
        ->required();
    commands.Add(*ca, "show", "Print the pinned CA's PEM", [] { return Show(); });
    commands.Add(*ca, "unpin", "Remove the pin", [] { return Unpin(); });
}

} // namespace bmccert::cli
