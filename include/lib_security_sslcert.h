/*
 * bmccert: server certificate of the management controller.
 *
 * Plain C interface over fixed-layout records. Every record here that is
 * stored in the configuration database or sent over the wire keeps the same
 * layout on 32-bit ARM and on x86-64; the layout assertions at the end of
 * each record guard that.
 */
#ifndef LIB_SECURITY_SSLCERT_H
#define LIB_SECURITY_SSLCERT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define BMCCERT_API __attribute__((visibility("default")))
#else
#define BMCCERT_API
#endif

/* Compile-time layout check usable from C99, C11 and C++. */
#if defined(__cplusplus)
#define BMCCERT_LAYOUT_ASSERT(name, cond) static_assert((cond), #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define BMCCERT_LAYOUT_ASSERT(name, cond) _Static_assert((cond), #name)
#else
#define BMCCERT_LAYOUT_ASSERT(name, cond) typedef char bmccert_layout_##name[(cond) ? 1 : -1]
#endif

/* OpenSSL's own structure tags, so that this header needs no OpenSSL header. */
struct x509_st;
struct X509_name_st;

/* ---- Certificate type codes ------------------------------------------- */
#define SSL_CERT_TYPE_NONE        0u /* no usable server certificate */
#define SSL_CERT_TYPE_USER        1u /* installed by generation or import */
#define SSL_CERT_TYPE_OEM_CUSTOM  2u
#define SSL_CERT_TYPE_OEM_DEFAULT 3u
#define SSL_CERT_TYPE_DEFAULT     4u /* factory default */
#define SSL_CERT_TYPE_UPLOAD_TMP  5u /* uploaded, awaiting validation */
#define SSL_CERT_TYPE_GEN_TMP     6u /* generated, awaiting verification */

/* OEM flag value that enables the OEM certificate locations. */
#define SSL_CERT_OEM_FLAG_OEM 3u

/* ---- Result codes ------------------------------------------------------ */
#define SSLCERT_OK                    0x00000000u
#define SSLCERT_ERR_GENERAL           0x81000001u
#define SSLCERT_ERR_NULL_POINTER      0x81000002u
#define SSLCERT_ERR_NO_DB             0x81000005u
#define SSLCERT_ERR_DB_READ           0x81000006u
#define SSLCERT_ERR_DB_WRITE          0x81000007u
#define SSLCERT_ERR_FILE_TIME         0x8100000Eu
#define SSLCERT_ERR_FILE_OPEN         0x81000015u
#define SSLCERT_ERR_EXT_FILE_MISSING  0x81000017u
#define SSLCERT_ERR_NOT_SERVER_CERT   0x98000001u
#define SSLCERT_ERR_TMP_CERT_UNREAD   0x98000002u
#define SSLCERT_ERR_CERT_PARSE        0x98000003u
#define SSLCERT_ERR_CERT_EXPIRED      0x98000004u
#define SSLCERT_ERR_FILE_TOO_BIG      0x98000005u
#define SSLCERT_ERR_KEY_ENCRYPTED     0x98000006u
#define SSLCERT_ERR_KEY_MISMATCH      0x98000007u
#define SSLCERT_ERR_GEN_REQUEST       0x98000008u
#define SSLCERT_ERR_FILE_MISSING      0x98000009u
#define SSLCERT_ERR_MD5_SIGNATURE     0x9800000Au
/* Management codes handed to management callers. */
#define SSLCERT_MGMT_INFO_UNAVAILABLE 0x18000019u
#define SSLCERT_MGMT_GEN_FAILED       0x1800001Au
#define SSLCERT_MGMT_IMPORT_FAILED    0x1800001Bu
#define SSLCERT_MGMT_GEN_BAD_REQUEST  0x1800041Cu
#define SSLCERT_MGMT_PLATFORM_BUSY    0x1800081Bu
/* Codes that only the platform produces. */
#define BMC_PLATFORM_ERR_1            0x82000001u
#define BMC_PLATFORM_ERR_2            0x82000002u

/* ---- Fixed limits ------------------------------------------------------ */
#define SSLCERT_PATH_BUF_SIZE     126u /* every caller's path buffer */
#define SSLCERT_INFO_DB_KEY       0x221101FFu
#define SSLCERT_GEN_KEYLEN_1024   1024u
#define SSLCERT_GEN_KEYLEN_2048   2048u
#define SSLCERT_GEN_MAX_DAYS      5475u
#define SSLCERT_OPERATE_LOG_CLASS 37u
#define SSLCERT_UPLOAD_PATH_SIZE  1025u
#define SSLCERT_UPLOAD_MAX_BYTES  8191

/* ---- Shared records ---------------------------------------------------- */

/* Origin of a management request as the operation log records it. The
 * library never interprets it; it hands the word and both texts on. */
typedef struct LogOrigin_s {
    char szUserName[33];
    char szClientAddr[47];
    uint32_t uiInterface;
} LogOrigin;
BMCCERT_LAYOUT_ASSERT(LogOrigin_size, sizeof(LogOrigin) == 84);
BMCCERT_LAYOUT_ASSERT(LogOrigin_text2, offsetof(LogOrigin, szClientAddr) == 33);
BMCCERT_LAYOUT_ASSERT(LogOrigin_word, offsetof(LogOrigin, uiInterface) == 80);

/* Operation-log description filled by the library. */
typedef struct OperateDesc_s {
    char szOperateDesc[512];
    uint8_t ucLogClass; /* always SSLCERT_OPERATE_LOG_CLASS */
} OperateDesc;
BMCCERT_LAYOUT_ASSERT(OperateDesc_size, sizeof(OperateDesc) == 513);
BMCCERT_LAYOUT_ASSERT(OperateDesc_class, offsetof(OperateDesc, ucLogClass) == 512);

/* Handle of a task of the controller's task service. */
typedef struct TaskHandle_s {
    uint32_t TaskId;
    uint32_t TaskTag; /* filled by the task service, handed back unchanged */
} TaskHandle;
BMCCERT_LAYOUT_ASSERT(TaskHandle_size, sizeof(TaskHandle) == 8);
BMCCERT_LAYOUT_ASSERT(TaskHandle_tag, offsetof(TaskHandle, TaskTag) == 4);

/* Distinguished name; also the certificate generation request. */
typedef struct SSLCertGenParam_s {
    uint32_t uiKeyLength;
    char szCommonName[65];
    char szOrganisation[65];
    char szOrganisationUnit[65];
    char szLocalityName[129];
    char szStateName[129];
    char szCountryCode[3];
    char szEmailAddress[129];
    uint32_t uiValidDays;
} SSLCertGenParam;
BMCCERT_LAYOUT_ASSERT(GenParam_size, sizeof(SSLCertGenParam) == 596);
BMCCERT_LAYOUT_ASSERT(GenParam_cn, offsetof(SSLCertGenParam, szCommonName) == 4);
BMCCERT_LAYOUT_ASSERT(GenParam_o, offsetof(SSLCertGenParam, szOrganisation) == 69);
BMCCERT_LAYOUT_ASSERT(GenParam_ou, offsetof(SSLCertGenParam, szOrganisationUnit) == 134);
BMCCERT_LAYOUT_ASSERT(GenParam_l, offsetof(SSLCertGenParam, szLocalityName) == 199);
BMCCERT_LAYOUT_ASSERT(GenParam_st, offsetof(SSLCertGenParam, szStateName) == 328);
BMCCERT_LAYOUT_ASSERT(GenParam_c, offsetof(SSLCertGenParam, szCountryCode) == 457);
BMCCERT_LAYOUT_ASSERT(GenParam_email, offsetof(SSLCertGenParam, szEmailAddress) == 460);
BMCCERT_LAYOUT_ASSERT(GenParam_days, offsetof(SSLCertGenParam, uiValidDays) == 592);

/* Certificate details, part of the stored information record. */
typedef struct SSLConfig_s {
    uint32_t uiPublicKeyLen;
    char szVersion[64];
    char szSerialNum[64];
    char szSigAlgorithm[64];
    char szPublicKey[64];
    char szStartDate[64];
    char szExpDate[64];
    char szSSLServer[64];
    char szKeyUsage[255];
    SSLCertGenParam stIssueFrom;
    SSLCertGenParam stIssueTo;
} SSLConfig;
BMCCERT_LAYOUT_ASSERT(SSLConfig_size, sizeof(SSLConfig) == 1900);
BMCCERT_LAYOUT_ASSERT(SSLConfig_ver, offsetof(SSLConfig, szVersion) == 4);
BMCCERT_LAYOUT_ASSERT(SSLConfig_serial, offsetof(SSLConfig, szSerialNum) == 68);
BMCCERT_LAYOUT_ASSERT(SSLConfig_sig, offsetof(SSLConfig, szSigAlgorithm) == 132);
BMCCERT_LAYOUT_ASSERT(SSLConfig_pub, offsetof(SSLConfig, szPublicKey) == 196);
BMCCERT_LAYOUT_ASSERT(SSLConfig_start, offsetof(SSLConfig, szStartDate) == 260);
BMCCERT_LAYOUT_ASSERT(SSLConfig_exp, offsetof(SSLConfig, szExpDate) == 324);
BMCCERT_LAYOUT_ASSERT(SSLConfig_server, offsetof(SSLConfig, szSSLServer) == 388);
BMCCERT_LAYOUT_ASSERT(SSLConfig_ku, offsetof(SSLConfig, szKeyUsage) == 452);
BMCCERT_LAYOUT_ASSERT(SSLConfig_from, offsetof(SSLConfig, stIssueFrom) == 708);
BMCCERT_LAYOUT_ASSERT(SSLConfig_to, offsetof(SSLConfig, stIssueTo) == 1304);

/* Type code and modification times of a certificate's two files. */
typedef struct SSLCertKeyFileInfo_s {
    uint8_t ucCertType;
    char szCertFileTime[126];
    char szKeyFileTime[126];
} SSLCertKeyFileInfo;
BMCCERT_LAYOUT_ASSERT(KeyFileInfo_size, sizeof(SSLCertKeyFileInfo) == 253);
BMCCERT_LAYOUT_ASSERT(KeyFileInfo_cert, offsetof(SSLCertKeyFileInfo, szCertFileTime) == 1);
BMCCERT_LAYOUT_ASSERT(KeyFileInfo_key, offsetof(SSLCertKeyFileInfo, szKeyFileTime) == 127);

/* Information record of the server certificate in force, stored whole
 * under SSLCERT_INFO_DB_KEY. */
typedef struct SSLCertInfo_s {
    SSLCertKeyFileInfo stKeyFileInfo;
    SSLConfig stSSLConfig;
} SSLCertInfo;
BMCCERT_LAYOUT_ASSERT(CertInfo_size, sizeof(SSLCertInfo) == 2156);
BMCCERT_LAYOUT_ASSERT(CertInfo_config, offsetof(SSLCertInfo, stSSLConfig) == 256);
BMCCERT_LAYOUT_ASSERT(CertInfo_exp, offsetof(SSLCertInfo, stSSLConfig.szExpDate) == 580);
BMCCERT_LAYOUT_ASSERT(CertInfo_ku, offsetof(SSLCertInfo, stSSLConfig.szKeyUsage) == 708);
BMCCERT_LAYOUT_ASSERT(CertInfo_from_cn,
                      offsetof(SSLCertInfo, stSSLConfig.stIssueFrom.szCommonName) == 968);
BMCCERT_LAYOUT_ASSERT(CertInfo_to_cn,
                      offsetof(SSLCertInfo, stSSLConfig.stIssueTo.szCommonName) == 1564);
BMCCERT_LAYOUT_ASSERT(CertInfo_to_days,
                      offsetof(SSLCertInfo, stSSLConfig.stIssueTo.uiValidDays) == 2152);

/* Import request of an uploaded certificate and key. */
typedef struct UploadParam_s {
    struct LogOrigin_s LogOrigin;
    char CertSrcPath[1025];
    char PrivkeySrcPath[1025];
} UploadParam;
BMCCERT_LAYOUT_ASSERT(UploadParam_cert, offsetof(UploadParam, CertSrcPath) == 84);
BMCCERT_LAYOUT_ASSERT(UploadParam_key, offsetof(UploadParam, PrivkeySrcPath) == 1109);
BMCCERT_LAYOUT_ASSERT(UploadParam_size, sizeof(UploadParam) == 2136);

/* ---- Server certificate locations and type ------------------------------ */
BMCCERT_API uint32_t LIB_SECURITY_GetCertType(void);
BMCCERT_API uint32_t LIB_SECURITY_GetSSLCertKeyPath(uint32_t uiCertType, uint32_t uiCertPathSize,
                                                    uint32_t uiKeyPathSize, char *pcCertPath,
                                                    char *pcKeyPath);

/* ---- X.509 field extraction -------------------------------------------- */
BMCCERT_API uint32_t SECURITY_SSL_GetSSLCertX509_Parse(uint32_t uiCertType,
                                                       SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetIssueFrom(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetIssueTo(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_ParseKeyUsage(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetCertVersion(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetPublicKeyLength(struct x509_st *pstCert,
                                                     SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_ParseSSLCert(const struct X509_name_st *pstContentName,
                                               SSLCertGenParam *pstSSLCert);

/* ---- Text dump of a certificate and file attributes -------------------- */

/* One row of the text-dump parse table: a value follows the first
 * delimiter of a line that holds the keyword, uiSkip characters on. */
typedef struct CertTextParseRow_s {
    const char *pcKeyword;
    uint32_t uiSkip;
    uint32_t uiDelimiter; /* one character */
} CertTextParseRow;

BMCCERT_API int32_t SECURITY_SSL_GetSSLCertCommon(uint32_t uiCertType, SSLConfig *pstSSLConfig);
BMCCERT_API void SECURITY_SSL_ParseCommon(const char *pcReadline,
                                          const CertTextParseRow *pstParseTable,
                                          uint32_t uiBufferSize, char *pcBuffer);
BMCCERT_API uint32_t SECURITY_SSL_GetSSLCertAttributes(uint32_t uiCertType,
                                                       SSLCertKeyFileInfo *pstSSLCertKeyFileInfo);

/* ---- Information record and its cache ----------------------------------- */
BMCCERT_API uint32_t LIB_SECURITY_GetCertInfo(SSLCertInfo *pstSSLCertInfo);
BMCCERT_API int32_t LIB_SECURITY_GetCertLeftExpires(void);
BMCCERT_API int32_t SECURITY_UpdateCertInfo(void);
BMCCERT_API uint32_t SECURITY_GetCertInfoFromFile(SSLCertInfo *pstSSLCertInfo);
BMCCERT_API uint32_t SECURITY_GetCertInfoFromDB(SSLCertInfo *pstSSLCertInfo);

/* ---- Generation request, key and certificate generation ------------------ */
BMCCERT_API uint32_t SECURITY_SSL_GenSSLCert_Check(const SSLCertGenParam *pstSSLCert);
BMCCERT_API uint32_t SECURITY_SSL_ConfFile_Check(const SSLCertGenParam *pstSSLCert);
BMCCERT_API uint32_t LIB_SECURITY_GenCert(const SSLCertGenParam *pstSSLCert);

/* ---- Temporary certificate verification -------------------------------- */
BMCCERT_API uint32_t SECURITY_SSL_VerifyTmpCert(uint32_t uiCertType);
BMCCERT_API uint32_t SECURITY_SSL_VerifyGENTmpCert(void);
BMCCERT_API uint32_t LIB_SECURITY_VerifyCert(void);

/* ---- Installation and the tunnel configuration --------------------------- */
BMCCERT_API uint32_t SECURITY_SSL_UpdateSSLCert(const char *pcTmpCert, const char *pcTmpPrivkey);
BMCCERT_API uint32_t LIB_SECURITY_SSL_ModStunnelConfFile(const char *pcCertPath,
                                                         const char *pcKeyPath);

/* ---- Generate and restart the services ----------------------------------- */
BMCCERT_API uint32_t LIB_SECURITY_GenAndRestartService(const SSLCertGenParam *pstSSLCert,
                                                       OperateDesc *pstOperateLog);

/* ---- Upload and import of a certificate and key -------------------------- */
BMCCERT_API uint32_t SECURITY_SSL_GetUploadCert(const UploadParam *pstUploadPath);
BMCCERT_API uint32_t SECURITY_SSL_ValidateSSLCert(void);
BMCCERT_API uint32_t SECURITY_SSL_VerifyUploadTmpCert(void);
BMCCERT_API uint32_t SECURITY_SSL_RegisterImportTask(const char *pcTaskDesc, TaskHandle *pstTask);
BMCCERT_API void SECURITY_SSL_UpdateImportTask(uint32_t uiTaskId, uint8_t ucState,
                                               uint8_t ucProgress, const char *pcTaskAbnormalInfo);
BMCCERT_API uint32_t LIB_SECURITY_UploadAndRestartService(const UploadParam *pstUploadParam,
                                                          TaskHandle *pstTask);
BMCCERT_API uint32_t SECURITY_SSL_ImportCert(const UploadParam *pstUploadParam,
                                             TaskHandle *pstTask);
BMCCERT_API void *SECURITY_SSL_ImportServerCertThread(void *pParam);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SECURITY_SSLCERT_H */
