// bmc-sim: administration of the host stand-in's services (users).
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <openssl/crypto.h>

#include "json_writer.h"
#include "platform/host/bmc_sim.h"

namespace {

int ListUsers(bool json) {
    std::vector<uint8_t> table(BMC_USER_TABLE_SIZE);
    const int32_t result = LIB_USER_GetUserInfo(table.data());
    if (result != 0) {
        std::fprintf(stderr, "bmc-sim: cannot read the users: 0x%08X\n",
                     static_cast<unsigned>(result));
        return 1;
    }
    std::string text, array = "[";
    for (uint32_t k = 0; k < BMC_USER_RECORD_COUNT; ++k) {
        const uint8_t *record = table.data() + k * BMC_USER_RECORD_SIZE;
        const uint8_t id = record[BMC_USER_ID_OFFSET];
        if (id == 0) continue;
        const auto *nameField = reinterpret_cast<const char *>(record + BMC_USER_NAME_OFFSET);
        const std::string name(nameField, strnlen(nameField, BMC_USER_NAME_FIELD - 1));
        const uint8_t roleId = record[BMC_USER_ROLE_OFFSET];
        char role[17] = {};
        (void)LIB_USERPRIV_GetRoleNameByPrivRole(roleId, sizeof role, role);
        const bool anonymous = LIB_USER_CheckAnonymousByUserID(id) == 1;
        bmccert::cli::JsonWriter w;
        w.BeginObject();
        w.Uint("id", id);
        w.String("name", name);
        w.Uint("role", roleId);
        w.String("roleName", role);
        w.Uint("anonymous", anonymous ? 1 : 0);
        w.EndObject();
        array += (array.size() > 1 ? "," : "") + w.Text();
        text +=
            std::to_string(id) + '\t' + name + '\t' + role + (anonymous ? "\tanonymous\n" : "\n");
    }
    // The table holds every sealed password; it does not outlive its use.
    OPENSSL_cleanse(table.data(), table.size());
    const std::string out = json ? array + "]\n" : text;
    return std::fwrite(out.data(), 1, out.size(), stdout) == out.size() && std::fflush(stdout) == 0
               ? 0
               : 1;
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app{"Administration of the controller stand-in", "bmc-sim"};
    app.require_subcommand(1);
    int status = 0;

    CLI::App *user = app.add_subcommand("user", "Users of the user service");
    user->require_subcommand(1);

    uint32_t id = 0, role = 2;
    std::string name, password;
    bool anonymous = false, json = false;
    CLI::App *set = user->add_subcommand("set", "Create or change a user");
    set->add_option("ID", id, "User id")->required()->check(CLI::Range(1, 16));
    set->add_option("NAME", name, "User name (1 to 32 characters)")->required();
    CLI::Option *roleOption =
        set->add_option("--role", role,
                        "Privilege role (2 User, 3 Operator, 4 Administrator, "
                        "15 No Access)")
            ->check(CLI::Range(0, 255));
    CLI::Option *passwordOption =
        set->add_option("--password", password, "Password (at most 40 characters)");
    set->add_flag("--anonymous", anonymous, "Mark the user as the anonymous user");
    set->callback([&] {
        (void)roleOption;
        const char *pw = passwordOption->count() > 0 ? password.c_str() : nullptr;
        if (BMCSIM_UserSet(id, name.c_str(), role, anonymous ? 1 : 0, pw) != 0) {
            std::fprintf(stderr, "bmc-sim: cannot set user %u\n", id);
            status = 1;
        }
        OPENSSL_cleanse(password.data(), password.size());
    });

    CLI::App *del = user->add_subcommand("del", "Remove a user");
    del->add_option("ID", id, "User id")->required()->check(CLI::Range(1, 16));
    del->callback([&] {
        if (BMCSIM_UserDel(id) != 0) {
            std::fprintf(stderr, "bmc-sim: no user %u\n", id);
            status = 1;
        }
    });

    CLI::App *list = user->add_subcommand("list", "List the users");
    list->add_flag("--json", json, "Print the users as a JSON array");
    list->callback([&] { status = ListUsers(json); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return status;
}
