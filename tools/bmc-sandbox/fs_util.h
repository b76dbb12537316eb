// File system helpers of the sandbox tool. Every helper reports failure
// through its result and a message naming the path and the reason, because
// the tool's only job on failure is to tell the user precisely what broke.
#ifndef BMC_SANDBOX_FS_UTIL_H
#define BMC_SANDBOX_FS_UTIL_H

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "frame/unique_fd.h"

namespace sandbox {

using bmccert::UniqueFd;
using bmccert::WriteAll;

// mkdir -p: creates PATH and its missing parents with MODE.
[[nodiscard]] bool make_dirs(const std::string &path, mode_t mode, std::string &why);

// Creates BASE/REL and its missing parents below BASE, refusing any
// component that is a symbolic link: the sandbox writes the controller's
// files there, and a link could send those writes to the host's own /conf.
[[nodiscard]] bool make_dirs_below(const std::string &base, std::string_view rel, mode_t mode,
                                   std::string &why);

// Writes CONTENT to PATH with exactly MODE (whatever the umask) through a
// temporary file and a rename, so a reader never sees half a file.
[[nodiscard]] bool write_file_atomic(const std::string &path, std::string_view content, mode_t mode,
                                     std::string &why);

// Reads the whole of PATH into CONTENT.
[[nodiscard]] bool read_file(const std::string &path, std::string &content, std::string &why);

// Removes everything inside DIR but not DIR itself. Symbolic links are
// removed, never followed, and nothing on another file system is entered.
[[nodiscard]] bool remove_contents(const std::string &dir, std::string &why);

// True when PATH names anything at all, a dangling link included.
[[nodiscard]] bool path_exists(const std::string &path);

// Names in DIR other than "." and "..".
[[nodiscard]] bool list_names(const std::string &dir, std::vector<std::string> &names,
                              std::string &why);

[[nodiscard]] std::optional<std::string> real_path(const std::string &path);

// PATH made absolute against the working directory, without "." and ".."
// components or a trailing slash; nullopt when PATH is empty.
[[nodiscard]] std::optional<std::string> absolute_path(std::string_view path);

[[nodiscard]] std::string errno_text(std::string_view what, const std::string &path, int err);

} // namespace sandbox

#endif
