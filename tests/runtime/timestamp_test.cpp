#include "runtime/timestamp.h"

#include <gtest/gtest.h>

#include <limits>

#include "emulators/virtual_time.h"
#include "runtime/localtime.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

// Fields and texts are held against the system's calendar in fuzz/timestamp_fuzz.cpp.

namespace {

TEST(Timestamp, KeepsTheZoneOfItsFirstUse) {
  ExpectInChild([] {
    VirtualTime time;  // 2024-03-01 00:00:00 UTC
    time.AdvanceNanoseconds(250'000'000);
    Timestamp t(1000000);
    setenv("TZ", "ABC-3:30", 1);
    EXPECT_EQ(12'600, LocalTime(0).tm_gmtoff);
    t.convert_utc_to_local();
    setenv("TZ", "LATE7", 1);
    EXPECT_EQ(17, LocalTime(0).tm_hour) << "the day before";
    EXPECT_EQ(sizeof(time_t) > 4 ? 0 : 14, LocalTime(std::numeric_limits<time_t>::max()).tm_min)
        << "beyond the calendar";
    EXPECT_TRUE(t.get() == 1012600 && Timestamp::local_timezone_name() == "ABC");
    t.convert_local_to_utc();
    EXPECT_EQ(1000000, t.get());
    t.assign_local_time();
    EXPECT_EQ(Timestamp(2024, 2, 29, 17, 0, 0.25), t) << "by the zone now in force";
    time.SetFailing(true);
    EXPECT_EQ("Unable to get current time: Invalid argument", ErrorText([&] { t.assign_local_time(); }));
  });
}

}  // namespace
