// Task service: background operations registered by the library (and by
// the record owner) and their last reported state. Ids are given out per
// controller, 1, 2, 3 ..., and outlive the process, so they live in
// config.db; tasks.log keeps every accepted call with its whole record.
#include <cstring>
#include <ctime>
#include <string>

#include "frame/field_text.h"
#include "sim_log.h"
#include "sim_store.h"

namespace {

constexpr const char *kSchema = "CREATE TABLE IF NOT EXISTS tasks("
                                "id INTEGER PRIMARY KEY AUTOINCREMENT,"
                                "tag INTEGER NOT NULL, type INTEGER NOT NULL,"
                                "description TEXT NOT NULL,"
                                "state INTEGER NOT NULL DEFAULT 0,"
                                "progress INTEGER NOT NULL DEFAULT 0,"
                                "text TEXT NOT NULL DEFAULT '')";

[[nodiscard]] std::unique_ptr<bmcsim::Store> OpenTasks() noexcept {
    auto store = bmcsim::Store::Open();
    if (!store || !store->Exec(kSchema)) return nullptr;
    return store;
}

void LogRegister(uint32_t id, uint32_t tag, uint32_t type, const TaskRegisterRecord &record) {
    char head[64];
    (void)std::snprintf(head, sizeof head, "register\t%u\t%u\t0x%08X\t", id, tag, type);
    std::string line = head;
    bmcsim::AppendHex(line, &record, sizeof record);
    bmcsim::AppendLogLine(BMCSIM_TASKS_LOG, std::move(line));
}

void LogUpdate(const TaskUpdateRecord &record) {
    char head[64];
    (void)std::snprintf(head, sizeof head, "update\t%u\t%u\t%u\t", record.uiTaskId, record.ucState,
                        record.ucProgress);
    std::string line = head;
    bmcsim::AppendEscaped(line, record.szAbnormalInfo, sizeof record.szAbnormalInfo);
    line += '\t';
    bmcsim::AppendHex(line, &record, sizeof record);
    bmcsim::AppendLogLine(BMCSIM_TASKS_LOG, std::move(line));
}

} // namespace

extern "C" int32_t TASK_TaskServiceRegister(TaskRegisterRecord *pstRecord, uint32_t *puiTaskId,
                                            uint32_t *puiTaskTag, uint32_t uiTaskType) {
    if (auto fault = bmcsim::InjectedFault("TASK_TaskServiceRegister"))
        return static_cast<int32_t>(*fault);
    if (pstRecord == nullptr || puiTaskId == nullptr || puiTaskTag == nullptr)
        return bmcsim::kFailSigned;
    try {
        auto store = OpenTasks();
        if (!store) return bmcsim::kFailSigned;
        // The second word is the registration time, which a task list shows
        // as the task's start.
        const auto tag = static_cast<uint32_t>(std::time(nullptr));
        const std::string description = std::string(bmccert::FieldView(pstRecord->szTaskDesc));
        auto insert =
            store->Prepare("INSERT INTO tasks(tag, type, description) VALUES(?1, ?2, ?3)");
        if (!insert) return bmcsim::kFailSigned;
        (void)sqlite3_bind_int64(insert.get(), 1, tag);
        (void)sqlite3_bind_int64(insert.get(), 2, uiTaskType);
        (void)sqlite3_bind_text(insert.get(), 3, description.c_str(), -1, SQLITE_TRANSIENT);
        if (sqlite3_step(insert.get()) != SQLITE_DONE) return bmcsim::kFailSigned;
        const auto id = static_cast<uint32_t>(sqlite3_last_insert_rowid(store->Db()));
        *puiTaskId = id;
        *puiTaskTag = tag;
        LogRegister(id, tag, uiTaskType, *pstRecord);
        return 0;
    } catch (...) {
        return bmcsim::kFailSigned;
    }
}

extern "C" int32_t TASK_TaskServiceUpdate(TaskUpdateRecord *pstRecord) {
    if (auto fault = bmcsim::InjectedFault("TASK_TaskServiceUpdate"))
        return static_cast<int32_t>(*fault);
    if (pstRecord == nullptr) return bmcsim::kFailSigned;
    try {
        auto store = OpenTasks();
        // The new state is committed only after its line is in tasks.log, so
        // that whoever reads a final state finds its log line too. Closing the
        // connection without the commit rolls the update back.
        if (!store || !store->Exec("BEGIN IMMEDIATE")) return bmcsim::kFailSigned;
        const std::string text = std::string(bmccert::FieldView(pstRecord->szAbnormalInfo));
        auto update =
            store->Prepare("UPDATE tasks SET state = ?2, progress = ?3, text = ?4 WHERE id = ?1");
        if (!update) return bmcsim::kFailSigned;
        (void)sqlite3_bind_int64(update.get(), 1, pstRecord->uiTaskId);
        (void)sqlite3_bind_int(update.get(), 2, pstRecord->ucState);
        (void)sqlite3_bind_int(update.get(), 3, pstRecord->ucProgress);
        (void)sqlite3_bind_text(update.get(), 4, text.c_str(), -1, SQLITE_TRANSIENT);
        if (sqlite3_step(update.get()) != SQLITE_DONE) return bmcsim::kFailSigned;
        // An id the service never gave out is refused, not invented.
        if (sqlite3_changes(store->Db()) != 1) return bmcsim::kFailSigned;
        LogUpdate(*pstRecord);
        update.reset();
        return store->Exec("COMMIT") ? 0 : bmcsim::kFailSigned;
    } catch (...) {
        return bmcsim::kFailSigned;
    }
}

extern "C" int32_t BMCSIM_TaskGet(uint32_t uiTaskId, BMCSIM_TaskState *pstState) {
    if (pstState == nullptr) return bmcsim::kFailSigned;
    try {
        auto store = OpenTasks();
        if (!store) return bmcsim::kFailSigned;
        auto select = store->Prepare(
            "SELECT tag, type, state, progress, text, description FROM tasks WHERE id = ?1");
        if (!select) return bmcsim::kFailSigned;
        (void)sqlite3_bind_int64(select.get(), 1, uiTaskId);
        if (sqlite3_step(select.get()) != SQLITE_ROW) return bmcsim::kFailSigned;
        std::memset(pstState, 0, sizeof *pstState);
        pstState->uiTaskId = uiTaskId;
        pstState->uiTaskTag = static_cast<uint32_t>(sqlite3_column_int64(select.get(), 0));
        pstState->uiTaskType = static_cast<uint32_t>(sqlite3_column_int64(select.get(), 1));
        pstState->ucState = static_cast<uint8_t>(sqlite3_column_int(select.get(), 2));
        pstState->ucProgress = static_cast<uint8_t>(sqlite3_column_int(select.get(), 3));
        const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(select.get(), 4));
        const auto *desc = reinterpret_cast<const char *>(sqlite3_column_text(select.get(), 5));
        (void)BMC_Strlcpy(pstState->szText, text, sizeof pstState->szText);
        (void)BMC_Strlcpy(pstState->szDescription, desc, sizeof pstState->szDescription);
        return 0;
    } catch (...) {
        return bmcsim::kFailSigned;
    }
}
