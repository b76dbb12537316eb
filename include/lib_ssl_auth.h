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
#define SSL_AUTH_MGMT_ROOT_ABSENT       0x1800040Fu /* the root to trust does not exist */
#define SSL_AUTH_MGMT_CA_INSTALL_FAILED 0x18000A04u /* not put in the web server's config */
#define SSL_AUTH_MGMT_ROOT_LIST_READ    0x18000C04u /* the root list could not be read */
#define SSL_AUTH_MGMT_ROOT_EXPIRED      0x18000C1Eu /* the root's validity has ended */

/* Management codes of the queries. */
#define SSL_AUTH_MGMT_STATE_READ_FAILED  0x18000001u /* state or root list unreadable */
#define SSL_AUTH_MGMT_REVOKE_READ_FAILED 0x18000002u /* revocation switch unreadable */
#define SSL_AUTH_MGMT_QUERY_FAILED       0x18000003u /* a record or the user table unreadable */
#define SSL_AUTH_MGMT_ID_OUT_OF_RANGE    0x18000603u /* a certificate id outside 1..20 */

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

/*
 * Every function below returns a result code unless its comment says
 * otherwise: 0, a code above, a code of lib_security_sslcert.h (SSLCERT_*),
 * or a code of the platform handed on. The details of a failure go to the
 * platform's diagnostics log. None keeps state between calls; any may be
 * called from several threads and processes at once. "Runs the openssl
 * tool" means the call starts a process and waits for it; all others do
 * their work in the calling thread.
 */

/* ---- Records and state queries -------------------------------------------
 * Each call reads the database afresh; nothing is cached. None starts a
 * process. */

/* The stored on/off byte of certificate authentication (1 on) into
 * *pbState. Results: 0; SSL_AUTH_MGMT_STATE_READ_FAILED (no database, the
 * read failed, or a null pointer). */
BMCCERT_API uint32_t LIB_SSL_GetCertAuthState(uint8_t *pbState);
/* The stored state byte itself (1 on); 0 when it cannot be read. Returns
 * the byte, not a result code. */
BMCCERT_API uint8_t LIB_SSL_IsEnableCertAuth(void);
/* The stored on/off byte of revocation checking (1 on) into *pbState.
 * Results: 0; SSL_AUTH_MGMT_REVOKE_READ_FAILED (no database, the read
 * failed, or a null pointer). */
BMCCERT_API uint32_t LIB_SSL_GetCertRevokeCheck(uint8_t *pbState);
/* The whole root certificate list (slot k holds id k + 1 when occupied).
 * Results: 0; SSLCERT_ERR_GENERAL (no database); SSLCERT_ERR_DB_READ;
 * SSLCERT_ERR_NULL_POINTER. */
BMCCERT_API uint32_t LIB_SSL_GetRootCertList(RootCertList *pstRootCertList);
/* The id of the root certificate in force: the lowest slot marked active
 * (ucActive 1). When none is marked, *puiRootCertId is left as it was and
 * the result is still 0: set it to 0 first. Results: 0;
 * SSL_AUTH_MGMT_STATE_READ_FAILED (the list unreadable, or a null
 * pointer). */
BMCCERT_API uint32_t LIB_SSL_GetActiveRootCertId(uint32_t *puiRootCertId);
/* 1 when slot uiCertId (1..20) holds the root certificate of that id, which
 * is copied into *pstRootCertInfo; 0 otherwise (an id outside 1..20, an
 * empty slot, the list unreadable, a null pointer). Returns the byte, not
 * a result code. */
BMCCERT_API uint8_t LIB_SSL_IsExistRootCert(uint32_t uiCertId, RootCertInfo *pstRootCertInfo);
/* The root certificate of id uiCertId (1..20). Results: 0;
 * SSL_AUTH_MGMT_ID_OUT_OF_RANGE; SSL_AUTH_MGMT_CERT_ABSENT (empty slot);
 * SSL_AUTH_MGMT_QUERY_FAILED (the list unreadable, or a null pointer). */
BMCCERT_API uint32_t LIB_SSL_GetRootCertInfo(uint32_t uiCertId, RootCertInfo *pstRootCertInfo);
/* The whole client certificate list (slot k holds id k + 1 when
 * occupied). Results as LIB_SSL_GetRootCertList. */
BMCCERT_API uint32_t LIB_SSL_GetClientCertList(CliCertList *pstCliCertList);
/* 1 when slot uiCertId (1..20) holds the client certificate of that id,
 * which is copied into *pstCliCertInfo; 0 otherwise, as
 * LIB_SSL_IsExistRootCert. Returns the byte, not a result code. */
BMCCERT_API uint8_t LIB_SSL_IsExistClientCert(uint32_t uiCertId, CliCertInfo *pstCliCertInfo);
/* The whole binding list: entry k belongs to user id k + 1 and names the
 * client certificate bound to that user (0: none). Results as
 * LIB_SSL_GetRootCertList. */
BMCCERT_API uint32_t LIB_SSL_GetClientCertUserList(CliCertUserList *pstCertUserList);
/* The stored byte that says whether the controller offers certificate
 * authentication (1 yes); 0 when it cannot be read. Returns the byte, not
 * a result code. */
BMCCERT_API uint8_t LIB_SSL_IsSupportCertAuthFunc(void);

/* ---- Queries over several records ------------------------------------------
 * Outputs are written only after every read succeeded. None starts a
 * process. */

/* The client certificates that root certificate uiRootCertId issued, in
 * slot order, copied into pstCliCertList, which must hold
 * SSL_AUTH_MAX_CERTS entries; their number into *puiCliCertCnt. Results: 0;
 * SSL_AUTH_MGMT_CERT_ABSENT (no such root, as LIB_SSL_IsExistRootCert);
 * SSL_AUTH_MGMT_QUERY_FAILED (the client list unreadable);
 * SSLCERT_ERR_NULL_POINTER. */
BMCCERT_API uint32_t LIB_SSL_GetClientCertListByRoot(uint32_t uiRootCertId,
                                                     uint32_t *puiCliCertCnt,
                                                     CliCertInfo *pstCliCertList);
/* The client certificate of id uiCertId (1..20) into stCliCertInfo and, in
 * stUser, the lowest user id bound to it with the user's name, role and
 * role name; stUser is left as it was when no existing user is bound to it
 * (zero-fill the record first). Results: 0; SSL_AUTH_MGMT_ID_OUT_OF_RANGE;
 * SSL_AUTH_MGMT_CERT_ABSENT (empty slot); SSL_AUTH_MGMT_QUERY_FAILED (a
 * record or the user service's table unreadable, or a null pointer);
 * SSLCERT_ERR_GENERAL (no memory for the user table). The user table,
 * which holds enciphered passwords, is wiped before the call returns. */
BMCCERT_API uint32_t LIB_SSL_GetClientCertInfo(uint32_t uiCertId, CliCertDetail *pstCliCertInfo);
/* The users that exist and have no certificate bound, in id order, with
 * their number in uiUserCnt. Results: 0; the codes of
 * LIB_SSL_GetClientCertUserList; SSLCERT_ERR_GENERAL (no memory for the
 * user table); the user service's own failure code, handed on as it is
 * (SSLCERT_ERR_GENERAL's value on the platforms known); SSLCERT_ERR_NULL_POINTER. */
BMCCERT_API uint32_t LIB_SSL_GetUsableUserList(UsableUserList *pstUsableUser);
/* 1 when both certificates exist and the client certificate uiCliCertId
 * was issued by root certificate uiRootCertId; 0 otherwise (either absent
 * or outside 1..20, a list unreadable, another root). Returns the byte, not
 * a result code. */
BMCCERT_API uint8_t LIB_SSL_IsCorrectCertRelation(uint32_t uiRootCertId, uint32_t uiCliCertId);

/* ---- State changes, sent to the records' owner ----------------------------
 * The wait limit is passed to the platform's call unchanged (0: the call
 * fails at once with BMC_PLATFORM_ERR_2); the call waits for the owner's
 * answer. The description is what the caller writes to the operation log;
 * its ucLogClass is set to SSLCERT_OPERATE_LOG_CLASS. No process. */

/* ucState 1 switches certificate authentication on, trusting root
 * certificate uiRootCertId: the root must exist; when authentication is
 * already on with that root in force, nothing more is checked or sent;
 * otherwise the root's validity must not have ended. Any other ucState switches it off (the value is sent as
 * given, with root id 0); when it is already off, or its state cannot be
 * read, nothing is sent. The description reads "Turned on certificate
 * authentication state successfully." (or "off") or "Failed to set
 * certificate authentication status.". Results: 0;
 * SSL_AUTH_MGMT_ROOT_ABSENT; SSL_AUTH_MGMT_ROOT_EXPIRED;
 * SSL_AUTH_MGMT_ROOT_LIST_READ; SSL_AUTH_MGMT_CA_INSTALL_FAILED (the owner
 * could not give the root to the web server); SSL_AUTH_MGMT_SET_STATE_FAILED
 * (any other failure, a null pointer included: then nothing is written). */
BMCCERT_API uint32_t LIB_SSL_SetCertAuthState(uint8_t ucState, uint32_t uiRootCertId,
                                              uint32_t uiWaitLimit, OperateDesc *pstRespData);
/* Sends the revocation-checking byte ucState (1 on) to the owner, always,
 * even when it is already so. The description reads "Turned on certificate
 * revocation check status successfully." ("off" for any value but 1) or
 * "Failed to set certificate revocation check.". Results: 0;
 * SSL_AUTH_MGMT_SET_REVOKE_FAILED (the call failed, or a null pointer:
 * then nothing is written). */
BMCCERT_API uint32_t LIB_SSL_SetCertRevokeCheck(uint8_t ucState, uint32_t uiWaitLimit,
                                                OperateDesc *pstRespData);

/* ---- Certificate import and removal --------------------------------------
 * Imports hand the uploaded file to the records' owner, which runs the
 * import as a task and answers with its handle; a failed import writes its
 * own operation-log entry. Deletions fill the caller's description. The
 * wait limit is passed on as for the state changes. No process. */
#define SSL_AUTH_MGMT_ROOT_IMPORT_FAILED   0x18000006u
#define SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED 0x18000007u
#define SSL_AUTH_MGMT_CLIENT_DEL_FAILED    0x18000012u
#define SSL_AUTH_MGMT_ROOT_DEL_FAILED      0x18000013u
#define SSL_AUTH_MGMT_FILE_NAME_LONG       0x18000408u /* more than 32 characters */
#define SSL_AUTH_MGMT_FILE_NAME_CHAR       0x18000409u /* a refused character */
#define SSL_AUTH_MGMT_FILE_NAME_EXT        0x1800040Au /* not .pem, .crt or .cer */
#define SSL_AUTH_MGMT_LIST_FULL            0x1800040Bu /* all 20 slots taken */
#define SSL_AUTH_MGMT_CERT_IN_USE          0x1800040Cu /* bound, in force, or an issuer */
#define SSL_AUTH_MGMT_CERT_REFUSED         0x18000611u /* unreadable, not PEM or expired */
#define SSL_AUTH_MGMT_ROOT_CALL_FAILED     0x18000806u /* the owner not reached (root) */
#define SSL_AUTH_MGMT_CLIENT_CALL_FAILED   0x18000807u /* the owner not reached (client) */

/* Imports the root certificate file pcFilePath as a task of the owner and
 * copies the task's handle into *pstTask. The file name (the text after the
 * path's last "/"; a path without one is refused) must have at most 32
 * characters, end in ".pem", ".crt" or ".cer", and hold none of ` & ( ) ; '
 * and space, tested in that order: length, ending, characters. The path is
 * sent cut to 1023 bytes with *pstLogOrigin. Every failure but a null
 * pointer writes the operation-log entry "Failed to import root
 * certificate." for the origin. Results: 0; SSL_AUTH_MGMT_FILE_NAME_LONG;
 * SSL_AUTH_MGMT_FILE_NAME_EXT; SSL_AUTH_MGMT_FILE_NAME_CHAR; the owner's
 * refusals SSL_AUTH_MGMT_LIST_FULL, SSL_AUTH_MGMT_CERT_IN_USE,
 * SSL_AUTH_MGMT_CERT_REFUSED; SSL_AUTH_MGMT_ROOT_CALL_FAILED (the call did
 * not reach its end, or a wait limit of 0); SSL_AUTH_MGMT_ROOT_IMPORT_FAILED
 * (any other failure, a null pointer included: then no entry is written).
 * The outcome of the task itself arrives through the task service. */
BMCCERT_API uint32_t LIB_SSL_ImportRootCert(const LogOrigin *pstLogOrigin, const char *pcFilePath,
                                            uint32_t uiWaitLimit, TaskHandle *pstTask);
/* As LIB_SSL_ImportRootCert for a client certificate that root certificate
 * uiRootCertId issued; the root must exist (checked first). The entry reads
 * "Failed to import client certificate.". Results: 0;
 * SSL_AUTH_MGMT_CERT_ABSENT (no such root); the file-name and refusal codes
 * above; SSL_AUTH_MGMT_CLIENT_CALL_FAILED;
 * SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED (any other failure, a null pointer
 * included). */
BMCCERT_API uint32_t LIB_SSL_ImportClientCert(const LogOrigin *pstLogOrigin,
                                              const char *pcFilePath, uint32_t uiRootCertId,
                                              uint32_t uiWaitLimit, TaskHandle *pstTask);
/* Deletes the client certificate of id uiCertId; the owner refuses one
 * still bound to a user. The description reads "Deleted client certificate
 * successfully. Certificate: NAME." (its file name) or "Failed to delete
 * client certificate.". Results: 0; SSL_AUTH_MGMT_CERT_ABSENT (no such
 * certificate, or an id outside 1..20: nothing is sent);
 * SSL_AUTH_MGMT_CERT_IN_USE; SSL_AUTH_MGMT_CLIENT_CALL_FAILED;
 * SSL_AUTH_MGMT_CLIENT_DEL_FAILED (any other failure, a null pointer
 * included: then nothing is written). */
BMCCERT_API uint32_t LIB_SSL_DelClientCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                           OperateDesc *pstRespData);
/* As LIB_SSL_DelClientCert for a root certificate; the owner refuses the
 * root in force and one that issued client certificates. "Deleted root
 * certificate successfully. Certificate: NAME." or "Failed to delete root
 * certificate.". Results: 0; SSL_AUTH_MGMT_CERT_ABSENT;
 * SSL_AUTH_MGMT_CERT_IN_USE; SSL_AUTH_MGMT_ROOT_CALL_FAILED;
 * SSL_AUTH_MGMT_ROOT_DEL_FAILED. */
BMCCERT_API uint32_t LIB_SSL_DelRootCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                         OperateDesc *pstRespData);

/* ---- Binding client certificates to users -------------------------------- */
#define SSL_AUTH_MGMT_BIND_FAILED      0x1800000Du
#define SSL_AUTH_MGMT_UNTIE_FAILED     0x1800000Eu
#define SSL_AUTH_MGMT_BIND_ANONYMOUS   0x1800040Du
#define SSL_AUTH_MGMT_UNTIE_ANONYMOUS  0x1800040Eu
#define SSL_AUTH_MGMT_USER_ABSENT      0x18000411u
#define SSL_AUTH_MGMT_CERT_ABSENT      0x1800060Fu
/* Checks that the client certificate uiCertId exists (copied into
 * *pstCliCertInfo) and that the user service knows user uiUserId (the first
 * 81 bytes of its record copied into *pstUserBasicInfo; the name need not
 * end inside its field). Results: 0; SSL_AUTH_MGMT_CERT_ABSENT;
 * SSL_AUTH_MGMT_USER_ABSENT; SSLCERT_ERR_NULL_POINTER. No process. */
BMCCERT_API uint32_t LIB_SSL_CheckClientCertOperUser(uint32_t uiCertId, uint32_t uiUserId,
                                                     CliCertInfo *pstCliCertInfo,
                                                     UserBasicInfo *pstUserBasicInfo);
/* Binds client certificate uiCertId to user uiUserId through the owner,
 * which decides what the current bindings allow. The anonymous user is
 * refused first, then LIB_SSL_CheckClientCertOperUser; the user id is sent
 * as one byte (its low 8 bits). The description reads "Bound client
 * certificate to user successfully. Certificate: FILE, user: NAME." or
 * "Failed to bind client certificate to user."; ucLogClass is
 * SSLCERT_OPERATE_LOG_CLASS. Results: 0; SSL_AUTH_MGMT_BIND_ANONYMOUS;
 * SSL_AUTH_MGMT_CERT_ABSENT; SSL_AUTH_MGMT_USER_ABSENT;
 * SSL_AUTH_MGMT_BIND_FAILED (the call failed or was refused, or a null
 * pointer: then nothing is written). Waits for the owner's answer (the
 * wait limit as above); no process. */
BMCCERT_API uint32_t LIB_SSL_ClientCertBindUser(uint32_t uiCertId, uint32_t uiUserId,
                                                uint32_t uiWaitLimit, OperateDesc *pstRespData);
/* As LIB_SSL_ClientCertBindUser, unbinding: "Unbound client certificate
 * from user successfully. Certificate: FILE, user: NAME." or "Failed to
 * unbind client certificate from user.". Results: 0;
 * SSL_AUTH_MGMT_UNTIE_ANONYMOUS; SSL_AUTH_MGMT_CERT_ABSENT;
 * SSL_AUTH_MGMT_USER_ABSENT; SSL_AUTH_MGMT_UNTIE_FAILED. */
BMCCERT_API uint32_t LIB_SSL_ClientCertUntieUser(uint32_t uiCertId, uint32_t uiUserId,
                                                 uint32_t uiWaitLimit, OperateDesc *pstRespData);

/* ---- Revocation check over OCSP -------------------------------------------
 * The responder's address comes from the client certificate, the issuer
 * from the web server's ssl.ca-file; only an explicit "good" passes. Every
 * value on a command line is one single-quoted shell word; a command line
 * longer than 255 characters is not run. */

/* Asks the responder pcOCSPUrl about the certificate file pcUserCertPath
 * issued by pcRootCertPath (openssl ocsp -timeout 2 -issuer -cert -url);
 * passes only when the answer holds "PCUSERCERTPATH: good". Results: 0;
 * SSL_AUTH_ERR_NOT_GOOD (revoked, unknown, no answer, or a path of more
 * than 121 characters); SSL_AUTH_ERR_CMD_RUN (the command line did not fit
 * or could not be run); SSLCERT_ERR_NULL_POINTER. Runs the openssl tool
 * once; the responder gets 2 seconds. */
BMCCERT_API uint32_t LIB_SSL_CheckCertRevokeState(const char *pcRootCertPath,
                                                  const char *pcUserCertPath,
                                                  const char *pcOCSPUrl);
/* Copies the text of a configuration line from its first '"' up to the
 * next '"' (or the line's end) into pcCertPath. Leaves pcCertPath alone
 * when the line holds no '"', uiSize is 0, or the line's tail from that
 * '"' is longer than uiSize - 1 characters. No result; no I/O. */
BMCCERT_API void LIB_SSL_GetConfCertPath(const char *pcLineBuf, uint32_t uiSize,
                                         char *pcCertPath);
/* The path named by the first line of /conf/lighttpd/lighttpd.conf that
 * holds "ssl.ca-file", as LIB_SSL_GetConfCertPath takes it (lines are read
 * 511 bytes at most). pcRootCertPath is left alone when no line names one:
 * empty it first. Results: 0; SSL_AUTH_ERR_LIGHTTPD_CONF (the file cannot
 * be opened); SSLCERT_ERR_NULL_POINTER. Reads a file; no process. */
BMCCERT_API uint32_t LIB_SSL_GetAuthRootCertPath(uint32_t uiSize, char *pcRootCertPath);
/* The revocation check of client certificate uiCertId: the file
 * /conf/certs/client/NAME (the path cut to 63 characters), its responder
 * from openssl x509 -ocsp_uri (an http:// address, cut to 63 characters),
 * the issuer from LIB_SSL_GetAuthRootCertPath, then
 * LIB_SSL_CheckCertRevokeState. An empty slot is not tested: its check
 * fails on the missing file. Results: 0; SSL_AUTH_ERR_CERT_ABSENT (an id
 * outside 1..20); the codes of LIB_SSL_GetClientCertList;
 * SSL_AUTH_ERR_CMD_RUN; SSL_AUTH_ERR_NO_OCSP_URL;
 * SSL_AUTH_ERR_LIGHTTPD_CONF; SSL_AUTH_ERR_NO_ISSUER (no ssl.ca-file line);
 * SSL_AUTH_ERR_NOT_GOOD. Runs the openssl tool twice; blocks for up to the
 * responder's 2 seconds. */
BMCCERT_API uint32_t LIB_SSL_CertRevokeCheck(uint32_t uiCertId);

/* ---- Login by certificate and user clean-up -------------------------------
 * The password is written in clear into the caller's buffer: wipe it once
 * used. */
#define SSL_AUTH_MGMT_LOGIN_NO_CERT    0x18000E15u
#define SSL_AUTH_MGMT_LOGIN_NO_USER    0x18000E16u
#define SSL_AUTH_MGMT_LOGIN_REVOKED    0x18000E17u
#define SSL_AUTH_MGMT_LOGIN_READ       0x18000E18u
/* The name and clear-text password of user ucUserId (1..16), read from the
 * user service's table. The password is deciphered by the user service
 * straight into pcPassword; uiPwdSize is passed on reduced to its low 8
 * bits, so give at most 255 (256 would become 0). Then the name, at most 32
 * characters, is copied cut to uiNameSize (terminator included). Results:
 * 0; SSLCERT_ERR_GENERAL (an id outside 1..16, or no memory for the table);
 * the user service's own failure code, handed on as it is (the table
 * unreadable or the password not deciphered; then the name is not
 * written); SSLCERT_ERR_NULL_POINTER. The table is wiped before the call
 * returns. No process. */
BMCCERT_API uint32_t LIB_SSL_GetNamePwdById(uint8_t ucUserId, uint32_t uiNameSize,
                                            char *pcUserName, uint32_t uiPwdSize,
                                            char *pcPassword);
/* The login by certificate: the client certificate whose stored serial
 * number equals pcSerialNum exactly (as openssl x509 -serial prints it,
 * without "serial="), LIB_SSL_CertRevokeCheck when revocation checking is
 * on, the lowest user id bound to it, then LIB_SSL_GetNamePwdById with the
 * same buffers and sizes. Results: 0; SSL_AUTH_MGMT_LOGIN_NO_CERT;
 * SSL_AUTH_MGMT_LOGIN_NO_USER; SSL_AUTH_MGMT_LOGIN_REVOKED (the check did
 * not pass, whatever the reason); SSL_AUTH_MGMT_LOGIN_READ (a record could
 * not be read, or the name and password could not be had);
 * SSLCERT_ERR_NULL_POINTER. Runs the openssl tool twice when revocation
 * checking is on, none otherwise. */
BMCCERT_API uint32_t LIB_SSL_GetNamePwdBySerial(const char *pcSerialNum, uint32_t uiNameSize,
                                                char *pcUserName, uint32_t uiPwdSize,
                                                char *pcPassword);
/* Unbinds the client certificate of user ucUserId (1..16), for a user who
 * goes away, through LIB_SSL_ClientCertUntieUser with the wait limit 10000;
 * does nothing when the user holds none. No result: failures go to the
 * diagnostics only, and the description is not logged. No process. */
BMCCERT_API void LIB_SSL_ClearCertUserInfo(uint8_t ucUserId);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SSL_AUTH_H */
