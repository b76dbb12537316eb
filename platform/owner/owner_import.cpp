// The record owner's imports: the uploaded file is read and checked with
// OpenSSL, copied under /conf/certs/, and described in the first free entry.
#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <climits>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>

#include "frame/record_file_name.h"
#include "platform/owner/record_owner.h"

namespace bmcsim::owner {
namespace {

using Bio = Owned<BIO, BIO_free>;
using Certificate = Owned<X509, X509_free>;
using PublicKey = Owned<EVP_PKEY, EVP_PKEY_free>;

constexpr std::streamsize kUploadMax = 64 * 1024;
constexpr uint32_t kImportTaskType = 0x01000A05;

// The uploaded file's bytes; false when it cannot be read or is too large
// to be a certificate.
[[nodiscard]] bool ReadUpload(const std::string &path, std::string &bytes) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream out;
    out << in.rdbuf();
    bytes = out.str();
    return !in.bad() && static_cast<std::streamsize>(bytes.size()) <= kUploadMax;
}

[[nodiscard]] Certificate ParsePem(const std::string &bytes) {
    if (bytes.size() > INT_MAX) return nullptr;
    Bio bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    Certificate cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    return cert;
}

// The file name of the upload, or "" when it is no plain name that may
// stand in a record.
[[nodiscard]] std::string FileNameOf(const char *path, size_t size) {
    const std::string full(path, strnlen(path, size));
    const size_t slash = full.rfind('/');
    std::string name = slash == std::string::npos ? full : full.substr(slash + 1);
    static_assert(bmccert::kRecordFileNameMax == SSL_AUTH_FILE_NAME_MAX);
    return bmccert::IsPlainFileName(name) ? name : std::string();
}

[[nodiscard]] std::string BioText(BIO *bio) {
    char *data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return length > 0 && data != nullptr ? std::string(data, static_cast<size_t>(length)) : "";
}

[[nodiscard]] std::string ExpiryText(const X509 *cert) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || ASN1_TIME_print(bio.get(), X509_get0_notAfter(cert)) != 1) return {};
    return BioText(bio.get());
}

// Seconds since 1970, saturated at the limits of the stored 32-bit field.
[[nodiscard]] int32_t ExpirySeconds(const X509 *cert) {
    struct tm when {};
    if (ASN1_TIME_to_tm(X509_get0_notAfter(cert), &when) != 1) return 0;
    const int64_t seconds = timegm(&when);
    if (seconds > INT32_MAX) return INT32_MAX;
    if (seconds < INT32_MIN) return INT32_MIN;
    return static_cast<int32_t>(seconds);
}

// The serial number exactly as `openssl x509 -serial` prints it after "serial=".
[[nodiscard]] std::string SerialText(const X509 *cert) {
    Bio bio(BIO_new(BIO_s_mem()));
    if (!bio || i2a_ASN1_INTEGER(bio.get(), X509_get0_serialNumber(cert)) <= 0) return {};
    return BioText(bio.get());
}

template <typename Entry> [[nodiscard]] Entry *FirstFree(Entry (&entries)[20]) {
    for (uint32_t i = 0; i < 20; ++i)
        if (entries[i].uiCertId != i + 1) return &entries[i];
    return nullptr;
}

template <typename Entry>
[[nodiscard]] bool NameTaken(const Entry (&entries)[SSL_AUTH_MAX_CERTS], const std::string &name) {
    for (uint32_t i = 0; i < SSL_AUTH_MAX_CERTS; ++i)
        if (entries[i].uiCertId == i + 1 &&
            name == std::string(entries[i].szFileName, strnlen(entries[i].szFileName, 33)))
            return true;
    return false;
}

} // namespace

bool ReadRecordFile(const char *dir, const char (&fileName)[33], std::string &bytes) {
    if (!bmccert::IsPlainFileName(fileName)) return false;
    const bmccert::UniqueFd fd = bmccert::OpenPlainFileIn(dir, fileName);
    if (!fd.Valid()) return false;
    bytes.clear();
    char chunk[4096];
    for (;;) {
        const ssize_t got = ::read(fd.Get(), chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        bytes.append(chunk, static_cast<size_t>(got));
        if (static_cast<std::streamsize>(bytes.size()) > kUploadMax) return false;
    }
}

bool CopyFileAtomically(const std::string &from, const std::string &to) {
    std::string bytes;
    return ReadUpload(from, bytes) && WriteFileAtomically(to, bytes);
}

bool WriteFileAtomically(const std::string &to, const std::string &bytes) {
    const size_t slash = to.rfind('/');
    if (slash == std::string::npos || !MakeDirs(to.substr(0, slash).c_str())) return false;
    std::string temp = to.substr(0, slash) + "/.owner-copy-XXXXXX";
    UniqueFd fd(::mkstemp(temp.data()));
    if (!fd.Valid()) return false;
    const bool written = ::fchmod(fd.Get(), 0644) == 0 &&
                         WriteAll(fd.Get(), bytes.data(), bytes.size()) && ::fsync(fd.Get()) == 0 &&
                         fd.Close() && ::rename(temp.c_str(), to.c_str()) == 0;
    if (!written) (void)::unlink(temp.c_str());
    return written;
}

uint32_t ImportRoot(Records &records, const RootCertImportReq &request, std::string &copiedFile) {
    const std::string path(request.szFilePath,
                           strnlen(request.szFilePath, sizeof request.szFilePath));
    std::string bytes;
    if (!ReadUpload(path, bytes)) return kPlatformFail;
    Certificate cert = ParsePem(bytes);
    const std::string name = FileNameOf(request.szFilePath, sizeof request.szFilePath);
    if (!cert || name.empty()) return kBadCertificate;
    if (NameTaken(records.roots.astRootCert, name)) return kInUse;
    RootCertInfo *entry = FirstFree(records.roots.astRootCert);
    if (entry == nullptr) return kListFull;
    const std::string target = kRootCertDir + name;
    if (!CopyFileAtomically(path, target)) return kPlatformFail;
    copiedFile = target;

    const auto id = static_cast<uint32_t>(entry - records.roots.astRootCert + 1);
    std::memset(entry, 0, sizeof *entry);
    entry->uiCertId = id;
    (void)BMC_Strlcpy(entry->szFileName, name.c_str(), sizeof entry->szFileName);
    (void)BMC_Strlcpy(entry->szExpDate, ExpiryText(cert.get()).c_str(), sizeof entry->szExpDate);
    entry->iExpTime = ExpirySeconds(cert.get());
    return kOk;
}

uint32_t ImportClient(Records &records, const CliCertImportReq &request, std::string &copiedFile) {
    const uint32_t rootId = request.uiRootCertId;
    if (!ValidId(rootId, SSL_AUTH_MAX_CERTS) ||
        records.roots.astRootCert[rootId - 1].uiCertId != rootId)
        return kAbsent;
    const std::string path(request.szFilePath,
                           strnlen(request.szFilePath, sizeof request.szFilePath));
    std::string bytes;
    if (!ReadUpload(path, bytes)) return kPlatformFail;
    Certificate cert = ParsePem(bytes);
    const std::string name = FileNameOf(request.szFilePath, sizeof request.szFilePath);
    if (!cert || name.empty()) return kBadCertificate;

    // Only a certificate that the named root signed is accepted.
    const RootCertInfo &rootEntry = records.roots.astRootCert[rootId - 1];
    std::string rootBytes;
    Certificate root = ReadRecordFile(kRootCertDir, rootEntry.szFileName, rootBytes)
                           ? ParsePem(rootBytes)
                           : nullptr;
    PublicKey rootKey(root ? X509_get_pubkey(root.get()) : nullptr);
    const bool issued = rootKey && X509_check_issued(root.get(), cert.get()) == X509_V_OK &&
                        X509_verify(cert.get(), rootKey.get()) == 1;
    ERR_clear_error();
    if (!issued) return kBadCertificate;

    const std::string target = kClientCertDir + name;
    // The web server's trusted authority may live beside the client files.
    if (NameTaken(records.clients.astCliCert, name) || target == WebServerCaFile() ||
        target == kWebServerCrlPath)
        return kInUse;
    CliCertInfo *entry = FirstFree(records.clients.astCliCert);
    if (entry == nullptr) return kListFull;
    if (!CopyFileAtomically(path, target)) return kPlatformFail;
    copiedFile = target;

    const auto id = static_cast<uint32_t>(entry - records.clients.astCliCert + 1);
    std::memset(entry, 0, sizeof *entry);
    entry->uiCertId = id;
    entry->uiRootCertId = rootId;
    (void)BMC_Strlcpy(entry->szFileName, name.c_str(), sizeof entry->szFileName);
    (void)BMC_Strlcpy(entry->szSerialNum, SerialText(cert.get()).c_str(),
                      sizeof entry->szSerialNum);
    return kOk;
}

bool RegisterImportTask(bool root, TaskHandle &task) noexcept {
    const char *kind = root ? "Root" : "Client";
    TaskRegisterRecord record;
    std::memset(&record, 0, sizeof record);
    (void)BMC_Scnprintf(record.szTaskDesc, sizeof record.szTaskDesc, "%s Cert import task", kind);
    (void)BMC_Scnprintf(record.szTaskName, sizeof record.szTaskName, "Import task");
    (void)BMC_Scnprintf(record.szStateText, sizeof record.szStateText, "Importing");
    (void)BMC_Scnprintf(record.szServiceName, sizeof record.szServiceName, "lighttpd");
    (void)BMC_Scnprintf(record.szComponentId, sizeof record.szComponentId,
                        "NRV.1.0.Import%sCertComponent", kind);
    (void)BMC_Scnprintf(record.szTargetName, sizeof record.szTargetName, "%s Certificate", kind);
    (void)BMC_Scnprintf(record.szActionText, sizeof record.szActionText, "Import %s Certificate",
                        kind);
    (void)BMC_Scnprintf(record.szStatusText, sizeof record.szStatusText, "OK");
    (void)BMC_Scnprintf(record.szResolution, sizeof record.szResolution, "Automatic.");
    record.uiTaskType = kImportTaskType;
    record.uiWord1 = 1;
    record.uiWord2 = 10;
    record.uiWord4 = 5;
    uint32_t id = 0, tag = 0;
    if (TASK_TaskServiceRegister(&record, &id, &tag, kImportTaskType) != 0) return false;
    task.TaskId = id;
    task.TaskTag = tag;
    return true;
}

void ReportImportTask(bool root, const TaskHandle &task, bool imported) noexcept {
    TaskUpdateRecord update;
    std::memset(&update, 0, sizeof update);
    update.uiTaskId = task.TaskId;
    update.ucState = imported ? 2 : 4;
    update.ucProgress = 100;
    (void)BMC_Scnprintf(update.szAbnormalInfo, sizeof update.szAbnormalInfo,
                        imported ? "%s Cert import successfully" : "%s Cert import failed",
                        root ? "Root" : "Client");
    (void)TASK_TaskServiceUpdate(&update);
}

} // namespace bmcsim::owner
