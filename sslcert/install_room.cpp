// Refuses an installation that the file system cannot hold. The pair is
// installed in three writes (certificate, key, combined file) that nothing
// rolls back, so a disk that fills up half way would leave a new
// certificate beside an old key, or a cut combined file, that neither the
// tunnel nor the web server can load. Checking first keeps the previous
// pair whole in the common case of a disk that is already full.
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cinttypes>
#include <cstdint>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

struct Room {
    uint64_t blockSize = 0;
    uint64_t freeBlocks = 0;
    unsigned long fileSystem = 0;
};

bool RoomOf(const char *dir, Room &room) {
    struct statvfs vfs;
    if (statvfs(dir, &vfs) != 0) return false;
    room.blockSize = vfs.f_frsize != 0 ? vfs.f_frsize : vfs.f_bsize;
    room.freeBlocks = vfs.f_bavail;
    room.fileSystem = vfs.f_fsid;
    return room.blockSize != 0;
}

uint64_t Blocks(uint64_t bytes, uint64_t blockSize) {
    return (bytes + blockSize - 1) / blockSize;
}

bool SizeOf(const char *path, uint64_t &size) {
    struct stat st;
    if (stat(path, &st) != 0) return false;
    size = static_cast<uint64_t>(st.st_size);
    return true;
}

bool Refuse(const char *dir, uint64_t needed, uint64_t available) {
    BMCCERT_DIAG(kLevelHandling,
                 "No room under %s for the new certificate: %" PRIu64 " bytes needed, %" PRIu64
                 " free.\n",
                 dir, needed, available);
    return false;
}

} // namespace

bool HasRoomToInstall(const char *tmpCert, const char *tmpKey) {
    uint64_t certSize = 0, keySize = 0;
    Room pair, combined;
    // What cannot be measured is left to the writes themselves, which
    // report their own failures.
    if (!SizeOf(tmpCert, certSize) || !SizeOf(tmpKey, keySize) || !RoomOf(kUserCertDir, pair) ||
        !RoomOf(kServerCertDir, combined)) {
        return true;
    }
    uint64_t pairBlocks = Blocks(certSize, pair.blockSize) + Blocks(keySize, pair.blockSize);
    const uint64_t combinedBlocks = Blocks(certSize + keySize, combined.blockSize);
    if (pair.fileSystem == combined.fileSystem && pair.blockSize == combined.blockSize) {
        pairBlocks += combinedBlocks;
    } else if (combinedBlocks > combined.freeBlocks) {
        return Refuse(kServerCertDir, combinedBlocks * combined.blockSize,
                      combined.freeBlocks * combined.blockSize);
    }
    if (pairBlocks > pair.freeBlocks) {
        return Refuse(kUserCertDir, pairBlocks * pair.blockSize, pair.freeBlocks * pair.blockSize);
    }
    return true;
}

} // namespace bmccert::sslcert
