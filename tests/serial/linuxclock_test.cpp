#include "serial/linuxclock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <tuple>

#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "runtime/filesystem.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"

static timeval set_time;  // what the machine was set to; seconds below 0 fail
static uid_t set_by;

// Never the real one.
extern "C" int __wrap_settimeofday(const timeval* time, const struct timezone*) {
  set_time = *time, set_by = geteuid(), errno = EINVAL;
  return time->tv_sec < 0 || time->tv_usec < 0 ? -1 : 0;
}

namespace {

struct Clock : testing::Test {
  Clock() {
    for (const char* name : {"zones/b/X", "zones/b/A/Y", "zones/b/.hidden", "zones/a", "zones/b.tab", "link", "rtc"})
      dir.Write(name, "");
    CreateSymLink("nowhere", dir / "zones/broken");
    dir.Write("file", "Mars\n");
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  }
  ~Clock() override { unsetenv("TZ"); }
  LinuxClock Make(const std::string& rtc = "rtc") { return {dir / "zones", dir / "link", dir / "file", dir / rtc}; }
  TempDirectory dir;
};

TEST_F(Clock, FindsTheZonesAndTheOneInForce) {
  dir.Write("file", "b.tab");
  LinuxClock clock = Make();
  EXPECT_EQ("b.tab", clock.CurrentZone());
  EXPECT_EQ((std::vector<std::string>{"a", "b/A/Y", "b/X", "b.tab", "broken"}), clock.Zones());
  for (const auto& [text, zone] : {std::pair("b/X\nrest", "b/X"), {"Mars", "b/X"}, {"b", "b/X"}, {"a", "a"}}) {
    dir.Write("file", text);
    clock.RefreshZone();
    EXPECT_EQ(zone, clock.CurrentZone());
  }
  EXPECT_EQ(3600, clock.ZoneOffsetFromUTC());
}

// As on the board: an ordinary user with root as the saved identity.
TEST_F(Clock, TakesRootRightsForTheirScopeOnly) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  LinuxClock clock = Make();
  const auto result = RunInChild([&] {
    ASSERT_EQ(0, setresuid(65534, 65534, 0));
    clock.SetZone("/b/X");
    clock.SetTime(77);
    EXPECT_EQ(0u, set_by);
    EXPECT_NE("nothing thrown", ErrorText([&] { clock.SetTime(-1); }));
    clock.SetHardwareTime(79);
    EXPECT_EQ("Unable to read hardware clock: " + (dir / "rtc: Inappropriate ioctl for device"),
              ErrorText([&] { clock._read_hw_time(); }));
    EXPECT_EQ(65534u, geteuid());
    ASSERT_EQ(0, setresuid(65534, 65534, 65534));
    EXPECT_EQ("Unable to gain super user priviledges: Operation not permitted", ErrorText([&] { clock.SetTime(78); }));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
  const std::string refused = "Unable to set hardware clock: " + (dir / "rtc") + ": Inappropriate ioctl for device\n";
  EXPECT_EQ(refused + refused, result.output);
  EXPECT_EQ(".." + (dir / "zones/b/X"), ReadSymLink(dir / "link"));
  EXPECT_EQ("b/X\n", dir.Read("file"));
}

TEST_F(Clock, SetsBothClocksAndReadsThem) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  FakeDevice device;
  LinuxClock clock = Make(), none = Make("none");
  EXPECT_EQ("UTC", clock.CurrentZone());
  clock.SetTime(Timestamp(2024, 7, 1, 12, 0, 7.25));
  EXPECT_EQ(1'719'828'007, set_time.tv_sec);
  EXPECT_EQ(250'000, set_time.tv_usec);
  EXPECT_EQ(10, device.clock.tm_hour);  // UTC
  EXPECT_EQ(1'719'828'007, clock._read_hw_time());
  clock.SetHardwareTime(1'719'835'200);
  EXPECT_EQ(1'719'835'200, clock._read_hw_time());
  EXPECT_EQ(1'719'828'007, set_time.tv_sec);
  VirtualTime time;
  long seconds, nanoseconds;
  time.AdvanceNanoseconds(7'999);
  clock.Time(seconds, nanoseconds);
  EXPECT_EQ(std::tuple(VirtualTime::kDefaultWall, 7'000, VirtualTime::kDefaultWall),
            std::tuple(seconds, nanoseconds, clock.TimeT()));
  EXPECT_EQ(Timestamp(2024, 3, 1, 1, 0, 0.000007), clock.Time());  // an hour ahead
  time.SetFailing(true);
  device.clock = {59, 59, 23, 31, 11, 69, 0, 0, 0};  // a second before 1970
  DeleteFile(dir / "file");
  MkDirectory(dir / "file");
  const std::string not_found = (dir / "none") + ": No such file or directory", invalid = ": Invalid argument";
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"Unable to open timezone directory: " + not_found, [&] { LinuxClock(dir / "none", "", "", ""); }},
      {"Invalid timezone \"/a\"", [&] { clock.SetZone("//a"); }},
      {"Unable to save timezone string to file: " + (dir / "file"), [&] { clock.SetZone("a"); }},
      {"Unable to set timezone: File exists", [&] { clock.SetZone("b/X"); }},  // the link leads nowhere by now
      {"Unable to set system time" + invalid, [&] { clock.SetTime(Timestamp(1e300)); }},
      {"Unable to open clock device: " + not_found, [&] { none.SetTime(5, 999'999'999); }},
      {"Unable to get current time" + invalid, [&] { clock.TimeT(); }},
      {"Invalid time returned from hardware clock: " + (dir / "rtc: Success"), [&] { clock._read_hw_time(); }},
      {"Unable to read hardware clock: " + (dir / "rtc: Input/output error"),
       [&] { device.failing = "RTC_RD_TIME", clock._read_hw_time(); }},
  };
  for (const auto& [words, call] : rows) EXPECT_EQ(words, ErrorText(call));
  EXPECT_EQ("a", clock.CurrentZone());
}

}  // namespace
