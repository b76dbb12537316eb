// bmccert: the controller's server certificate from the command line.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include "cert_type.h"
#include "commands.h"
#include "upload_commands.h"
#include "output.h"
#include "subcommands.h"

namespace {

using namespace bmccert::cli;

[[nodiscard]] CLI::Validator CertTypeValidator() {
    return CLI::Validator(
        [](std::string &text) -> std::string {
            if (ParseUnsignedDecimal(text)) return {};
            return "not a decimal number 0..4294967295: '" + text + "'";
        },
        "", "certificate type");
}

[[nodiscard]] CLI::Validator KeyTypeValidator() {
    return CLI::Validator(
        [](std::string &text) -> std::string {
            if (ParseKeyType(text)) return {};
            return "not a key type (" + std::string(kKeyTypeNames) + "): '" + text + "'";
        },
        "", "key type");
}

// The seven texts of a request, as generate and csr take them.
std::vector<CLI::Option *> AddSubjectOptions(CLI::App &command, GenerateOptions &request) {
    return {command.add_option("--cn", request.commonName, "Common name"),
            command.add_option("--org", request.organisation, "Organisation"),
            command.add_option("--ou", request.organisationUnit, "Organisational unit"),
            command.add_option("--locality", request.locality, "Locality"),
            command.add_option("--state", request.state, "State or province"),
            command.add_option("--country", request.country, "Two-letter country code"),
            command.add_option("--email", request.email, "E-mail address")};
}

std::vector<CLI::Option *> AddNameOptions(CLI::App &command, AltNameOptions &names) {
    return {command.add_option("--dns", names.dns, "Host name to certify (repeatable)")
                ->type_name("NAME")
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll),
            command.add_option("--ip", names.ip, "IP address to certify (repeatable)")
                ->type_name("ADDRESS")
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)};
}

// The first of the request's options that was not given, for a usage error.
std::optional<std::string> MissingOption(const std::vector<CLI::Option *> &options) {
    for (const CLI::Option *option : options)
        if (option->count() == 0) return option->get_name();
    return std::nullopt;
}

// The tool answers only on a controller (or in a sandboxed one): elsewhere
// the library would read nothing and report "no certificate", and the
// platform stand-in would make its state directory on the workstation.
[[nodiscard]] bool RequireController() {
    if (::access("/conf/certs", F_OK) == 0) return true;
    std::fputs("bmccert: /conf/certs does not exist: this is not a controller.\n"
               "Run the tool in a sandboxed controller instead: "
               "bmc-sandbox ROOT -- bmccert SUBCOMMAND ...\n",
               stderr);
    return false;
}

[[nodiscard]] bool IsSubcommand(const CLI::App &app, const char *name) {
    return !app.get_subcommands([name](const CLI::App *sub) { return sub->check_name(name); })
                .empty();
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Server certificate of the management controller", "bmccert"};
#if BMCCERT_HOST_TOOL
    app.footer("This is a host build, over the platform stand-in: upload, install-signed and the "
               "imports follow their task to its end and print its operation-log line, and "
               "`tasks` lists the tasks. A controller build (BMCCERT_PLATFORM=system) reports the "
               "task it started instead and has no `tasks`; bmc-sim exists only in host builds.");
#else
    app.footer("This is a controller build: upload, install-signed and the imports report the "
               "task they start and wait for its thread; its outcome is in the controller's task "
               "service and operation log. Following a task to its end, the operation-log line, "
               "`tasks` and bmc-sim exist only in host builds.");
#endif
    app.set_version_flag("--version", BMCCERT_VERSION);
    app.require_subcommand(1);

    int status = kExitOk;
    bool json = false;
    const Subcommands commands(status, &json, "Print the result as one JSON object");

    commands.AddJson(app, "type", "Print the type of the certificate in force",
                     [&] { return RunType(json); });

    std::string typeText;
    CLI::App *paths =
        commands.AddJson(app, "paths", "Print the certificate and key file paths of a type", [&] {
            // The validator has accepted the text, so it parses.
            return RunPaths(ParseUnsignedDecimal(typeText).value_or(0), json);
        });
    paths->add_option("TYPE", typeText, "Certificate type code (0..6 are defined)")
        ->type_name("NUMBER")
        ->required()
        ->check(CertTypeValidator());

    commands.AddJson(app, "info", "Print the information record of the certificate in force",
                     [&] { return RunInfo(json); });
    commands.AddJson(app, "days-left",
                     "Print the whole days until the certificate in force expires",
                     [&] { return RunDaysLeft(json); });
    commands.Add(app, "refresh",
                 "Re-read the certificate in force from its files and store its record",
                 [] { return RunRefresh(); });

    GenerateOptions request;
    std::string generateKey;
    AltNameOptions generateNames;
    CLI::Option *generateKeyOption = nullptr;
    CLI::App *generate = commands.Add(
        app, "generate", "Generate a self-signed certificate, install it and restart the services",
        [&] {
            if (generateKeyOption->count() == 0 && generateNames.dns.empty() &&
                generateNames.ip.empty())
                return RunGenerate(request, json);
            // With a key type or names the extension generates; without --key
            // the key is the published path's RSA key of --key-length.
            const auto key = generateKeyOption->count() != 0
                                 ? ParseKeyType(generateKey)
                                 : ParseKeyType("rsa" + std::to_string(request.keyLength));
            if (!key) {
                std::fprintf(stderr,
                             "bmccert: --key-length refused: with --dns or --ip give --key "
                             "(%s)\n",
                             std::string(kKeyTypeNames).c_str());
                return kExitUsage;
            }
            return RunGenerateWithNames(request, *key, generateNames, json);
        });
    // A later option wins, so that a script can override a field it set.
    generate->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    for (CLI::Option *option : AddSubjectOptions(*generate, request))
        option->required();
    CLI::Option *keyLength =
        generate->add_option("--key-length", request.keyLength, "RSA key length: 1024 or 2048")
            ->capture_default_str();
    generate->add_option("--days", request.validDays, "Days of validity: 1 to 5475")
        ->capture_default_str();
    generate->add_flag("--force", request.force,
                       "Generate a 1024-bit key although TLS stacks at security level 2 refuse it");
    generateKeyOption =
        generate
            ->add_option("--key", generateKey,
                         "Key type for a certificate with names: " + std::string(kKeyTypeNames))
            ->check(KeyTypeValidator())
            ->excludes(keyLength);
    AddNameOptions(*generate, generateNames);
    commands.AddJsonFlag(*generate);

    GenerateOptions csrSubject;
    std::string csrKey = "p256";
    AltNameOptions csrNames;
    std::string csrOut;
    bool csrShow = false;
    bool csrDrop = false;
    bool csrPem = false;
    std::vector<CLI::Option *> csrSubjectOptions;
    CLI::App *csr = commands.Add(
        app, "csr",
        "Make a new key on the controller and its signing request for a CA; or --show the pending "
        "one",
        [&] {
            if (csrDrop) return RunDropCsr();
            if (csrShow) return RunShowCsr(csrPem, json);
            if (const auto missing = MissingOption(csrSubjectOptions)) {
                std::fprintf(stderr, "bmccert: csr: %s is required (or --show)\n",
                             missing->c_str());
                return kExitUsage;
            }
            // The validator has accepted the type, so it parses.
            return RunCsr(csrSubject, ParseKeyType(csrKey).value_or(KeyType{}), csrNames, csrOut);
        });
    csr->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    csrSubjectOptions = AddSubjectOptions(*csr, csrSubject);
    std::vector<CLI::Option *> csrRequest = csrSubjectOptions;
    csrRequest.push_back(csr->add_option("--key", csrKey, "Key type: " + std::string(kKeyTypeNames))
                             ->check(KeyTypeValidator())
                             ->capture_default_str());
    for (CLI::Option *option : AddNameOptions(*csr, csrNames))
        csrRequest.push_back(option);
    csrRequest.push_back(csr->add_option("--out", csrOut, "Write the PEM to FILE instead of stdout")
                             ->type_name("FILE"));
    CLI::Option *show =
        csr->add_flag("--show", csrShow, "Print the pending request instead of making one");
    CLI::Option *drop =
        csr->add_flag("--drop", csrDrop,
                      "Drop the pending key and its request: no answer to it can be installed");
    // Showing and dropping take none of a new request's options, nor each other.
    for (CLI::Option *option : csrRequest) {
        show->excludes(option);
        drop->excludes(option);
    }
    drop->excludes(show);
    csr->add_flag("--pem", csrPem, "With --show: print the request's PEM too")->needs(show);
    csr->add_flag("--json", json, "With --show: print one JSON object")->needs(show);

    std::string signedCert;
    commands
        .AddJson(app, "install-signed",
                 "Install a CA's answer to the pending signing request as a task and wait for its "
                 "outcome",
                 [&] { return RunInstallSigned(signedCert, json); })
        ->add_option("FILE", signedCert,
                     "The answer: PEM (the signed certificate, then its chain), DER or PKCS#7")
        ->required();
    commands
        .AddJson(app, "check-signed",
                 "Check a CA's answer to the pending signing request without installing it",
                 [&] { return RunCheckSigned(signedCert, json); })
        ->add_option("FILE", signedCert, "The answer: PEM, DER or PKCS#7")
        ->required();
    AddCaCommands(app, status);
    AddRevocationCommands(app, status);
    CLI::App *acme = AddAcmeCommands(app, status, json);
    GenerateOptions orderSubject;
    std::string orderKey = "p256";
    AltNameOptions orderNames;
    bool orderEnable = false;
    std::vector<CLI::Option *> orderSubjectOptions;
    CLI::App *order = commands.Add(*acme, "order",
                                   "Order a certificate for these names from the CA and install it",
                                   [&]() -> int {
                                       if (const auto missing = MissingOption(orderSubjectOptions)) {
                                           std::fprintf(stderr, "bmccert: acme order: %s is required\n",
                                                        missing->c_str());
                                           return kExitUsage;
                                       }
                                       return RunAcmeOrder(orderSubject,
                                                           ParseKeyType(orderKey).value_or(KeyType{}),
                                                           orderNames, orderEnable, json);
                                   });
    order->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    orderSubjectOptions = AddSubjectOptions(*order, orderSubject);
    order->add_option("--key", orderKey, "Key type: " + std::string(kKeyTypeNames))
        ->check(KeyTypeValidator())
        ->capture_default_str();
    AddNameOptions(*order, orderNames);
    order->add_flag("--enable", orderEnable, "Renew it when due (acme renew --if-due)");
    commands.AddJsonFlag(*order);

    commands.AddJson(app, "verify",
                     "Verify the generated temporary certificate (/var/certs/TmpCertGen.pem)",
                     [&] { return RunVerify(json); });

    std::string installCert;
    std::string installKey;
    CLI::App *install = commands.Add(app, "install",
                                     "Install an existing certificate and key, then restart the "
                                     "services",
                                     [&] { return RunInstall(installCert, installKey); });
    install->add_option("CERT", installCert, "PEM certificate file")->required();
    install->add_option("KEY", installKey, "PEM private key file (made private: mode 0600)")
        ->required();

    bool recoverRestart = false;
    commands
        .Add(app, "recover",
             "Complete an installation that a power cut interrupted (run before the services "
             "start)",
             [&] { return RunRecover(recoverRestart); })
        ->add_flag("--restart", recoverRestart,
                   "At run time: restart the tunnel and the web server when an installation "
                   "was completed");

    std::string uploadCert;
    std::string uploadKey;
    CLI::App *upload = commands.AddJson(app, "upload",
                                        "Import a certificate and key as a task and wait for its "
                                        "outcome",
                                        [&] { return RunUpload(uploadCert, uploadKey, json); });
    upload->add_option("CERT", uploadCert, "Uploaded PEM certificate file")->required();
    upload->add_option("KEY", uploadKey, "Uploaded PEM private key file")->required();

#if BMCCERT_HOST_TOOL
    commands.AddJson(app, "tasks", "List the tasks with their last state",
                     [&] { return RunTasks(json); });
#endif
    CheckOptions checkOptions;
    CLI::App *check = commands.Add(
        app, "check",
        "Check that both TLS services serve the certificate in force and that it, its key and the "
        "trusted and client certificates are fit; exit 1 on a fault",
        [&] { return RunCheck(checkOptions); });
    check->footer(
        "One line per finding: ok, warning or fault, what it is about, what was found. The "
        "services are reached on 127.0.0.1, 2 seconds each at most, at the ports of their "
        "configuration files (/conf/adviserd/stunnel.conf, /conf/lighttpd/lighttpd.conf) unless "
        "the options give others. "
        "Warnings (a weak key or signature, names, less than 30 days left) leave the exit "
        "status 0. No key material is printed.");
    check->add_option("--tunnel-port", checkOptions.tunnelPort, "Port of the tunnel to reach")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535));
    check->add_option("--web-port", checkOptions.webPort, "HTTPS port of the web server to reach")
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535));
    // Its own flag: a failure of the check itself is not reported as JSON.
    check->add_flag("--json", checkOptions.json, "Print the result as one JSON object");
    AddAuthCommands(app, status);
    AddCertCommands(app, status);

    std::string codeText;
    CLI::App *explain = commands.Add(app, "explain", "Print the name and meaning of a result code",
                                     [&] { return RunExplain(codeText); });
    explain
        ->add_option("CODE", codeText,
                     "Result code: hexadecimal (0x98000004), or signed decimal as the diagnostics "
                     "log prints it (-1744830456, iRet=-1744830456)")
        ->required();

    // Every other subcommand reads the controller, so it runs only on one;
    // --help still works anywhere (help is handled before this).
    app.parse_complete_callback([&] {
        ReportFailuresAsJson(json);
        for (const CLI::App *chosen : app.get_subcommands())
            if (chosen != explain && !RequireController()) throw CLI::RuntimeError(kExitFailure);
    });

    if (argc > 1 && argv[1][0] != '-' && !IsSubcommand(app, argv[1])) {
        std::fprintf(stderr, "bmccert: unknown subcommand '%s'; see bmccert --help\n", argv[1]);
        return kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::RuntimeError &error) {
        return error.get_exit_code();
    } catch (const CLI::ParseError &error) {
        // Help and version end the parse with a success code; every other
        // parse error is a usage error.
        const int code = app.exit(error);
        return code == 0 ? kExitOk : kExitUsage;
    }
    return status;
}
