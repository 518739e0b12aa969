#include "serial/sonicdevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "emulators/sonic_anemometer.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

struct Log : SonicDeviceListener {
  void GotSonicData(int, const SonicData& data) override { records.push_back(data); }
  std::vector<SonicData> records;
};

// A second of each habit; at the rate of 19200 it is noise.
TEST(SonicDevice, HearsAnAnemometerMessageByMessage) {
  const struct {
    AnemometerSettings settings;
    int bps, heard;
    uint32_t flags = 0;
  } rows[] = {{{1}, 9600, 1},       {{32, 'M', 9}, 9600, 32, 0x440}, {{10, 'M', 10, 0}, 9600, 10, 0x40},
              {{10, 'N'}, 9600, 0}, {{9, 'M', 0, 4, true}, 9600, 0}, {{7, 'M', 0, 2}, 9600, 7},
              {{32}, 19200, 0}};
  VirtualTime time;
  time.SetGrace(4);
  SonicAnemometer anemometer(9600);
  SonicDevice device(anemometer.Path(), 3, 9600, false);
  for (const auto& [settings, bps, heard, flags] : rows) {
    Log log;
    device.SetBps(bps);
    device.RegisterListener(&log);
    anemometer.Set(settings);
    int number = anemometer.Sent();
    PollFor(1'000);
    EXPECT_EQ(number + settings.rate, anemometer.Sent());
    ASSERT_EQ(heard, static_cast<int>(log.records.size())) << settings.rate;
    for (const SonicData& data : log.records) {
      const AnemometerReading sent = SonicAnemometer::ReadingOf(number++, settings.inputs);
      std::vector<double> values = {sent.u, sent.v, sent.w, sent.speed_of_sound, sent.temperature};
      values.insert(values.end(), sent.inputs.begin(), sent.inputs.end());
      values.resize(data.values.size());
      for (size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], data.values[i], 5e-3) << i;
      EXPECT_EQ(flags, data.errorFlags);
    }
    device.RegisterListener(nullptr);
  }
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
