#include "serial/sonicdevice.h"

#include <gtest/gtest.h>

#include "emulators/poll_runner.h"
#include "emulators/sonic_anemometer.h"
#include "emulators/virtual_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"

namespace {

struct Log : SonicDeviceListener {
  void GotSonicData(int, const SonicData& data) override { records.push_back(data); }
  std::vector<SonicData> records;
};

// At the rate of 19200 it is noise. What messages mean is asked by the oracle.
TEST(SonicDevice, HearsTheLineAtItsRate) {
  VirtualTime time;
  time.SetGrace(4);
  SonicAnemometer anemometer(9600, {32});
  SonicDevice device(anemometer.Path(), 3, 9600, false);
  Log log;
  device.RegisterListener(&log);
  PollFor(1'000);
  device.SetBps(19200);
  PollFor(1'000);
  EXPECT_EQ(64, anemometer.Sent());
  ASSERT_EQ(32U, log.records.size());
  for (int number = 0; const SonicData& data : log.records)
    EXPECT_NEAR(SonicAnemometer::ReadingOf(number++).u, data.values[0], 5e-4);
}

TEST(SonicDevice, APortThatRefusesThrows) {
  FakeDevice port;
  const Pty line;
  const CapturedOutput errors(STDERR_FILENO);
  SonicDevice device(line.Path(), 3, 57600, false);
  EXPECT_EQ("Unable to configure Sonic: " + line.Path(), ErrorText([&] { device.SetBps(14400); }));
  port.failing = "cfsetospeed";
  EXPECT_THROW(SonicDevice(line.Path(), 3, 9600, false), std::runtime_error);
}

}  // namespace
