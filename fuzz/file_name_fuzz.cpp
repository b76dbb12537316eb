// The certificate file-name check, reached through the root import with the
// record owner switched off by the stand-in's fault switch: whatever the
// path, the import answers a failure code and never reaches a shell (the
// owner, which alone would read the file, is never called).
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_support.h"
#include "lib_ssl_auth.h"

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
    BMCFUZZ_CHECK(result != 0);
    BMCFUZZ_CHECK(task.TaskId == 0);
    return 0;
}
