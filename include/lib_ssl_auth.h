/*
 * bmccert: client-certificate authentication of the management controller.
 *
 * The records below are owned by the daemon that receives the remote
 * procedure calls; this library reads them from the configuration database
 * and sends changes as calls. Their layouts are stored and wire formats.
 */
#ifndef LIB_SSL_AUTH_H
#define LIB_SSL_AUTH_H

#include "lib_security_sslcert.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Limits and keys ---------------------------------------------------- */
#define SSL_AUTH_MAX_CERTS            20u /* certificate ids 1..20 */
#define SSL_AUTH_MAX_USERS            16u /* user ids 1..16 */
#define SSL_AUTH_FILE_NAME_MAX        32u
#define SSL_AUTH_DB_KEY_STATE         0x214102FFu
#define SSL_AUTH_DB_KEY_REVOKE_CHECK  0x214103FFu
#define SSL_AUTH_DB_KEY_ROOT_LIST     0x214104FFu
#define SSL_AUTH_DB_KEY_CLIENT_LIST   0x214105FFu
#define SSL_AUTH_DB_KEY_USER_LIST     0x214106FFu
#define SSL_AUTH_DB_KEY_SUPPORT       0x214107FFu
#define SSL_AUTH_RPC_MODULE           36u
#define SSL_AUTH_USER_TABLE_SIZE      12120u
#define SSL_AUTH_USER_RECORD_SIZE     756u
#define SSL_AUTH_USER_BASIC_INFO_SIZE 81u

/* ---- Result codes of client authentication ------------------------------ */
#define SSL_AUTH_ERR_FILE_NAME_LONG 0x92000013u
#define SSL_AUTH_ERR_FILE_NAME_CHAR 0x92000014u
#define SSL_AUTH_ERR_FILE_NAME_EXT  0x92000015u
#define SSL_AUTH_ERR_CERT_ABSENT    0x92000019u
#define SSL_AUTH_ERR_ROOT_EXPIRED   0x9200001Fu
#define SSL_AUTH_ERR_ROOT_ABSENT    0x92000021u
#define SSL_AUTH_ERR_LIGHTTPD_CONF  0x92000022u
#define SSL_AUTH_ERR_ROOT_LIST_READ 0x92000026u
#define SSL_AUTH_ERR_CMD_RUN        0x92000027u
#define SSL_AUTH_ERR_NO_OCSP_URL    0x92000028u
#define SSL_AUTH_ERR_NO_ISSUER      0x9200002Bu
#define SSL_AUTH_ERR_NOT_GOOD       0x9200002Du

/* Management codes of the state switches. */
#define SSL_AUTH_MGMT_SET_STATE_FAILED  0x18000004u
#define SSL_AUTH_MGMT_SET_REVOKE_FAILED 0x18000005u

/* ---- Stored records ------------------------------------------------------ */

typedef struct RootCertInfo_s {
    uint32_t uiCertId; /* 1..20 when the slot is occupied */
    uint8_t ucActive;  /* 1: the root certificate in force */
    uint8_t aucOpaque1[3];
    char szFileName[33];
    uint8_t aucOpaque2[297];
    char szExpDate[66];
    int32_t iExpTime; /* seconds since 1970-01-01 UTC */
} RootCertInfo;
BMCCERT_LAYOUT_ASSERT(RootCertInfo_size, sizeof(RootCertInfo) == 408);
BMCCERT_LAYOUT_ASSERT(RootCertInfo_active, offsetof(RootCertInfo, ucActive) == 4);
BMCCERT_LAYOUT_ASSERT(RootCertInfo_name, offsetof(RootCertInfo, szFileName) == 8);
BMCCERT_LAYOUT_ASSERT(RootCertInfo_opaque2, offsetof(RootCertInfo, aucOpaque2) == 41);
BMCCERT_LAYOUT_ASSERT(RootCertInfo_exp, offsetof(RootCertInfo, szExpDate) == 338);
BMCCERT_LAYOUT_ASSERT(RootCertInfo_time, offsetof(RootCertInfo, iExpTime) == 404);

typedef struct CliCertInfo_s {
    uint32_t uiCertId; /* 1..20 when the slot is occupied */
    uint32_t uiRootCertId;
    char szFileName[33];
    char szSerialNum[103];
} CliCertInfo;
BMCCERT_LAYOUT_ASSERT(CliCertInfo_size, sizeof(CliCertInfo) == 144);
BMCCERT_LAYOUT_ASSERT(CliCertInfo_root, offsetof(CliCertInfo, uiRootCertId) == 4);
BMCCERT_LAYOUT_ASSERT(CliCertInfo_name, offsetof(CliCertInfo, szFileName) == 8);
BMCCERT_LAYOUT_ASSERT(CliCertInfo_serial, offsetof(CliCertInfo, szSerialNum) == 41);

typedef struct CliCertUserEntry_s {
    uint8_t aucOpaque[4];
    uint32_t uiCliCertId; /* 0: no certificate bound */
} CliCertUserEntry;
BMCCERT_LAYOUT_ASSERT(CliCertUserEntry_size, sizeof(CliCertUserEntry) == 8);
BMCCERT_LAYOUT_ASSERT(CliCertUserEntry_id, offsetof(CliCertUserEntry, uiCliCertId) == 4);

typedef struct RootCertList_s {
    RootCertInfo astRootCert[20];
} RootCertList;
BMCCERT_LAYOUT_ASSERT(RootCertList_size, sizeof(RootCertList) == 8160);

typedef struct CliCertList_s {
    CliCertInfo astCliCert[20];
} CliCertList;
BMCCERT_LAYOUT_ASSERT(CliCertList_size, sizeof(CliCertList) == 2880);

typedef struct CliCertUserList_s {
    CliCertUserEntry astCertUser[16];
} CliCertUserList;
BMCCERT_LAYOUT_ASSERT(CliCertUserList_size, sizeof(CliCertUserList) == 128);

/* ---- Records filled for callers ----------------------------------------- */

typedef struct CertUserBrief_s {
    uint8_t ucUserId;
    char szUserName[33];
    uint8_t ucPrivRole;
    char szRoleName[17];
} CertUserBrief;
BMCCERT_LAYOUT_ASSERT(CertUserBrief_size, sizeof(CertUserBrief) == 52);
BMCCERT_LAYOUT_ASSERT(CertUserBrief_name, offsetof(CertUserBrief, szUserName) == 1);
BMCCERT_LAYOUT_ASSERT(CertUserBrief_role, offsetof(CertUserBrief, ucPrivRole) == 34);
BMCCERT_LAYOUT_ASSERT(CertUserBrief_rolename, offsetof(CertUserBrief, szRoleName) == 35);

typedef struct CliCertDetail_s {
    CliCertInfo stCliCertInfo;
    CertUserBrief stUser;
} CliCertDetail;
BMCCERT_LAYOUT_ASSERT(CliCertDetail_user, offsetof(CliCertDetail, stUser) == 144);
BMCCERT_LAYOUT_ASSERT(CliCertDetail_size, sizeof(CliCertDetail) == 196);

typedef struct UsableUserList_s {
    uint32_t uiUserCnt;
    CertUserBrief astUser[16];
} UsableUserList;
BMCCERT_LAYOUT_ASSERT(UsableUserList_users, offsetof(UsableUserList, astUser) == 4);
BMCCERT_LAYOUT_ASSERT(UsableUserList_size, sizeof(UsableUserList) == 836);

/* ---- Wire requests of the remote procedure calls (module 36) ------------- */

typedef struct CertAuthStateReq_s {
    uint8_t ucState;
    uint8_t aucReserved[3];
    uint32_t uiRootCertId;
} CertAuthStateReq;
BMCCERT_LAYOUT_ASSERT(CertAuthStateReq_size, sizeof(CertAuthStateReq) == 8);
BMCCERT_LAYOUT_ASSERT(CertAuthStateReq_root, offsetof(CertAuthStateReq, uiRootCertId) == 4);

typedef struct RootCertImportReq_s {
    LogOrigin stLogOrigin;
    char szFilePath[1024];
    uint8_t aucReserved[4];
} RootCertImportReq;
BMCCERT_LAYOUT_ASSERT(RootCertImportReq_size, sizeof(RootCertImportReq) == 1112);
BMCCERT_LAYOUT_ASSERT(RootCertImportReq_path, offsetof(RootCertImportReq, szFilePath) == 84);
BMCCERT_LAYOUT_ASSERT(RootCertImportReq_rsv, offsetof(RootCertImportReq, aucReserved) == 1108);

typedef struct CliCertImportReq_s {
    LogOrigin stLogOrigin;
    char szFilePath[1024];
    uint32_t uiRootCertId;
    uint8_t aucReserved[4];
} CliCertImportReq;
BMCCERT_LAYOUT_ASSERT(CliCertImportReq_size, sizeof(CliCertImportReq) == 1116);
BMCCERT_LAYOUT_ASSERT(CliCertImportReq_path, offsetof(CliCertImportReq, szFilePath) == 84);
BMCCERT_LAYOUT_ASSERT(CliCertImportReq_root, offsetof(CliCertImportReq, uiRootCertId) == 1108);
BMCCERT_LAYOUT_ASSERT(CliCertImportReq_rsv, offsetof(CliCertImportReq, aucReserved) == 1112);

typedef struct CertUserReq_s {
    uint32_t uiCertId;
    uint8_t ucUserId;
    uint8_t aucReserved[3];
} CertUserReq;
BMCCERT_LAYOUT_ASSERT(CertUserReq_size, sizeof(CertUserReq) == 8);
BMCCERT_LAYOUT_ASSERT(CertUserReq_user, offsetof(CertUserReq, ucUserId) == 4);

/* First bytes of a user record of the user service; the name starts at
 * its second byte. */
typedef struct UserBasicInfo_s {
    uint8_t ucReserved; /* the user service's; not read here */
    char szUserName[80];
} UserBasicInfo;
BMCCERT_LAYOUT_ASSERT(UserBasicInfo_size, sizeof(UserBasicInfo) == 81);

/* ---- Records and state queries -------------------------------------------
 * Each call reads the database afresh; nothing is cached. */
BMCCERT_API uint32_t LIB_SSL_GetCertAuthState(uint8_t *pbState);
BMCCERT_API uint8_t LIB_SSL_IsEnableCertAuth(void);
BMCCERT_API uint32_t LIB_SSL_GetCertRevokeCheck(uint8_t *pbState);
BMCCERT_API uint32_t LIB_SSL_GetRootCertList(RootCertList *pstRootCertList);
BMCCERT_API uint32_t LIB_SSL_GetActiveRootCertId(uint32_t *puiRootCertId);
BMCCERT_API uint8_t LIB_SSL_IsExistRootCert(uint32_t uiCertId, RootCertInfo *pstRootCertInfo);
BMCCERT_API uint32_t LIB_SSL_GetRootCertInfo(uint32_t uiCertId, RootCertInfo *pstRootCertInfo);
BMCCERT_API uint32_t LIB_SSL_GetClientCertList(CliCertList *pstCliCertList);
BMCCERT_API uint8_t LIB_SSL_IsExistClientCert(uint32_t uiCertId, CliCertInfo *pstCliCertInfo);
BMCCERT_API uint32_t LIB_SSL_GetClientCertUserList(CliCertUserList *pstCertUserList);
BMCCERT_API uint8_t LIB_SSL_IsSupportCertAuthFunc(void);

/* ---- Queries over several records ----------------------------------------- */
BMCCERT_API uint32_t LIB_SSL_GetClientCertListByRoot(uint32_t uiRootCertId,
                                                     uint32_t *puiCliCertCnt,
                                                     CliCertInfo *pstCliCertList);
BMCCERT_API uint32_t LIB_SSL_GetClientCertInfo(uint32_t uiCertId, CliCertDetail *pstCliCertInfo);
BMCCERT_API uint32_t LIB_SSL_GetUsableUserList(UsableUserList *pstUsableUser);
BMCCERT_API uint8_t LIB_SSL_IsCorrectCertRelation(uint32_t uiRootCertId, uint32_t uiCliCertId);

/* ---- State changes, sent to the records' owner ----------------------------
 * The wait limit is passed to the platform's call unchanged; the
 * description is what the caller writes to the operation log. */
BMCCERT_API uint32_t LIB_SSL_SetCertAuthState(uint8_t ucState, uint32_t uiRootCertId,
                                              uint32_t uiWaitLimit, OperateDesc *pstRespData);
BMCCERT_API uint32_t LIB_SSL_SetCertRevokeCheck(uint8_t ucState, uint32_t uiWaitLimit,
                                                OperateDesc *pstRespData);

/* ---- Certificate import and removal --------------------------------------
 * Imports hand the uploaded file to the records' owner, which runs the
 * import as a task and answers with its handle; a failed import writes its
 * own operation-log entry. Deletions fill the caller's description. */
#define SSL_AUTH_MGMT_ROOT_IMPORT_FAILED   0x18000006u
#define SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED 0x18000007u
#define SSL_AUTH_MGMT_CLIENT_DEL_FAILED    0x18000012u
#define SSL_AUTH_MGMT_ROOT_DEL_FAILED      0x18000013u
BMCCERT_API uint32_t LIB_SSL_ImportRootCert(const LogOrigin *pstLogOrigin, const char *pcFilePath,
                                            uint32_t uiWaitLimit, TaskHandle *pstTask);
BMCCERT_API uint32_t LIB_SSL_ImportClientCert(const LogOrigin *pstLogOrigin,
                                              const char *pcFilePath, uint32_t uiRootCertId,
                                              uint32_t uiWaitLimit, TaskHandle *pstTask);
BMCCERT_API uint32_t LIB_SSL_DelClientCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                           OperateDesc *pstRespData);
BMCCERT_API uint32_t LIB_SSL_DelRootCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                         OperateDesc *pstRespData);

/* ---- Binding client certificates to users -------------------------------- */
#define SSL_AUTH_MGMT_BIND_FAILED      0x1800000Du
#define SSL_AUTH_MGMT_UNTIE_FAILED     0x1800000Eu
#define SSL_AUTH_MGMT_BIND_ANONYMOUS   0x1800040Du
#define SSL_AUTH_MGMT_UNTIE_ANONYMOUS  0x1800040Eu
#define SSL_AUTH_MGMT_USER_ABSENT      0x18000411u
#define SSL_AUTH_MGMT_CERT_ABSENT      0x1800060Fu
BMCCERT_API uint32_t LIB_SSL_CheckClientCertOperUser(uint32_t uiCertId, uint32_t uiUserId,
                                                     CliCertInfo *pstCliCertInfo,
                                                     UserBasicInfo *pstUserBasicInfo);
BMCCERT_API uint32_t LIB_SSL_ClientCertBindUser(uint32_t uiCertId, uint32_t uiUserId,
                                                uint32_t uiWaitLimit, OperateDesc *pstRespData);
BMCCERT_API uint32_t LIB_SSL_ClientCertUntieUser(uint32_t uiCertId, uint32_t uiUserId,
                                                 uint32_t uiWaitLimit, OperateDesc *pstRespData);

/* ---- Revocation check over OCSP -------------------------------------------
 * The responder's address comes from the client certificate, the issuer
 * from the web server's ssl.ca-file; only an explicit "good" passes. */
BMCCERT_API uint32_t LIB_SSL_CheckCertRevokeState(const char *pcRootCertPath,
                                                  const char *pcUserCertPath,
                                                  const char *pcOCSPUrl);
BMCCERT_API void LIB_SSL_GetConfCertPath(const char *pcLineBuf, uint32_t uiSize,
                                         char *pcCertPath);
BMCCERT_API uint32_t LIB_SSL_GetAuthRootCertPath(uint32_t uiSize, char *pcRootCertPath);
BMCCERT_API uint32_t LIB_SSL_CertRevokeCheck(uint32_t uiCertId);

/* ---- Login by certificate and user clean-up -------------------------------
 * The password is written in clear into the caller's buffer: wipe it once
 * used. */
#define SSL_AUTH_MGMT_LOGIN_NO_CERT    0x18000E15u
#define SSL_AUTH_MGMT_LOGIN_NO_USER    0x18000E16u
#define SSL_AUTH_MGMT_LOGIN_REVOKED    0x18000E17u
#define SSL_AUTH_MGMT_LOGIN_READ       0x18000E18u
BMCCERT_API uint32_t LIB_SSL_GetNamePwdById(uint8_t ucUserId, uint32_t uiNameSize,
                                            char *pcUserName, uint32_t uiPwdSize,
                                            char *pcPassword);
BMCCERT_API uint32_t LIB_SSL_GetNamePwdBySerial(const char *pcSerialNum, uint32_t uiNameSize,
                                                char *pcUserName, uint32_t uiPwdSize,
                                                char *pcPassword);
BMCCERT_API void LIB_SSL_ClearCertUserInfo(uint8_t ucUserId);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SSL_AUTH_H */
