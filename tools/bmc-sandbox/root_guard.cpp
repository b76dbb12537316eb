#include "root_guard.h"

#include "fs_util.h"
#include "layout.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace sandbox {

namespace {

[[nodiscard]] bool is_home_directory(const std::string &real_root) {
    std::vector<std::string> homes;
    if (const char *env = std::getenv("HOME"); env != nullptr && *env != '\0') {
        homes.emplace_back(env);
    }
    if (const passwd *pw = ::getpwuid(::getuid()); pw != nullptr && pw->pw_dir != nullptr) {
        homes.emplace_back(pw->pw_dir);
    }
    return std::any_of(homes.begin(), homes.end(), [&](const std::string &home) {
        const auto real_home = real_path(home);
        return real_home && *real_home == real_root;
    });
}

[[nodiscard]] bool belongs_to_sandbox(std::string_view name) {
    if (name.ends_with(".tmp")) {
        name.remove_suffix(4);
    }
    return std::find(kRootEntries.begin(), kRootEntries.end(), name) != kRootEntries.end();
}

} // namespace

std::optional<std::string> root_refusal(const std::string &root, bool fresh) {
    const auto real = real_path(root);
    if (!real) {
        return "cannot resolve ROOT " + root;
    }
    if (*real == "/") {
        return "refusing ROOT " + root + ": it is the root directory";
    }
    if (real->find('/', 1) == std::string::npos) {
        return "refusing ROOT " + root + ": " + *real + " is a top-level directory";
    }
    if (is_home_directory(*real)) {
        return "refusing ROOT " + root + ": it is the home directory";
    }
    if (!fresh) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    std::string why;
    if (!list_names(*real, names, why)) {
        return why;
    }
    for (const std::string &name : names) {
        if (!belongs_to_sandbox(name)) {
            return "refusing to empty " + root + ": it holds \"" + name +
                   "\", which is no part of a sandbox";
        }
    }
    return std::nullopt;
}

} // namespace sandbox
