// The certificate file-name check, reached through the root import. The
// stand-in's fault switch makes the record owner refuse every call, so the
// owner never reads a file and the import's answer tells which rule the
// name broke, each mapped to its own management code, or that it passed
// (the owner's refusal): that answer must be the one a model of the rules
// gives, and no task may come back. The same bytes as a record's file
// name: a name the record rule lets through stays in its directory and
// holds only printable characters.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "frame/record_file_name.h"
#include "fuzz/fuzz_support.h"
#include "lib_ssl_auth.h"

namespace {

// The rules in their order: a directory part, at most 32 characters after
// it, a .cer, .crt or .pem extension, none of ` & ( ) ; ' and space.
uint32_t Expected(const std::string &path) {
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return 0x18000006; // not a rule's code: the default
    const std::string name = path.substr(slash + 1);
    if (name.size() > 32) return 0x18000408;
    const size_t dot = name.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : name.substr(dot);
    if (extension != ".cer" && extension != ".crt" && extension != ".pem") return 0x1800040A;
    if (name.find_first_of("`&();' ") != std::string::npos) return 0x18000409;
    return 0x18000806; // passed: the owner's refusal 0x82000001, mapped
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    setenv("BMC_SIM_FAULTS", "MRPC_Call=0x82000001", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bmcfuzz::KeepDiagLogSmall();
    static unsigned calls = 0;
    if (++calls % 4096 == 0) (void)truncate("/var/lib/bmc-sim/operate.log", 0);
    const std::string path(reinterpret_cast<const char *>(data), size);
    LogOrigin origin{};
    TaskHandle task{};
    const uint32_t result = LIB_SSL_ImportRootCert(&origin, path.c_str(), 10, &task);
    // The library reads the path as a C text: it ends at the first NUL.
    BMCFUZZ_CHECK(result == Expected(path.substr(0, path.find('\0'))));
    BMCFUZZ_CHECK(task.TaskId == 0);
    if (bmccert::IsPlainFileName(path)) {
        const std::filesystem::path joined = std::filesystem::path("/d") / path;
        BMCFUZZ_CHECK(joined.lexically_normal().parent_path() == "/d" && joined.filename() == path);
        for (const char c : path)
            BMCFUZZ_CHECK(c > ' ' && c < 0x7f);
    }
    return 0;
}
