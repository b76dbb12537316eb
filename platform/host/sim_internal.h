// Shared pieces of the host stand-in: ownership holders, the fault switch,
// number parsing and state directory creation. Nothing here is exported.
#pragma once

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <sys/types.h>
#include <unistd.h>

#include "bmc_sim.h"
#include "frame/unique_fd.h"

namespace bmcsim {

inline constexpr uint32_t kFail = BMC_PLATFORM_FAIL;
inline constexpr int32_t kFailSigned = static_cast<int32_t>(BMC_PLATFORM_FAIL);

// Owns a pointer and gives it back through the C release function of the
// library that made it (sqlite3_close_v2, pcre2_code_free, fclose...).
template <auto Release> struct ReleaseWith {
    template <typename T> void operator()(T *object) const noexcept { Release(object); }
};
template <typename T, auto Release> using Owned = std::unique_ptr<T, ReleaseWith<Release>>;

// Puts errno back as it was when the holder was made, so that cleanup after
// a failure does not hide the reason of the failure.
class ErrnoKeeper {
  public:
    ErrnoKeeper() noexcept : saved_(errno) {}
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;

  private:
    int saved_;
};

using bmccert::UniqueFd;
using bmccert::WriteAll;

// The value that BMC_SIM_FAULTS tells the named call to return instead of
// doing its work, if any. Cheap and allocation-free when the variable is unset.
[[nodiscard]] std::optional<uint32_t> InjectedFault(std::string_view call) noexcept;

// The same for one instance of a call, named "CALL.QUALIFIER" in the
// variable: a record key of DB_Get (DB_Get.0x214104FF, either letter case)
// or a command of MRPC_Call (MRPC_Call.40).
[[nodiscard]] std::optional<uint32_t> InjectedFault(std::string_view call,
                                                    uint32_t qualifier) noexcept;

// Decimal or 0x-prefixed hexadecimal, the whole text, at most 32 bits.
[[nodiscard]] std::optional<uint32_t> ParseNumber(std::string_view text) noexcept;

// Copies src to dst in one rename over dst (never through a link at dst),
// with src's mode or, when given, the mode given; false with errno set.
[[nodiscard]] bool CopyReplacing(const char *src, const char *dst,
                                 std::optional<mode_t> mode = std::nullopt);

// Runs "/bin/sh -c cmd" and waits; true when it exited with status 0.
[[nodiscard]] bool RunShell(const char *cmd) noexcept;

// Creates the directory and its missing parents (mode 0755); true when it
// exists afterwards.
[[nodiscard]] bool MakeDirs(const char *path) noexcept;

// True inside a controller (a sandboxed one included): /conf/certs is a
// directory. Elsewhere the stand-in keeps no state at all: every call that
// would create its state directory, database, logs, locks or key fails
// instead, and the first such call says why on standard error.
[[nodiscard]] bool OnController() noexcept;

} // namespace bmcsim
