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

/* Distinguished name; also the certificate generation request. As a
 * request every field is mandatory; SECURITY_SSL_GenSSLCert_Check gives
 * the rule of each. In a name read from a certificate uiKeyLength and
 * uiValidDays are never written (see SSLConfig). */
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

/* Certificate details, part of the stored information record.
 * szSerialNum, szSigAlgorithm, szStartDate, szExpDate and szSSLServer come
 * from the openssl tool's text dump (SECURITY_SSL_GetSSLCertCommon);
 * uiPublicKeyLen, szVersion, szKeyUsage and the two names from the
 * certificate itself (SECURITY_SSL_GetSSLCertX509_Parse). Always empty or
 * 0, whatever the certificate:
 *  - szPublicKey: the dump of OpenSSL 1.1 and 3 writes "Public-Key:", not
 *    the "Public Key:" line the parse table looks for (the key's size is in
 *    uiPublicKeyLen);
 *  - uiKeyLength and uiValidDays of stIssueFrom and stIssueTo.
 * Empty when the certificate lacks them: szKeyUsage (no key-usage
 * extension) and each name attribute that is absent. */
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

/*
 * Every function below returns a result code (SSLCERT_* above) unless its
 * comment says otherwise; the details of a failure go to the platform's
 * diagnostics log. "Runs the openssl tool" means the call starts a process
 * and waits for it; all others do their work in the calling thread. Any
 * function may be called from several threads and processes at once.
 * Generation, import and installation (LIB_SECURITY_GenAndRestartService,
 * LIB_SECURITY_GenCert, SECURITY_SSL_ConfFile_Check,
 * SECURITY_SSL_GetUploadCert, SECURITY_SSL_ValidateSSLCert, the import
 * thread, SECURITY_SSL_UpdateSSLCert) hold the named lock
 * "sslcert_install.lock" while they write their temporary files and install
 * a pair, so several of them at once run one after the other and never mix
 * their files; the readers take no part in it.
 */

/* ---- Server certificate locations and type ------------------------------ */

/* The type of the server certificate in force. The kinds are looked for in
 * the order SSL_CERT_TYPE_USER, _OEM_CUSTOM and _OEM_DEFAULT (these two only
 * when the platform's OEM flag is SSL_CERT_OEM_FLAG_OEM), _DEFAULT, and the
 * first whose certificate file exists decides, key or not: its type when
 * its key file exists too, SSL_CERT_TYPE_NONE when it does not (a
 * certificate without its key answers 0 even when a later kind is whole).
 * SSL_CERT_TYPE_NONE also when no certificate file exists. Returns the type
 * code, not a result code. Reads file metadata. */
BMCCERT_API uint32_t LIB_SECURITY_GetCertType(void);

/* Copies the certificate and key file paths of uiCertType (1 to 6) into
 * pcCertPath and pcKeyPath, cut to the given buffer sizes (terminator
 * included; SSLCERT_PATH_BUF_SIZE suffices). Results: 0;
 * SSLCERT_ERR_GENERAL for a type outside 1..6 (buffers untouched);
 * SSLCERT_ERR_NULL_POINTER. Does no I/O. */
BMCCERT_API uint32_t LIB_SECURITY_GetSSLCertKeyPath(uint32_t uiCertType, uint32_t uiCertPathSize,
                                                    uint32_t uiKeyPathSize, char *pcCertPath,
                                                    char *pcKeyPath);

/* ---- X.509 field extraction -------------------------------------------- */

/* Reads the first PEM certificate of uiCertType's file and fills issuer,
 * subject, key usage, version and key length of pstSSLConfig, in that
 * order, stopping at the first field that fails. Results: 0;
 * SSLCERT_ERR_GENERAL (no path for the type); SSLCERT_ERR_FILE_OPEN;
 * SSLCERT_ERR_CERT_PARSE (no certificate, or a field failed);
 * SSLCERT_ERR_NULL_POINTER. Reads the file; no process. */
BMCCERT_API uint32_t SECURITY_SSL_GetSSLCertX509_Parse(uint32_t uiCertType,
                                                       SSLConfig *pstSSLConfig);
/* The five extractors over a certificate the caller holds (only read):
 * issuer name into stIssueFrom, subject name into stIssueTo (both 0,
 * SSLCERT_ERR_CERT_PARSE), key usage text into szKeyUsage ("Digital
 * Signature, Key Encipherment"; 0 with szKeyUsage untouched when the
 * certificate has no key-usage extension, SSLCERT_ERR_GENERAL when
 * OpenSSL finds no usage bit or the certificate invalid), "1" to "3" into
 * szVersion (SSLCERT_ERR_GENERAL for another version), key size in bits
 * into uiPublicKeyLen (SSLCERT_ERR_GENERAL without a key). Each returns
 * SSLCERT_ERR_NULL_POINTER for a null argument. No I/O. */
BMCCERT_API uint32_t SECURITY_SSL_GetIssueFrom(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetIssueTo(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_ParseKeyUsage(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetCertVersion(struct x509_st *pstCert, SSLConfig *pstSSLConfig);
BMCCERT_API uint32_t SECURITY_SSL_GetPublicKeyLength(struct x509_st *pstCert,
                                                     SSLConfig *pstSSLConfig);
/* Copies CN, C, L, ST, O, OU and emailAddress of an X509_NAME (only read)
 * into the text fields of pstSSLCert, as stored and cut to each field;
 * absent attributes stay empty. Results: 0, SSLCERT_ERR_NULL_POINTER. */
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

/* Fills serial number, signature algorithm, public key, start and expiry
 * dates (ISO text, UTC) and SSL-server purpose of pstSSLConfig from the
 * openssl tool's text dump of uiCertType's certificate, and nothing else.
 * Results (signed): 0; SSLCERT_ERR_GENERAL (no path, or the tool failed);
 * SSLCERT_ERR_FILE_OPEN (dump unreadable); SSLCERT_ERR_NULL_POINTER.
 * Runs the openssl tool, holding the named lock sslcert_tmp_file.lock
 * (other callers wait for it). */
BMCCERT_API int32_t SECURITY_SSL_GetSSLCertCommon(uint32_t uiCertType, SSLConfig *pstSSLConfig);
/* Copies into pcBuffer (uiBufferSize bytes) the value that a parse-table
 * row finds in one dump line; leaves pcBuffer alone when the line does not
 * hold the row's keyword. No result; no I/O. */
BMCCERT_API void SECURITY_SSL_ParseCommon(const char *pcReadline,
                                          const CertTextParseRow *pstParseTable,
                                          uint32_t uiBufferSize, char *pcBuffer);
/* The type code and the modification times (ISO text) of uiCertType's
 * certificate and key files. Results: 0; SSLCERT_ERR_GENERAL (no path);
 * SSLCERT_ERR_FILE_TIME (a file's time unreadable: the certificate's time
 * may already be written); SSLCERT_ERR_NULL_POINTER. Reads metadata. */
BMCCERT_API uint32_t SECURITY_SSL_GetSSLCertAttributes(uint32_t uiCertType,
                                                       SSLCertKeyFileInfo *pstSSLCertKeyFileInfo);

/* ---- Information record and its cache ----------------------------------- */

/* The information record of the certificate in force: the stored record
 * when there is one, otherwise read from the files and then stored.
 * Results: 0; SSLCERT_MGMT_INFO_UNAVAILABLE (neither source answered, or a
 * null pointer). Served from the database it starts no process; the
 * fallback runs the openssl tool once. */
BMCCERT_API uint32_t LIB_SECURITY_GetCertInfo(SSLCertInfo *pstSSLCertInfo);
/* Whole days until the certificate in force expires, rounded down: 0 alike
 * when it has expired, when its information cannot be read, and when less
 * than a day is left; 24855 at most (the seconds saturate at 32 bits).
 * Returns the count, not a result code. As LIB_SECURITY_GetCertInfo. */
BMCCERT_API int32_t LIB_SECURITY_GetCertLeftExpires(void);
/* The refresh after an installation: reads the certificate in force from
 * its files and stores its record. Results (signed): 0; the code of
 * SECURITY_GetCertInfoFromFile when the read failed (the stored record
 * stays as it was); SSLCERT_ERR_NO_DB; SSLCERT_ERR_DB_WRITE (the database
 * refused the write). Runs the openssl tool once. */
BMCCERT_API int32_t SECURITY_UpdateCertInfo(void);
/* Reads the record from the files of the certificate in force, without
 * storing it, in three steps; the fields of the steps done before a failure
 * stay written. Results: 0; SSLCERT_ERR_GENERAL (no certificate in force);
 * otherwise the failing step's own code: SECURITY_SSL_GetSSLCertAttributes
 * (SSLCERT_ERR_FILE_TIME), SECURITY_SSL_GetSSLCertCommon
 * (SSLCERT_ERR_GENERAL, SSLCERT_ERR_FILE_OPEN),
 * SECURITY_SSL_GetSSLCertX509_Parse (SSLCERT_ERR_FILE_OPEN,
 * SSLCERT_ERR_CERT_PARSE); SSLCERT_ERR_NULL_POINTER. Runs the openssl tool
 * once. */
BMCCERT_API uint32_t SECURITY_GetCertInfoFromFile(SSLCertInfo *pstSSLCertInfo);
/* Reads the stored record. Results: 0; SSLCERT_MGMT_INFO_UNAVAILABLE (no
 * database, no record or a null pointer). No process. */
BMCCERT_API uint32_t SECURITY_GetCertInfoFromDB(SSLCertInfo *pstSSLCertInfo);

/* ---- Generation request, key and certificate generation ------------------ */

/* Checks a generation request field by field, in this order, and stops at
 * the first refused one. All seven texts are mandatory, and each must end
 * inside its field (a field filled to its last byte is refused):
 *  - uiKeyLength: 1024 or 2048;
 *  - uiValidDays: 1 to 5475;
 *  - szEmailAddress (at most 128 characters): LOCAL@DOMAIN. LOCAL is ASCII
 *    letters and digits, in runs joined by a single '_', '.' or '-';
 *    DOMAIN is one or more labels each followed by '.', a label being
 *    letters and digits in runs joined by a single '-' or '_', then a last
 *    label of 1 to 128 letters and digits: "admin@bmc-07.example.org"
 *    passes, "admin@localhost", "a..b@example.org" and ".a@example.org" do
 *    not;
 *  - szCountryCode: exactly two ASCII letters, either case ("DE", "us");
 *  - szCommonName, szOrganisation, szOrganisationUnit, szLocalityName,
 *    szStateName, in that order (at most 64, 64, 64, 128 and 128
 *    characters): ASCII letters, digits, space, '_', '.' and '-' only,
 *    szOrganisation also ','; not empty, not white space only, not digits
 *    only ("bmc-07.example.org" and "Example, Inc." (O) pass, "12345",
 *    "  " and "a+b" do not).
 * Results: 0; SSLCERT_ERR_GENERAL (a field is refused: the diagnostics name
 * it); SSLCERT_ERR_NULL_POINTER. No I/O. */
BMCCERT_API uint32_t SECURITY_SSL_GenSSLCert_Check(const SSLCertGenParam *pstSSLCert);
/* Writes the openssl request configuration /var/certs/sslconf from the
 * request, each text read no further than its field (a field without a
 * terminator is cut to the field). Results: 0; SSLCERT_ERR_GENERAL (a text
 * holds a line break, which would start a line of its own, and nothing is
 * written; or a write failed); SSLCERT_ERR_FILE_OPEN; SSLCERT_ERR_EXT_FILE_MISSING
 * (no /conf/certs/server/cert_v3_extfile.ext); SSLCERT_ERR_NULL_POINTER.
 * Writes a file; no process. */
BMCCERT_API uint32_t SECURITY_SSL_ConfFile_Check(const SSLCertGenParam *pstSSLCert);
/* Makes a new RSA key and a self-signed certificate from the request and
 * installs them as the user certificate (SECURITY_SSL_UpdateSSLCert); the
 * services are not restarted. Results: 0; SSLCERT_ERR_GEN_REQUEST (refused
 * by SECURITY_SSL_GenSSLCert_Check); SSLCERT_ERR_GENERAL (the request
 * configuration could not be written, whatever SECURITY_SSL_ConfFile_Check
 * said, or a tool run or the installation failed);
 * SSLCERT_ERR_NULL_POINTER. Runs the openssl tool several times; key
 * generation takes seconds. */
BMCCERT_API uint32_t LIB_SECURITY_GenCert(const SSLCertGenParam *pstSSLCert);

/* ---- Temporary certificate verification -------------------------------- */

/* Verifies the temporary certificate of uiCertType (SSL_CERT_TYPE_UPLOAD_TMP
 * or _GEN_TMP; any type 1 to 6 is read the same way) from the openssl
 * tool's text dump, in this order: it must serve SSL, not be signed with
 * MD5 and not have expired. Results: 0; SSLCERT_ERR_TMP_CERT_UNREAD (the
 * dump failed: a type outside 1..6, the tool failed, or the dump could not
 * be read); SSLCERT_ERR_NOT_SERVER_CERT; SSLCERT_ERR_MD5_SIGNATURE;
 * SSLCERT_ERR_GENERAL (the expiry date could not be read);
 * SSLCERT_ERR_CERT_EXPIRED. Runs the openssl tool once. */
BMCCERT_API uint32_t SECURITY_SSL_VerifyTmpCert(uint32_t uiCertType);
/* SECURITY_SSL_VerifyTmpCert of the generated temporary certificate
 * /var/certs/TmpCertGen.pem, with its results. */
BMCCERT_API uint32_t SECURITY_SSL_VerifyGENTmpCert(void);
/* The same verification, its failures folded: 0 or SSLCERT_ERR_GENERAL. */
BMCCERT_API uint32_t LIB_SECURITY_VerifyCert(void);

/* ---- Installation and the tunnel configuration --------------------------- */

/* Installs a certificate and key pair as the user certificate: copies them
 * under /conf/certs/server/user/ (the key private, mode 0600), writes the
 * combined /conf/certs/server/server.pem, points the tunnel at the pair and
 * refreshes the stored record. The services are not restarted. All or
 * nothing: the new and the previous set are journaled first; a failed step
 * puts the previous set back, and an installation cut by a power cut is
 * completed by the next one or by LIB_SECURITY_SSL_CompleteInstallation
 * (lib_security_sslcert_ext.h). Results: 0; SSLCERT_ERR_GENERAL (a step
 * failed; the certificate in force did not change); SSLCERT_ERR_NULL_POINTER.
 * Runs shell commands and the openssl tool. */
BMCCERT_API uint32_t SECURITY_SSL_UpdateSSLCert(const char *pcTmpCert, const char *pcTmpPrivkey);
/* Rewrites the cert = and key = lines of /conf/adviserd/stunnel.conf
 * atomically (a scratch file renamed over it), holding the named lock
 * stunnel_file.lock. Results: 0; SSLCERT_ERR_GENERAL (the old file stays);
 * SSLCERT_ERR_NULL_POINTER. Waits for the lock; no process. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_ModStunnelConfFile(const char *pcCertPath,
                                                         const char *pcKeyPath);

/* ---- Generate and restart the services ----------------------------------- */

/* The management entry of a generation: checks the request, generates and
 * installs a new certificate, restarts stunnel.service (and waits for
 * systemctl) and lighttpd.service 2 seconds later in the background, and
 * writes the outcome's description into pstOperateLog. Results (management
 * codes), and whether the certificate in force changed:
 *  - 0: the new certificate is installed and the restarts are under way;
 *  - SSLCERT_MGMT_GEN_BAD_REQUEST: the request was refused; nothing changed;
 *  - SSLCERT_MGMT_PLATFORM_BUSY: the platform refused a call; nothing
 *    changed when it refused during the generation, the new certificate is
 *    in force when it refused the tunnel's restart;
 *  - SSLCERT_MGMT_GEN_FAILED: any other failure, a null pointer included;
 *    nothing changed when the generation or the installation failed, the
 *    new certificate is in force (installed, but not yet served) when the
 *    tunnel's restart or the start of the web server's restart failed.
 *    The diagnostics log tells which ("Generate Cert:gen cert failed!"
 *    before anything changed, "Generate Cert:Restart ... failed!" after);
 *    `bmccert generate` says "installed, but the tunnel did not restart".
 * Runs the openssl tool, systemctl and a background shell; takes seconds. */
BMCCERT_API uint32_t LIB_SECURITY_GenAndRestartService(const SSLCertGenParam *pstSSLCert,
                                                       OperateDesc *pstOperateLog);

/* ---- Upload and import of a certificate and key -------------------------- */

/* Fetches the uploaded certificate and key named by the request into
 * /var/certs/actualcert.pem and /var/certs/actualprivkey.pem through the
 * platform's file transfer. Results: 0; SSLCERT_ERR_GENERAL (a transfer
 * failed); SSLCERT_ERR_NULL_POINTER. Copies files; no process. */
BMCCERT_API uint32_t SECURITY_SSL_GetUploadCert(const UploadParam *pstUploadPath);
/* Validates the fetched pair: both exist (SSLCERT_ERR_FILE_MISSING), at
 * most 8191 bytes each (SSLCERT_ERR_FILE_TOO_BIG; SSLCERT_ERR_GENERAL when
 * a size is unreadable), the key is not pass-phrase encrypted
 * (SSLCERT_ERR_KEY_ENCRYPTED; SSLCERT_ERR_FILE_OPEN), the certificate
 * passes SECURITY_SSL_VerifyTmpCert (its codes), both read as PEM
 * (SSLCERT_ERR_GENERAL) and match in a TLS server context
 * (SSLCERT_ERR_KEY_MISMATCH). 0 when acceptable. Runs the openssl tool. */
BMCCERT_API uint32_t SECURITY_SSL_ValidateSSLCert(void);
/* SECURITY_SSL_VerifyTmpCert of the uploaded temporary certificate
 * /var/certs/actualcert.pem (SSL_CERT_TYPE_UPLOAD_TMP), with its results;
 * the key is not looked at. Runs the openssl tool once. */
BMCCERT_API uint32_t SECURITY_SSL_VerifyUploadTmpCert(void);
/* Registers an import task with the task service, described by
 * pcTaskDesc, and fills pstTask. Results: 0; the task service's own
 * failure code; SSLCERT_ERR_NULL_POINTER. No process. */
BMCCERT_API uint32_t SECURITY_SSL_RegisterImportTask(const char *pcTaskDesc, TaskHandle *pstTask);
/* Reports a task's state (2 finished, 4 failed), progress (percent) and
 * abnormal-information text to the task service. No result: a refused
 * report goes to the diagnostics only. No process. */
BMCCERT_API void SECURITY_SSL_UpdateImportTask(uint32_t uiTaskId, uint8_t ucState,
                                               uint8_t ucProgress, const char *pcTaskAbnormalInfo);
/* The management entry of an upload: registers the import task, fills
 * pstTask, starts the import thread (SSL_ImSrvCerThr) and returns at once;
 * the outcome arrives through the task service and the operation log.
 * Results (management codes): 0; SSLCERT_MGMT_PLATFORM_BUSY (the platform
 * refused); SSLCERT_MGMT_IMPORT_FAILED (any other failure to start, a null
 * pointer included). None of these changes the certificate in force. When
 * the task is registered but its thread cannot start (or the thread's copy
 * of the request cannot be made), the result is SSLCERT_MGMT_IMPORT_FAILED
 * or SSLCERT_MGMT_PLATFORM_BUSY and pstTask is left as it was; the task
 * stays registered with the task service and never gets a final report,
 * and no operation-log entry is written (only a refused registration
 * writes "Failed to import SSL certificate."). The task's outcome: state 2, the new certificate is in force; state 4, it did
 * not change, unless the tunnel's restart failed after the installation
 * (the diagnostics log's "Upload Cert:Restart stunnel service failed!").
 * Starts a thread that runs the openssl tool and restarts both services;
 * the process must outlive it. */
BMCCERT_API uint32_t LIB_SECURITY_UploadAndRestartService(const UploadParam *pstUploadParam,
                                                          TaskHandle *pstTask);
/* The start of an import without the management mapping: registers the
 * task, copies the request for the thread and starts it; pstTask is filled
 * only when the thread runs. Results: 0; the task service's own failure
 * code (then the operation log gets "Failed to import SSL certificate.");
 * the thread creation's own failure code; SSLCERT_ERR_GENERAL (no memory);
 * SSLCERT_ERR_NULL_POINTER. The platform's codes are handed on as they are
 * (0x81000001 and, from some platforms, 0x82000001 or 0x82000002). Starts a
 * thread as above. */
BMCCERT_API uint32_t SECURITY_SSL_ImportCert(const UploadParam *pstUploadParam,
                                             TaskHandle *pstTask);
/* The import thread's body: takes over and frees pParam (the copy that
 * SECURITY_SSL_ImportCert makes), fetches, validates and installs the pair,
 * restarts stunnel.service, reports the task, writes the operation log and
 * restarts lighttpd.service 2 seconds later. Returns NULL. Blocks for
 * seconds; meant to run on its own thread only. */
BMCCERT_API void *SECURITY_SSL_ImportServerCertThread(void *pParam);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SECURITY_SSLCERT_H */
