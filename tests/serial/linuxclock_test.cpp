#include "serial/linuxclock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/rtc.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <functional>

#include "runtime/errnoexcept.h"
#include "runtime/filesystem.h"
#include "tests/support/child_process.h"
#include "tests/support/ioctl_hook.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

timeval set_time;  // what the machine was set to; seconds below 0 fail
uid_t set_by;

}  // namespace

// Never the real one.
extern "C" int __wrap_settimeofday(const timeval* time, const struct timezone*);
int __wrap_settimeofday(const timeval* time, const struct timezone*) {
  set_time = *time;
  set_by = geteuid();
  errno = EINVAL;
  return time->tv_sec < 0 || time->tv_usec < 0 ? -1 : 0;
}

namespace {

class Clock : public testing::Test {
 protected:
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

std::string ErrorOf(const std::function<void()>& function) {
  try {
    function();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing thrown";
}

TEST_F(Clock, FindsTheZonesAndTheOneInForce) {
  LinuxClock clock = Make();
  EXPECT_THAT(clock.Zones(), testing::ElementsAre("a", "b/A/Y", "b/X", "b.tab", "broken"));
  EXPECT_EQ("UTC", clock.CurrentZone());
  for (const auto& [text, zone] : {std::pair("b/X\nrest", "b/X"), {"b", "b/X"}, {"a", "a"}, {"b/X \n", "a"}}) {
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
    EXPECT_THROW(clock.SetTime(-1), ErrnoError);
    EXPECT_EQ(65534u, geteuid());
    ASSERT_EQ(0, setresuid(65534, 65534, 65534));
    EXPECT_EQ("Unable to gain super user priviledges: Operation not permitted", ErrorOf([&] { clock.SetTime(78); }));
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
  EXPECT_EQ("Unable to set hardware clock: " + (dir / "rtc") + ": Inappropriate ioctl for device\n", result.output);
  EXPECT_EQ(".." + (dir / "zones/b/X"), ReadSymLink(dir / "link"));
  EXPECT_EQ("b/X\n", dir.Read("file"));
}

TEST_F(Clock, SetsBothClocksAndReadsThem) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  rtc_time hardware = {};
  bool fails = false;
  const IoctlHook hook([&](int, unsigned long request, void* argument) -> std::optional<int> {
    auto& passed = *static_cast<rtc_time*>(argument);
    request == RTC_SET_TIME ? hardware = passed : passed = hardware;
    errno = EINVAL;
    return fails ? -1 : 0;
  });
  LinuxClock clock = Make(), none = Make("none");
  clock.SetTime(Timestamp(2024, 7, 1, 12, 0, 7.25));
  EXPECT_EQ(1'719'828'007, set_time.tv_sec);
  EXPECT_EQ(250'000, set_time.tv_usec);
  EXPECT_EQ(10, hardware.tm_hour);  // UTC
  EXPECT_EQ(1'719'828'007, clock._read_hw_time());
  const VirtualTime time(1'719'828'007);
  EXPECT_EQ(Timestamp(2024, 7, 1, 12, 0, 7), clock.Time());

  hardware = {59, 59, 23, 31, 11, 69, 0, 0, 0};  // a second before 1970
  DeleteFile(dir / "file");
  MkDirectory(dir / "file");
  const std::string not_found = (dir / "none") + ": No such file or directory";
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"Unable to open timezone directory: " + not_found, [&] { LinuxClock(dir / "none", "", "", ""); }},
      {"Invalid timezone \"/a\"", [&] { clock.SetZone("//a"); }},
      {"Unable to save timezone string to file: " + (dir / "file"), [&] { clock.SetZone("a"); }},
      {"Unable to set timezone: File exists", [&] { clock.SetZone("b/X"); }},  // the link leads nowhere by now
      {"Unable to set system time: Invalid argument", [&] { clock.SetTime(Timestamp(-0.5)); }},
      {"Unable to set system time: Invalid argument", [&] { clock.SetTime(Timestamp(std::nan(""))); }},
      {"Unable to open clock device: " + not_found, [&] { none.SetTime(5, 999'999'999); }},
      {"Unable to open clock device: " + not_found, [&] { none._read_hw_time(); }},
      {"Invalid time returned from hardware clock: " + (dir / "rtc: Success"), [&] { clock._read_hw_time(); }},
      {"Unable to read hardware clock: " + (dir / "rtc: Invalid argument"),
       [&] { fails = true, clock._read_hw_time(); }},
  };
  for (const auto& [words, call] : rows) EXPECT_EQ(words, ErrorOf(call));
  EXPECT_EQ(999'999, set_time.tv_usec);
  EXPECT_EQ("a", clock.CurrentZone());
}

}  // namespace
