// Time texts, whole and past 2038 also where the target's own time_t is
// narrower. The pattern engine is checked through the generation request.
#include <gtest/gtest.h>

#include "platform/host/bmc_sim.h"

namespace {

constexpr int32_t kFail = static_cast<int32_t>(BMC_PLATFORM_FAIL);

TEST(TimeText, IsoTextAndStampAreInverses) {
    struct Case {
        const char *iso, *en;
        BMC_TimeStamp stamp;
    } cases[] = {{"1970-01-01T00:00:00Z", nullptr, 0},
                 {"1969-12-31T23:59:59Z", nullptr, -1},
                 {"1900-01-01T00:00:00Z", nullptr, -2208988800},
                 {"2038-01-19T03:14:07Z", nullptr, 2147483647},
                 {"2038-01-19T03:14:08Z", "Jan 19 03:14:08 2038 GMT", 2147483648},
                 {"2038-01-05T00:00:00Z", "Jan  5 00:00:00 2038 GMT\n", 2146262400},
                 {"2024-02-29T23:59:59Z", "Feb 29 23:59:59 2024 GMT", 1709251199},
                 {"2026-11-22T19:58:47Z", "Nov 22 19:58:47 2026 GMT", 1795377527},
                 {"2100-03-01T00:00:00Z", nullptr, 4107542400},
                 {"9999-12-31T23:59:59Z", nullptr, 253402300799}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.iso);
        BMC_TimeStamp stamp = 7;
        EXPECT_EQ(BMC_IsoTimeToTimeStamp(c.iso, &stamp), 0);
        EXPECT_EQ(stamp, c.stamp);
        char text[21];
        EXPECT_EQ(BMC_TimeStampToIsoTime(c.stamp, sizeof text, text), 0);
        EXPECT_STREQ(text, c.iso);
        if (c.en == nullptr) continue;
        stamp = 7;
        EXPECT_EQ(BMC_EnTimeToTimeStamp(c.en, &stamp), 0);
        EXPECT_EQ(stamp, c.stamp);
    }
    for (BMC_TimeStamp t = -2208988800; t < 253402300799; t += 7919LL * 3607) {
        char text[32];
        BMC_TimeStamp back = 0;
        ASSERT_EQ(BMC_TimeStampToIsoTime(t, sizeof text, text), 0);
        ASSERT_EQ(BMC_IsoTimeToTimeStamp(text, &back), 0) << text;
        ASSERT_EQ(back, t) << text;
    }
    char small[20] = "junk"; // no room for the whole text: nothing half-written
    EXPECT_EQ(BMC_TimeStampToIsoTime(0, sizeof small, small), kFail);
    EXPECT_STREQ(small, "");
}

TEST(TimeText, InvalidTextsAreRefusedAndLeaveTheStamp) {
    for (const char *iso : {"2023-02-29T00:00:00Z", "2100-02-29T00:00:00Z", "2024-13-01T00:00:00Z",
                            "2024-00-10T00:00:00Z", "2024-04-31T00:00:00Z", "2024-01-01T24:00:00Z",
                            "2024-01-01T00:60:00Z", "2024-01-01T00:00:00Zx", "2024-01-01 00:00:00Z",
                            "+024-01-01T00:00:00Z", ""}) {
        SCOPED_TRACE(iso);
        BMC_TimeStamp stamp = 7;
        EXPECT_EQ(BMC_IsoTimeToTimeStamp(iso, &stamp), kFail);
        EXPECT_EQ(stamp, 7);
    }
    for (const char *en :
         {"Feb 29 00:00:00 2023 GMT", "Foo  1 00:00:00 2024 GMT", "Nov 22 19:58:47 2026 UTC",
          "Nov 22 19:58:47 2026 GMT x", "Nov 32 19:58:47 2026 GMT", "Nov 22 19:58 2026 GMT"}) {
        SCOPED_TRACE(en);
        BMC_TimeStamp stamp = 7;
        EXPECT_EQ(BMC_EnTimeToTimeStamp(en, &stamp), kFail);
        EXPECT_EQ(stamp, 7);
    }
}

} // namespace
