// Points the TLS tunnel's configuration at a certificate and key. The new
// configuration is written beside the old one and renamed over it, under
// the inter-process lock, so that a reader sees the whole old file or the
// whole new one.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kTunnelConfigLock = "stunnel_file.lock";
constexpr size_t kPieceSize = kTunnelLineSize;

// A path that would add a directive of its own (a line feed in it), name
// a file relative to the service's working directory, or be cut by the
// line buffer is refused before anything is read or written. The path
// itself is not repeated: its bytes are what is wrong with it.
bool AcceptTunnelPath(std::string_view option, const char *path) {
    if (FitsTunnelLine(option, path)) return true;
    const std::string_view name = option.substr(0, option.find(' '));
    BMCCERT_DIAG(kLevelFailure,
                 "Tunnel configuration path for %.*s refused: it must be absolute, of printable "
                 "characters and fit its line.\n",
                 static_cast<int>(name.size()), name.data());
    return false;
}

} // namespace

void RewriteTunnelOptions(FILE *in, FILE *out, const char *certPath, const char *keyPath) {
    char piece[kPieceSize];
    char replacement[kPieceSize];
    while (std::fgets(piece, sizeof piece, in) != nullptr) {
        if (std::strstr(piece, "cert =") != nullptr) {
            (void)BMC_Scnprintf(replacement, sizeof replacement, "cert = %s\n", certPath);
            (void)std::fputs(replacement, out);
        } else if (std::strstr(piece, "key =") != nullptr) {
            (void)BMC_Scnprintf(replacement, sizeof replacement, "key = %s\n", keyPath);
            (void)std::fputs(replacement, out);
        } else {
            (void)std::fputs(piece, out);
        }
    }
}

namespace {

// Makes the written scratch file durable with the old file's mode; false
// when any write to it failed, so that a partial file never replaces a
// whole one.
bool FinishScratch(FILE *in, FILE *scratch) {
    struct stat old;
    return std::ferror(scratch) == 0 && std::fflush(scratch) == 0 && fstat(fileno(in), &old) == 0 &&
           fchmod(fileno(scratch), old.st_mode & 07777) == 0 && fsync(fileno(scratch)) == 0;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_ModStunnelConfFile(const char *pcCertPath,
                                                        const char *pcKeyPath) {
    BMCCERT_CHECK_NULL(pcCertPath, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcKeyPath, SSLCERT_ERR_NULL_POINTER);
    if (!AcceptTunnelPath(kTunnelCertOption, pcCertPath) ||
        !AcceptTunnelPath(kTunnelKeyOption, pcKeyPath))
        return SSLCERT_ERR_GENERAL;

    NamedFileLock lock(kTunnelConfigLock);

    StdioFile config(kTunnelConfigPath, "r");
    if (!config.IsOpen()) {
        BMCCERT_DIAG(kLevelHandling, "%s open failed.\n", kTunnelConfigPath);
        return SSLCERT_ERR_GENERAL;
    }
    StdioFile scratch(kScratchConfigPath, "w+");
    if (!scratch.IsOpen()) {
        BMCCERT_DIAG(kLevelHandling, "%s open failed.\n", kScratchConfigPath);
        config.Close();
        return SSLCERT_ERR_GENERAL;
    }

    RewriteTunnelOptions(config.get(), scratch.get(), pcCertPath, pcKeyPath);
    const bool written = FinishScratch(config.get(), scratch.get());
    const int writeErrno = errno;
    config.Close();
    scratch.Close();

    if (!written || std::rename(kScratchConfigPath, kTunnelConfigPath) != 0) {
        BMCCERT_DIAG(kLevelHandling, "Replace %s with %s failed! strerrno:%s\n", kTunnelConfigPath,
                     kScratchConfigPath, std::strerror(written ? errno : writeErrno));
        (void)unlink(kScratchConfigPath);
        return SSLCERT_ERR_GENERAL;
    }
    return SSLCERT_OK;
}
