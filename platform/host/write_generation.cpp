#include "write_generation.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "bmc_sim.h"
#include "sim_internal.h"

namespace bmcsim {
namespace {

// Null where it cannot be shared: a counter that is not lock-free would
// be guarded by a lock of this process only.
uint64_t *SharedCounter() noexcept {
    static uint64_t *counter = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        if constexpr (!std::atomic_ref<uint64_t>::is_always_lock_free) return;
        if (!OnController() || !MakeDirs(BMCSIM_STATE_DIR)) return;
        const int fd = ::open(BMCSIM_CONFIG_DB "-generation", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) return;
        void *mapped = MAP_FAILED;
        if (::ftruncate(fd, sizeof(uint64_t)) == 0)
            mapped = ::mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        (void)::close(fd);
        if (mapped == MAP_FAILED) return;
        counter = static_cast<uint64_t *>(mapped);
    });
    return counter;
}

} // namespace

uint64_t WriteGeneration() noexcept {
    uint64_t *counter = SharedCounter();
    // + 1: a counter that was never bumped still names a generation.
    return counter == nullptr ? 0 : std::atomic_ref<uint64_t>(*counter).load() + 1;
}

void BumpWriteGeneration() noexcept {
    if (uint64_t *counter = SharedCounter()) std::atomic_ref<uint64_t>(*counter).fetch_add(1);
}

} // namespace bmcsim
