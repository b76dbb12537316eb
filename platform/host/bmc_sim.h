/*
 * Control interface of the host stand-in for the controller's platform
 * libraries. Tests and workstation tools use it beside the state files
 * under BMCSIM_STATE_DIR; the controller itself has no such interface.
 */
#ifndef BMC_SIM_H
#define BMC_SIM_H

#include "../bmc_platform.h"

#ifdef __cplusplus
extern "C" {
#endif

#define BMCSIM_STATE_DIR "/var/lib/bmc-sim"
#define BMCSIM_CONFIG_DB BMCSIM_STATE_DIR "/config.db"
#define BMCSIM_DIAG_LOG  BMCSIM_STATE_DIR "/diag.log"
#define BMCSIM_LOCK_DIR  BMCSIM_STATE_DIR "/locks"
#define BMCSIM_TASKS_LOG BMCSIM_STATE_DIR "/tasks.log"
#define BMCSIM_OPERATE_LOG BMCSIM_STATE_DIR "/operate.log"
#define BMCSIM_QDR_LOG   BMCSIM_STATE_DIR "/qdr.log"
#define BMCSIM_RPC_LOG   BMCSIM_STATE_DIR "/rpc.log"
#define BMCSIM_COMMANDS_LOG BMCSIM_STATE_DIR "/commands.log"
#define BMCSIM_COMMANDS_STDERR_LOG BMCSIM_STATE_DIR "/commands-stderr.log"
#define BMCSIM_USER_KEY  BMCSIM_STATE_DIR "/user.key"

/* The users of a factory-fresh controller: 1, the anonymous user (no
 * access, empty password), and 2, this administrator. */
#define BMCSIM_FACTORY_ADMIN_NAME     "admin"
#define BMCSIM_FACTORY_ADMIN_PASSWORD "admin-password"

/* Environment: value that HW_LIB_GetOemFlag returns (0 when unset). */
#define BMCSIM_ENV_OEM_FLAG "BMC_SIM_OEM_FLAG"
/* Environment, read at each call: comma-separated CALL=VALUE items; the
 * named call returns VALUE (decimal or 0x hex) instead of doing its work. */
#define BMCSIM_ENV_FAULTS   "BMC_SIM_FAULTS"

/* Number of processes this process has started through the stand-in. */
BMC_PLATFORM_API uint64_t BMCSIM_SpawnCount(void);
/* Removes the record stored under the key; 0 also when there was none. */
BMC_PLATFORM_API int32_t BMCSIM_DbErase(uint32_t uiKey);

/* Task service: a task as it stands after its last report. State and
 * progress are 0 until the first TASK_TaskServiceUpdate. */
typedef struct BMCSIM_TaskState_s {
    uint32_t uiTaskId;
    uint32_t uiTaskTag; /* the handle's second word: registration time, low 32 bits */
    uint32_t uiTaskType;
    uint8_t ucState;
    uint8_t ucProgress;
    char szText[33];         /* the last abnormal-information text */
    char szDescription[257]; /* the description it was registered with */
} BMCSIM_TaskState;
/* 0 and the task's state, or a failure for an id never given out. */
BMC_PLATFORM_API int32_t BMCSIM_TaskGet(uint32_t uiTaskId, BMCSIM_TaskState *pstState);

/* User service: creates or replaces user 1..16 (name of 1 to 32
 * characters, role 0..255, password of at most 40 characters; a null
 * password keeps the present one, or an empty one for a new user). */
BMC_PLATFORM_API int32_t BMCSIM_UserSet(uint32_t uiUserId, const char *pcName, uint32_t uiRole,
                                        int32_t iAnonymous, const char *pcPassword);
/* Removes a user; fails when the slot holds none. */
BMC_PLATFORM_API int32_t BMCSIM_UserDel(uint32_t uiUserId);
/* Puts the users and the six client-authentication records back to their
 * factory state (files under /conf are left alone). */
BMC_PLATFORM_API int32_t BMCSIM_AuthFactoryReset(void);

#ifdef __cplusplus
}
#endif

#endif /* BMC_SIM_H */
