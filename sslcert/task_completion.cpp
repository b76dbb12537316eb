// A process-local record of the import tasks started here: running ones,
// and the last kRememberedEnds that ended, with their final state and result.
#include "sslcert/task_completion.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <new>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr size_t kRememberedEnds = 64;

struct TaskEnd {
    uint32_t taskId;
    uint8_t state;
    uint32_t result;
};

struct Registry {
    std::mutex lock;
    std::condition_variable ended;
    std::deque<uint32_t> running;
    std::deque<TaskEnd> ends; // oldest first

    [[nodiscard]] auto FindRunning(uint32_t taskId) {
        return std::find(running.begin(), running.end(), taskId);
    }
    [[nodiscard]] const TaskEnd *FindEnd(uint32_t taskId) const {
        const auto it = std::find_if(ends.begin(), ends.end(),
                                     [&](const TaskEnd &end) { return end.taskId == taskId; });
        return it == ends.end() ? nullptr : &*it;
    }
};

// Never destroyed: a thread that ends while the process exits still finds
// its lock.
Registry &TheRegistry() {
    static Registry *const registry = new Registry;
    return *registry;
}

} // namespace

void TaskStarted(uint32_t taskId) noexcept {
    Registry &registry = TheRegistry();
    const std::lock_guard held(registry.lock);
    std::erase_if(registry.ends, [&](const TaskEnd &end) { return end.taskId == taskId; });
    try {
        registry.running.push_back(taskId);
    } catch (const std::bad_alloc &) {
        // A wait for it then says it is unknown; the import itself goes on.
        BMCCERT_DIAG(kLevelHandling, "Import task %u cannot be awaited: out of memory.\n", taskId);
    }
}

void TaskForgotten(uint32_t taskId) noexcept {
    Registry &registry = TheRegistry();
    const std::lock_guard held(registry.lock);
    if (const auto it = registry.FindRunning(taskId); it != registry.running.end())
        registry.running.erase(it);
}

void TaskEnded(uint32_t taskId, uint8_t state, uint32_t result) noexcept {
    Registry &registry = TheRegistry();
    const std::lock_guard held(registry.lock);
    const auto it = registry.FindRunning(taskId);
    if (it == registry.running.end()) return; // never awaitable
    registry.running.erase(it);
    try {
        if (registry.ends.size() == kRememberedEnds) registry.ends.pop_front();
        registry.ends.push_back({taskId, state, result});
    } catch (const std::bad_alloc &) {
        BMCCERT_DIAG(kLevelHandling, "Import task %u ended unrecorded: out of memory.\n", taskId);
    }
    registry.ended.notify_all();
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_WaitImportTask(uint32_t uiTaskId, uint32_t uiTimeoutMs,
                                                    uint32_t *puiState, uint32_t *puiResult) {
    BMCCERT_CHECK_NULL(puiState, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(puiResult, SSLCERT_ERR_NULL_POINTER);
    *puiState = 0;
    *puiResult = 0;
    Registry &registry = TheRegistry();
    std::unique_lock held(registry.lock);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(uiTimeoutMs);
    while (registry.FindRunning(uiTaskId) != registry.running.end()) {
        if (registry.ended.wait_until(held, deadline) == std::cv_status::timeout &&
            registry.FindRunning(uiTaskId) != registry.running.end())
            return SSLCERT_EXT_ERR_TASK_RUNNING;
    }
    const TaskEnd *end = registry.FindEnd(uiTaskId);
    if (end == nullptr) return SSLCERT_EXT_ERR_TASK_UNKNOWN;
    *puiState = end->state;
    *puiResult = end->result;
    return SSLCERT_OK;
}
