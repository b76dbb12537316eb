// bmccert: the controller's server certificate from the command line.
#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>

#include "auth_commands.h"
#include "cert_type.h"
#include "commands.h"
#include "output.h"

namespace {

using namespace bmccert::cli;

[[nodiscard]] CLI::Validator CertTypeValidator() {
    return CLI::Validator(
        [](std::string &text) -> std::string {
            if (ParseCertType(text)) return {};
            return "not a decimal number 0..4294967295: '" + text + "'";
        },
        "", "certificate type");
}

void AddJsonFlag(CLI::App &command, bool &json) {
    command.add_flag("--json", json, "Print the result as one JSON object");
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Server certificate of the management controller", "bmccert"};
    app.set_version_flag("--version", BMCCERT_VERSION);
    app.require_subcommand(1);

    int status = kExitOk;
    bool json = false;

    CLI::App *type = app.add_subcommand("type", "Print the type of the certificate in force");
    AddJsonFlag(*type, json);
    type->callback([&] { status = RunType(json); });

    std::string typeText;
    CLI::App *paths =
        app.add_subcommand("paths", "Print the certificate and key file paths of a type");
    paths->add_option("TYPE", typeText, "Certificate type code (0..6 are defined)")
        ->type_name("NUMBER")
        ->required()
        ->check(CertTypeValidator());
    AddJsonFlag(*paths, json);
    paths->callback([&] {
        // The validator has accepted the text, so it parses.
        status = RunPaths(ParseCertType(typeText).value_or(0), json);
    });

    CLI::App *info =
        app.add_subcommand("info", "Print the information record of the certificate in force");
    AddJsonFlag(*info, json);
    info->callback([&] { status = RunInfo(json); });

    CLI::App *daysLeft = app.add_subcommand(
        "days-left", "Print the whole days until the certificate in force expires");
    AddJsonFlag(*daysLeft, json);
    daysLeft->callback([&] { status = RunDaysLeft(json); });

    CLI::App *refresh = app.add_subcommand(
        "refresh", "Re-read the certificate in force from its files and store its record");
    refresh->callback([&] { status = RunRefresh(); });

    AddAuthCommands(app, status);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        // Help and version end the parse with a success code; every other
        // parse error is a usage error.
        const int code = app.exit(error);
        return code == 0 ? kExitOk : kExitUsage;
    }
    return status;
}
