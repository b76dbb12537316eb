// The stand-in's time parsers: whatever text they accept, its ISO
// rendering reads back as the same time stamp.
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "platform/bmc_platform.h"

namespace {

void CheckRoundTrip(BMC_TimeStamp stamp) {
    char iso[64];
    if (BMC_TimeStampToIsoTime(stamp, sizeof iso, iso) != 0) return; // outside the rendered range
    BMC_TimeStamp again = 0;
    BMCFUZZ_CHECK(BMC_IsoTimeToTimeStamp(iso, &again) == 0);
    BMCFUZZ_CHECK(again == stamp);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    BMC_TimeStamp stamp = 0;
    if (BMC_IsoTimeToTimeStamp(text.c_str(), &stamp) == 0) CheckRoundTrip(stamp);
    if (BMC_EnTimeToTimeStamp(text.c_str(), &stamp) == 0) CheckRoundTrip(stamp);
    return 0;
}
