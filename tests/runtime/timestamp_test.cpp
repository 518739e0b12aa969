#include "runtime/timestamp.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/virtual_time.h"

namespace {

TEST(Timestamp, BreaksEveryDayDown) {
  double days = 0;
  for (int year = 1989; year < 2100; ++year) {
    const int lengths[] = {31, year % 4 == 0 ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    for (int month = 1, of_year = 1; month <= 12; ++month)
      for (int day = 1; day <= lengths[month - 1]; ++day, ++days, ++of_year) {
        const Timestamp t(year, month, day, 12, 34, 56.5);
        ASSERT_EQ(days * 86400 + 12 * 3600 + 34 * 60 + 56.5, t.get());
        ASSERT_TRUE(t.year() == year && t.month() == month && t.day() == day && t.yearDay() == of_year) << t;
        ASSERT_TRUE(t.weekDay() == std::fmod(days, 7) + 1 && t.isLeap() == (lengths[1] == 29)) << t;
        ASSERT_TRUE(t.hour() == 12 && t.min() == 34 && t.sec() == 56.5) << t;
      }
  }
}

TEST(Timestamp, KeepsTheZoneOfItsFirstUse) {
  const auto result = RunInChild([] {
    VirtualTime time;  // 2024-03-01 00:00:00 UTC
    time.AdvanceNanoseconds(250'000'000);
    Timestamp t(1000000);
    setenv("TZ", "ABC-3:30", 1);
    t.convert_utc_to_local();
    setenv("TZ", "LATE7", 1);
    EXPECT_TRUE(t.get() == 1012600 && Timestamp::local_timezone_name() == "ABC");
    t.convert_local_to_utc();
    EXPECT_EQ(1000000, t.get());
    t.assign_local_time();
    EXPECT_EQ(Timestamp(2024, 2, 29, 17, 0, 0.25), t) << "by the zone now in force";
    time.SetFailing(true);
    EXPECT_EQ("Unable to get current time: Invalid argument", ErrorText([&] { t.assign_local_time(); }));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

}  // namespace
