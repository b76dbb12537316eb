// The ends of the import tasks this process started, so that a caller can
// wait for one (LIB_SECURITY_SSL_WaitImportTask) instead of guessing from
// threads or timing.
#pragma once

#include <cstdint>

namespace bmccert::sslcert {

// Before the task's thread is created; TaskForgotten when it could not be.
void TaskStarted(uint32_t taskId) noexcept;
void TaskForgotten(uint32_t taskId) noexcept;
// The thread's last act: its final report made and nothing left to do.
void TaskEnded(uint32_t taskId, uint8_t state, uint32_t result) noexcept;

} // namespace bmccert::sslcert
