// The library frame shared by both source units: diagnostics, the
// null-pointer and close-failure reports, and owners for OpenSSL objects,
// C streams and named file locks.
//
// A unit's internal header defines kDiagSubModule, kNullReportModule and
// kNullReportSubModule in its namespace before the macros below are used
// there.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ocsp.h>
#include <openssl/pkcs7.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "frame/field_text.h"
#include "frame/openssl_no_time_t.h"
#include "platform/bmc_platform.h"

namespace bmccert {

inline constexpr uint32_t kDiagModule = 31;

// Seconds from now until a time stamp, negative once it has passed (the
// stamp's own second still counts as not passed). In double precision from
// 64-bit stamps, so that it stays right past 2038 on a 32-bit controller.
[[nodiscard]] double SecondsUntil(BMC_TimeStamp when);
// An ASN1 time in seconds since 1970-01-01 UTC (64 bits on every target);
// false when it cannot be read.
[[nodiscard]] bool Asn1Seconds(const ASN1_TIME *time, int64_t &seconds);

// Diagnostic levels: lower is graver.
inline constexpr uint32_t kLevelFailure = 2;
inline constexpr uint32_t kLevelHandling = 4;
inline constexpr uint32_t kLevelNotice = 6;
inline constexpr uint32_t kLevelNote = 7;

// One owner type per OpenSSL object, declared once with its free function.
template <typename T> struct OpenSslDeleter;
#define BMCCERT_OPENSSL_DELETER(type, freeFn)                                                      \
    template <> struct OpenSslDeleter<type> {                                                      \
        void operator()(type *object) const noexcept { freeFn(object); }                           \
    }
BMCCERT_OPENSSL_DELETER(X509, X509_free);
BMCCERT_OPENSSL_DELETER(EVP_PKEY, EVP_PKEY_free);
BMCCERT_OPENSSL_DELETER(BIO, BIO_free);
BMCCERT_OPENSSL_DELETER(SSL_CTX, SSL_CTX_free);
BMCCERT_OPENSSL_DELETER(EVP_PKEY_CTX, EVP_PKEY_CTX_free);
BMCCERT_OPENSSL_DELETER(X509_REQ, X509_REQ_free);
BMCCERT_OPENSSL_DELETER(X509_NAME, X509_NAME_free);
BMCCERT_OPENSSL_DELETER(X509_EXTENSION, X509_EXTENSION_free);
BMCCERT_OPENSSL_DELETER(BIGNUM, BN_free);
BMCCERT_OPENSSL_DELETER(X509_STORE, X509_STORE_free);
BMCCERT_OPENSSL_DELETER(X509_STORE_CTX, X509_STORE_CTX_free);
BMCCERT_OPENSSL_DELETER(X509_CRL, X509_CRL_free);
BMCCERT_OPENSSL_DELETER(PKCS7, PKCS7_free);
BMCCERT_OPENSSL_DELETER(OCSP_REQUEST, OCSP_REQUEST_free);
BMCCERT_OPENSSL_DELETER(OCSP_CERTID, OCSP_CERTID_free);
BMCCERT_OPENSSL_DELETER(OCSP_RESPONSE, OCSP_RESPONSE_free);
BMCCERT_OPENSSL_DELETER(OCSP_BASICRESP, OCSP_BASICRESP_free);
BMCCERT_OPENSSL_DELETER(ECDSA_SIG, ECDSA_SIG_free);
#undef BMCCERT_OPENSSL_DELETER
template <typename T> using UniquePtr = std::unique_ptr<T, OpenSslDeleter<T>>;

// The place in the source that a report names.
struct SourcePlace {
    const char *file;
    const char *function;
    int line;
};
#define BMCCERT_CALLER_PLACE                                                                       \
    ::bmccert::SourcePlace {                                                                       \
        __builtin_FILE(), __builtin_FUNCTION(), __builtin_LINE()                                   \
    }

// The base name of a source path, as reports name their file.
[[nodiscard]] const char *SourceBaseName(const char *path);

// Writes the close-failure report for a failed fclose at the given place.
void ReportCloseFailure(const SourcePlace &where);

// A C stream that is closed on every path. Close() is the closing the
// algorithm asks for, reported when it fails; the destructor only covers
// early exits and does not report.
class StdioFile {
  public:
    StdioFile() = default;
    StdioFile(const char *path, const char *mode) : fp_(std::fopen(path, mode)) {}
    StdioFile(const StdioFile &) = delete;
    StdioFile &operator=(const StdioFile &) = delete;
    ~StdioFile() {
        if (fp_ != nullptr) std::fclose(fp_);
    }

    [[nodiscard]] bool IsOpen() const { return fp_ != nullptr; }
    [[nodiscard]] FILE *get() const { return fp_; }

    // Closes the stream; a failure gets the close-failure report and is
    // otherwise ignored, as the operations carry on after it.
    void Close(const SourcePlace &where = BMCCERT_CALLER_PLACE);

  private:
    FILE *fp_ = nullptr;
};

// Holds a named platform file lock from construction to destruction.
class NamedFileLock {
  public:
    explicit NamedFileLock(const char *name) {
        // The acquisition waits until the lock is free; its result is not
        // examined, a failed one leaves the handle at 0.
        (void)BMC_FileLock_AcquireLock(name, &handle_);
    }
    NamedFileLock(const NamedFileLock &) = delete;
    NamedFileLock &operator=(const NamedFileLock &) = delete;
    ~NamedFileLock() {
        if (handle_ != 0) (void)BMC_FileLock_ReleaseLock(handle_);
    }

  private:
    uint32_t handle_ = 0;
};

} // namespace bmccert

// Diagnostic of the current source unit (module 31, its sub-module).
#define BMCCERT_DIAG(level, ...)                                                                   \
    ::BMC_DiagLogOut(::bmccert::kDiagModule, kDiagSubModule, (level), __LINE__, __FILE_NAME__,     \
                     __VA_ARGS__)

// The null-pointer report names the parameter as written in the code and
// goes out with the module and sub-module of the current source unit.
#define BMCCERT_REPORT_NULL(name)                                                                  \
    BMCCERT_REPORT_NULL_AS(kNullReportModule, kNullReportSubModule, name)
#define BMCCERT_REPORT_NULL_AS(module, subModule, name)                                            \
    ::BMC_DiagLogOut((module), (subModule), ::bmccert::kLevelNote, __LINE__, __FILE_NAME__,        \
                     "Pointer " #name " is Null, File:%s Func:%s Line:%d", __FILE_NAME__,          \
                     __func__, __LINE__)

// Argument check: reports a null pointer and returns the given result.
#define BMCCERT_CHECK_NULL(pointer, result)                                                        \
    do {                                                                                           \
        if ((pointer) == nullptr) {                                                                \
            BMCCERT_REPORT_NULL(pointer);                                                          \
            return (result);                                                                       \
        }                                                                                          \
    } while (0)
