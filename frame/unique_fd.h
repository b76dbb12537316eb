// A file descriptor that is closed on every path, and a write that goes on
// until every byte is written. Shared by the stand-in and the sandbox.
#pragma once

#include <cerrno>
#include <cstddef>

#include <unistd.h>

namespace bmccert {

class UniqueFd {
  public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.Release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { Reset(); }

    [[nodiscard]] int Get() const noexcept { return fd_; }
    [[nodiscard]] bool Valid() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int Release() noexcept {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    // Closes the present descriptor, keeping errno, and takes fd.
    void Reset(int fd = -1) noexcept {
        if (fd_ >= 0) {
            const int saved = errno;
            (void)::close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }
    // Closes now and reports the result: a failed close of a written file
    // can be the first sign that the data did not reach the disk.
    [[nodiscard]] bool Close() noexcept {
        const int fd = Release();
        return fd < 0 || ::close(fd) == 0;
    }

  private:
    int fd_ = -1;
};

// Writes all of data, resuming after interruptions and short writes; false
// on the first failed write (errno tells why).
[[nodiscard]] inline bool WriteAll(int fd, const void *data, size_t len) noexcept {
    const char *next = static_cast<const char *>(data);
    while (len > 0) {
        const ssize_t done = ::write(fd, next, len);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        next += done;
        len -= static_cast<size_t>(done);
    }
    return true;
}

} // namespace bmccert
