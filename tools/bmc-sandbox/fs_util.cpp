#include "fs_util.h"

#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

namespace sandbox {

std::string errno_text(std::string_view what, const std::string &path, int err) {
    std::string text(what);
    text += ' ';
    text += path;
    text += ": ";
    text += std::strerror(err);
    return text;
}

namespace {

// mkdir that accepts an existing directory (or a link to one when FOLLOW).
[[nodiscard]] bool make_one_dir(const std::string &path, mode_t mode, bool follow,
                                std::string &why) {
    if (::mkdir(path.c_str(), mode) == 0) {
        return true;
    }
    const int err = errno;
    struct stat st {};
    const int rc = follow ? ::stat(path.c_str(), &st) : ::lstat(path.c_str(), &st);
    if (err == EEXIST && rc == 0 && S_ISDIR(st.st_mode)) {
        return true;
    }
    if (err == EEXIST && rc == 0 && S_ISLNK(st.st_mode)) {
        why = "refusing " + path + ": it is a symbolic link";
        return false;
    }
    why = errno_text("cannot create directory", path, err == EEXIST ? ENOTDIR : err);
    return false;
}

[[nodiscard]] bool make_components(const std::string &start, std::string_view rel, mode_t mode,
                                   bool follow, std::string &why) {
    std::string path = start;
    size_t pos = 0;
    while (pos < rel.size()) {
        size_t end = rel.find('/', pos);
        if (end == std::string_view::npos) {
            end = rel.size();
        }
        const std::string_view part = rel.substr(pos, end - pos);
        pos = end + 1;
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            why = "refusing path with \"..\" below " + start;
            return false;
        }
        if (path.empty() || path.back() != '/') {
            path += '/';
        }
        path += part;
        if (!make_one_dir(path, mode, follow, why)) {
            return false;
        }
    }
    return true;
}

} // namespace

bool make_dirs(const std::string &path, mode_t mode, std::string &why) {
    if (path.empty() || path.front() != '/') {
        why = "not an absolute path: \"" + path + "\"";
        return false;
    }
    return make_components("/", path, mode, true, why);
}

bool make_dirs_below(const std::string &base, std::string_view rel, mode_t mode, std::string &why) {
    return make_components(base, rel, mode, false, why);
}

bool write_file_atomic(const std::string &path, std::string_view content, mode_t mode,
                       std::string &why) {
    const std::string tmp = path + ".tmp";
    ::unlink(tmp.c_str());
    UniqueFd fd(::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode));
    if (!fd.Valid()) {
        why = errno_text("cannot create", tmp, errno);
        return false;
    }
    if (::fchmod(fd.Get(), mode) != 0) {
        why = errno_text("cannot set mode of", tmp, errno);
        ::unlink(tmp.c_str());
        return false;
    }
    size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd.Get(), content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            why = errno_text("cannot write", tmp, n < 0 ? errno : EIO);
            ::unlink(tmp.c_str());
            return false;
        }
        done += static_cast<size_t>(n);
    }
    // A failed close can be a lost write, and the file must be whole
    // before the rename makes it visible.
    if (::close(fd.Release()) != 0) {
        why = errno_text("cannot write", tmp, errno);
        ::unlink(tmp.c_str());
        return false;
    }
    if (::rename(tmp.c_str(), path.c_str()) != 0) {
        why = errno_text("cannot rename into place", path, errno);
        ::unlink(tmp.c_str());
        return false;
    }
    return true;
}

namespace {

// nftw takes a plain function, so the walk reports through this record;
// the tool is single-threaded and runs one walk at a time.
struct RemovalState {
    std::string failed_path;
    int err = 0;
};
RemovalState removal;

int remove_entry(const char *fpath, const struct stat * /*sb*/, int typeflag, struct FTW *ftwbuf) {
    if (ftwbuf->level == 0) {
        return 0; // the directory itself stays
    }
    if (typeflag == FTW_DNR || typeflag == FTW_NS) {
        removal.failed_path = fpath;
        removal.err = EACCES;
        return 1;
    }
    if (::remove(fpath) != 0) {
        removal.failed_path = fpath;
        removal.err = errno;
        return 1;
    }
    return 0;
}

} // namespace

bool read_file(const std::string &path, std::string &content, std::string &why) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.Valid()) {
        why = errno_text("cannot open", path, errno);
        return false;
    }
    content.clear();
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(fd.Get(), buf, sizeof buf);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            why = errno_text("cannot read", path, errno);
            return false;
        }
        if (n == 0) {
            return true;
        }
        content.append(buf, static_cast<size_t>(n));
    }
}

bool remove_contents(const std::string &dir, std::string &why) {
    removal = RemovalState{};
    const int rc = ::nftw(dir.c_str(), remove_entry, 32, FTW_DEPTH | FTW_PHYS | FTW_MOUNT);
    if (rc == 0) {
        return true;
    }
    if (removal.err != 0) {
        why = errno_text("cannot remove", removal.failed_path, removal.err);
    } else {
        why = errno_text("cannot walk", dir, errno);
    }
    return false;
}

bool path_exists(const std::string &path) {
    struct stat st {};
    return ::lstat(path.c_str(), &st) == 0;
}

bool list_names(const std::string &dir, std::vector<std::string> &names, std::string &why) {
    struct CloseDir {
        void operator()(DIR *d) const { ::closedir(d); }
    };
    const std::unique_ptr<DIR, CloseDir> stream(::opendir(dir.c_str()));
    if (!stream) {
        why = errno_text("cannot read directory", dir, errno);
        return false;
    }
    errno = 0;
    while (const dirent *entry = ::readdir(stream.get())) {
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
        errno = 0;
    }
    if (errno != 0) {
        why = errno_text("cannot read directory", dir, errno);
        return false;
    }
    return true;
}

std::optional<std::string> real_path(const std::string &path) {
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                               &std::free);
    if (!resolved) {
        return std::nullopt;
    }
    return std::string(resolved.get());
}

std::optional<std::string> absolute_path(std::string_view path) {
    if (path.empty()) {
        return std::nullopt;
    }
    std::filesystem::path p{std::string(path)};
    if (p.is_relative()) {
        std::error_code ec;
        const auto cwd = std::filesystem::current_path(ec);
        if (ec) {
            return std::nullopt;
        }
        p = cwd / p;
    }
    std::string text = p.lexically_normal().string();
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

} // namespace sandbox
