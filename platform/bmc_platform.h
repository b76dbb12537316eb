/*
 * The controller's own libraries as this library calls them: common
 * utilities, configuration database, remote procedure calls, task service,
 * file transfer, operation log, diagnostic events, users, hardware
 * description and the service manager. On the controller these come from
 * its platform libraries; on a workstation from the host stand-in
 * (libbmcplatform.so) beside this header.
 *
 * Time stamps are 64-bit seconds since 1970-01-01 UTC, so that certificates
 * valid past 2038 keep working on the 32-bit controller.
 */
#ifndef BMC_PLATFORM_H
#define BMC_PLATFORM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define BMC_PLATFORM_API           __attribute__((visibility("default")))
#define BMC_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define BMC_PLATFORM_API
#define BMC_PRINTF_LIKE(fmt, args)
#endif

typedef int64_t BMC_TimeStamp;

/* Results that only the platform produces. */
#define BMC_PLATFORM_OK          0
#define BMC_PLATFORM_FAIL        0x81000001u
/* A remote procedure call that did not reach its end, and one given no time
 * to wait (a wait limit of 0). */
#define BMC_PLATFORM_RPC_FAIL    0x82000001u
#define BMC_PLATFORM_RPC_TIMEOUT 0x82000002u

/* ---- Common utilities ---------------------------------------------------- */

/* One diagnostic: module, sub-module, level (lower is graver), source line,
 * source file name, printf-style format and its arguments. */
BMC_PLATFORM_API void BMC_DiagLogOut(uint32_t uiModule, uint32_t uiSubModule, uint32_t uiLevel,
                                     int32_t iLine, const char *pcFile, const char *pcFormat, ...)
    BMC_PRINTF_LIKE(6, 7);

/* Bounded copy and append: at most size - 1 bytes, always terminated when
 * size is not 0, longer sources cut silently. Return the length of the text
 * they tried to make, as strlcpy/strlcat do. */
BMC_PLATFORM_API size_t BMC_Strlcpy(char *pcDst, const char *pcSrc, size_t uiSize);
BMC_PLATFORM_API size_t BMC_Strlcat(char *pcDst, const char *pcSrc, size_t uiSize);
/* Bounded formatting; returns the number of characters written (not
 * counting the terminator), never more than size - 1. */
BMC_PLATFORM_API int32_t BMC_Scnprintf(char *pcBuf, size_t uiSize, const char *pcFormat, ...)
    BMC_PRINTF_LIKE(3, 4);

/* Runs a command line through /bin/sh and waits: 0 when it ran and exited
 * with status 0, BMC_PLATFORM_FAIL otherwise. */
BMC_PLATFORM_API uint32_t BMC_System(const char *pcCmd);
/* Runs a command line and keeps all of its standard output (cut to the
 * buffer, always terminated), or its first line only. 0 when the command
 * could be run, whatever its exit status. */
BMC_PLATFORM_API int32_t BMC_GetCmdOutAllBuffer(const char *pcCmd, uint32_t uiSize, char *pcBuf);
BMC_PLATFORM_API int32_t BMC_GetCmdOutLineBuffer(const char *pcCmd, uint32_t uiSize, char *pcBuf);

/* Creates or replaces the destination with the source's bytes; 0 on success. */
BMC_PLATFORM_API int32_t BMC_CopyFile(const char *pcSrc, const char *pcDst);
/* Size in bytes; 0 or negative when it cannot be read (errno tells why). */
BMC_PLATFORM_API int32_t BMC_GetFileSize(const char *pcPath);
/* Modification time; 0 on success. */
BMC_PLATFORM_API int32_t BMC_GetFileModifyTimeStamp(const char *pcPath, BMC_TimeStamp *pTime);

/* Named lock shared by every thread and process of the controller; the
 * acquisition waits until the lock is free. The handle starts as 0. */
BMC_PLATFORM_API int32_t BMC_FileLock_AcquireLock(const char *pcLockName, uint32_t *puiHandle);
BMC_PLATFORM_API int32_t BMC_FileLock_ReleaseLock(uint32_t uiHandle);

/* Date as the openssl tool prints notBefore/notAfter ("Nov 22 19:58:47 2026
 * GMT") to a time stamp; 0 on success. */
BMC_PLATFORM_API int32_t BMC_EnTimeToTimeStamp(const char *pcEnTime, BMC_TimeStamp *pTime);
/* ISO time text ("2026-11-22T19:58:47Z", UTC) to a time stamp and back;
 * the two are exact inverses. */
BMC_PLATFORM_API int32_t BMC_IsoTimeToTimeStamp(const char *pcIsoTime, BMC_TimeStamp *pTime);
BMC_PLATFORM_API int32_t BMC_TimeStampToIsoTime(BMC_TimeStamp llTime, uint32_t uiSize,
                                                char *pcIsoTime);

/* 1 when the whole text matches the extended regular expression, 0 when it
 * clearly does not, -1 when the engine gives no answer (the pattern does not
 * compile, memory runs out, or the match exceeds the engine's limits). */
BMC_PLATFORM_API int32_t BMC_RegularJudge(const char *pcText, const char *pcPattern);

/* Starts a detached thread running the function; 0 on success. */
BMC_PLATFORM_API int32_t BMC_CreateDetachThreadInternal(void *(*pfnThread)(void *),
                                                        const char *pcName, void *pArg,
                                                        uint32_t *puiThreadId);

/* ---- Result mapping and range check -------------------------------------- */

typedef struct BMC_ErrCodeMap_s {
    uint32_t uiErrNum;   /* internal code */
    uint32_t uiRetValue; /* management code */
} BMC_ErrCodeMap;

/* The management code of the pair whose internal code matches, or the default. */
BMC_PLATFORM_API uint32_t CC_GetValueByErrNum(uint32_t uiErrNum, const BMC_ErrCodeMap *pstMap,
                                              uint32_t uiMapCount, uint32_t uiDefault);
/* 0 when the value lies in [min, max] (uiInclusive 1) or (min, max) (0). */
BMC_PLATFORM_API int32_t CFGM_CheckContinueNum(uint32_t uiValue, uint32_t uiMin, uint32_t uiMax,
                                               uint32_t uiInclusive);

/* ---- Configuration database ---------------------------------------------- */

typedef struct BMC_Db_s BMC_Db;

BMC_PLATFORM_API BMC_Db *DB_GetCurrentDb(void);
/* Reads the whole record stored under the key; fails unless a record of
 * exactly that size is stored. 0 on success. */
BMC_PLATFORM_API int32_t DB_Get(BMC_Db *pDb, uint32_t uiKey, uint32_t uiSize, void *pBuf);
/* Stores the record under the key, durably; 0 on success. The file and line
 * name the calling place for the database's own diagnostics. */
BMC_PLATFORM_API int32_t DB_PutInternal(const char *pcFile, int32_t iLine, BMC_Db *pDb,
                                        uint32_t uiKey, uint32_t uiSize, const void *pData);

/* ---- Hardware description ------------------------------------------------- */
BMC_PLATFORM_API uint32_t HW_LIB_GetOemFlag(void);

/* ---- Remote procedure calls ------------------------------------------------ */

/* A response message: its first member points to the payload. */
typedef struct MRPC_Msg_s {
    void *pPayload;
    uint32_t uiPayloadLen;
} MRPC_Msg;

/* 0 on success; the response handle, when given, is set to a message that
 * the caller gives back with MRPC_MsgFree. */
BMC_PLATFORM_API int32_t MRPC_Call(uint32_t uiModule, uint32_t uiCommand, uint32_t uiReqLen,
                                   const void *pReq, uint32_t uiWaitLimit, MRPC_Msg **ppstResp);
BMC_PLATFORM_API void MRPC_MsgFree(MRPC_Msg **ppstResp);

/* ---- Task service ----------------------------------------------------------- */

typedef struct TaskRegisterRecord_s {
    char szTaskDesc[257];
    char szTaskName[49];
    char szStateText[33];
    char szServiceName[16];
    char szComponentId[65];
    char szTargetName[65];
    char szActionText[65];
    uint8_t aucZero1[40];
    char szStatusText[10];
    char szResolution[40];
    uint32_t uiTaskType;
    uint32_t uiWord1;
    uint32_t uiWord2;
    uint32_t uiWord3;
    uint32_t uiWord4;
    uint8_t aucZero2[8];
} TaskRegisterRecord;

typedef struct TaskUpdateRecord_s {
    uint32_t uiReserved;
    uint32_t uiTaskId;
    uint8_t aucZero1[628];
    char szAbnormalInfo[33];
    uint8_t ucState;
    uint8_t ucProgress;
    uint8_t aucZero2[5];
} TaskUpdateRecord;

BMC_PLATFORM_API int32_t TASK_TaskServiceRegister(TaskRegisterRecord *pstRecord,
                                                  uint32_t *puiTaskId, uint32_t *puiTaskTag,
                                                  uint32_t uiTaskType);
BMC_PLATFORM_API int32_t TASK_TaskServiceUpdate(TaskUpdateRecord *pstRecord);

/* ---- File transfer ------------------------------------------------------------ */

typedef struct FileTransferRecord_s {
    uint8_t ucByte0;
    uint8_t ucByte1;
    char szDstPath[1024];
    char szSrcPath[1024];
} FileTransferRecord;

BMC_PLATFORM_API int32_t FILEHANDLE_UploadDownloadFile(FileTransferRecord *pstRecord,
                                                       uint32_t uiMode);

/* ---- Operation log ---------------------------------------------------------------- */
BMC_PLATFORM_API int32_t OPERATELOG_AddLogComm(uint32_t uiInterface, uint32_t uiResultKind,
                                               const char *pcDesc, const char *pcText1,
                                               const char *pcText2, int32_t iLine,
                                               uint8_t ucLogClass);

/* ---- Diagnostic events ---------------------------------------------------------------- */

typedef struct QdrRecord_s {
    uint16_t usEventCode;
    uint8_t ucByte2;
    uint8_t ucByte3;
    uint8_t aucZero[4];
    uint8_t aucTlv[1024];
} QdrRecord;

BMC_PLATFORM_API int32_t QDX_QDRTLVSet(uint32_t uiTag, uint32_t uiLen, const void *pValue,
                                       uint32_t *puiCursor, uint8_t *pucTlvArea);
BMC_PLATFORM_API int32_t QDX_Internal_AddQdrFromBmc(QdrRecord *pstRecord, const char *pcFile,
                                                    const char *pcFunc);

/* ---- Users ------------------------------------------------------------------------------ */
/* The user table that LIB_USER_GetUserInfo fills: one record per user id
 * 1..16 (record k holds id k + 1), then bytes the user service keeps for
 * itself. The offsets are those of the fields that readers of the table use;
 * the sealed password is what LIB_USER_DecryptPassword opens. */
#define BMC_USER_TABLE_SIZE    12120u
#define BMC_USER_RECORD_SIZE   756u
#define BMC_USER_RECORD_COUNT  16u
#define BMC_USER_ID_OFFSET     24u /* u8 user id, 0 for a free record */
#define BMC_USER_NAME_OFFSET   25u /* NUL-terminated text of at most 32 characters */
#define BMC_USER_NAME_FIELD    33u
#define BMC_USER_ROLE_OFFSET   100u /* u8 privilege role */
#define BMC_USER_SECRET_OFFSET 274u /* the sealed password */
BMC_PLATFORM_API int32_t LIB_USER_GetUserInfo(void *pUserInfoTable);
BMC_PLATFORM_API int32_t LIB_USER_GetInsUser(uint32_t uiUserId, void *pUserRecord);
BMC_PLATFORM_API int32_t LIB_USER_CheckAnonymousByUserID(uint32_t uiUserId);
BMC_PLATFORM_API int32_t LIB_USER_DecryptPassword(const uint8_t *pucSecret, const char *pcKey,
                                                  uint32_t uiNum, uint8_t *pucWork,
                                                  uint8_t ucPwdSize, char *pcPassword);
BMC_PLATFORM_API int32_t LIB_USERPRIV_GetRoleNameByPrivRole(uint8_t ucPrivRole, uint32_t uiSize,
                                                            char *pcRoleName);

/* ---- Service manager ------------------------------------------------------------------- */
BMC_PLATFORM_API int32_t systemd_run(const char *pcFile, const char *pcFunc, int32_t iLine,
                                     int32_t iArg1, int32_t iArg2, const char *pcFormat, ...)
    BMC_PRINTF_LIKE(6, 7);

#ifdef __cplusplus
}

static_assert(sizeof(TaskRegisterRecord) == 668, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szTaskName) == 257, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szStateText) == 306, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szServiceName) == 339, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szComponentId) == 355, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szTargetName) == 420, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szActionText) == 485, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, aucZero1) == 550, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szStatusText) == 590, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, szResolution) == 600, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, uiTaskType) == 640, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, uiWord4) == 656, "TaskRegisterRecord");
static_assert(offsetof(TaskRegisterRecord, aucZero2) == 660, "TaskRegisterRecord");
static_assert(sizeof(TaskUpdateRecord) == 676, "TaskUpdateRecord");
static_assert(offsetof(TaskUpdateRecord, uiTaskId) == 4, "TaskUpdateRecord");
static_assert(offsetof(TaskUpdateRecord, szAbnormalInfo) == 636, "TaskUpdateRecord");
static_assert(offsetof(TaskUpdateRecord, ucState) == 669, "TaskUpdateRecord");
static_assert(offsetof(TaskUpdateRecord, ucProgress) == 670, "TaskUpdateRecord");
static_assert(sizeof(FileTransferRecord) == 2050, "FileTransferRecord");
static_assert(offsetof(FileTransferRecord, szDstPath) == 2, "FileTransferRecord");
static_assert(offsetof(FileTransferRecord, szSrcPath) == 1026, "FileTransferRecord");
static_assert(sizeof(QdrRecord) == 1032, "QdrRecord");
static_assert(offsetof(QdrRecord, ucByte3) == 3, "QdrRecord");
static_assert(offsetof(QdrRecord, aucTlv) == 8, "QdrRecord");
static_assert(BMC_USER_TABLE_SIZE >= BMC_USER_RECORD_COUNT * BMC_USER_RECORD_SIZE, "user table");
static_assert(BMC_USER_NAME_OFFSET + BMC_USER_NAME_FIELD <= BMC_USER_ROLE_OFFSET, "user record");
static_assert(BMC_USER_SECRET_OFFSET < BMC_USER_RECORD_SIZE, "user record");
#endif

#endif /* BMC_PLATFORM_H */
