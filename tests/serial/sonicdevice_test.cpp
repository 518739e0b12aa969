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
  void GotSonicData(int unit, const SonicData& data) override {
    EXPECT_EQ(3, unit);
    records.push_back(data);
  }
  std::vector<SonicData> records;
};

void Feed(SonicDevice& device, const std::string& bytes) {
  device.ReceivedChars(device.Reader(), bytes.data(), static_cast<int>(bytes.size()));
}

// What the messages say, to the digits that they give.
TEST(SonicDevice, HearsAnAnemometerMessageByMessage) {
  const struct {
    AnemometerSettings settings;
    int heard;  // of a second
    uint32_t flags = 0;
  } rows[] = {{{1}, 1},       {{32, 'M', 9}, 32, 0x440}, {{10, 'M', 10, 0}, 10, 0x40}, {{7, 'M', 1, 2}, 7, 0x440},
              {{10, 'N'}, 0}, {{10, 'M', 0, 4, true}, 0}};
  VirtualTime time;
  time.SetGrace(4);
  SonicAnemometer anemometer(9600);
  SonicDevice device(anemometer.Path(), 3, 9600, false);
  for (const auto& [settings, heard, flags] : rows) {
    SCOPED_TRACE(settings.rate);
    Log log;
    device.RegisterListener(&log);
    anemometer.Set(settings);
    int number = anemometer.Sent();
    PollFor(3'000);
    PollUntil([&] { return log.records.size() >= 3U * heard; }, 0);
    EXPECT_EQ(number + 3 * settings.rate, anemometer.Sent());
    ASSERT_EQ(3U * heard, log.records.size());
    for (const SonicData& data : log.records) {
      const AnemometerReading sent = SonicAnemometer::ReadingOf(number++, settings.inputs);
      std::vector<double> values = {sent.u, sent.v, sent.w, sent.speed_of_sound, sent.temperature};
      values.insert(values.end(), sent.inputs.begin(), sent.inputs.end());
      values.resize(data.values.size());
      for (size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(values[i], data.values[i], i < 3 || i > 4 ? 5e-4 : 5e-3);
      EXPECT_EQ(flags, data.errorFlags);
    }
    device.RegisterListener(nullptr);
  }
  anemometer.Set({});
  for (const int bps : {19200, 9600}) {
    device.SetBps(bps);
    Log log;
    device.RegisterListener(&log);
    PollFor(2'000);
    EXPECT_EQ(bps == 9600, log.records.size() > 10);
  }
}

// The first report has another message come in from inside and takes the listener away, the third one throws.
TEST(SonicDevice, AListenerMayFeedLeaveAndThrow) {
  const std::string good =
                        "\x02Q,1,2,3,M,4,5,0,\x03"
                        "1D\r\n",
                    told = "Sonic: <STX>Q,1,2,3,M,4,5,0,<ETX>1D\n";
  const CapturedOutput output;
  const Pty line;
  SonicDevice device(line.Path(), 3, 57600, true);
  struct Restless : Log {
    void GotSonicData(int unit, const SonicData& data) override {
      Log::GotSonicData(unit, data);
      if (records.size() == 1) Feed(device, more), device.RegisterListener(nullptr);
      if (records.size() == 3) throw std::runtime_error("enough");
    }
    Restless(SonicDevice& in_device, const std::string& in_more) : device(in_device), more(in_more) {}
    SonicDevice& device;
    const std::string more;
  } restless(device, good);
  device.RegisterListener(&restless);
  Feed(device, good + good);
  const size_t before = restless.records.size();
  const bool unheard = device.RegisterListener(&restless) == nullptr;
  const std::string thrown = ErrorText([&] { Feed(device, good + good); });
  Feed(device, good.substr(0, 5));
  Feed(device, good.substr(5) +
                   "\x02Q\x03"
                   "51\r");
  EXPECT_EQ(told + told + told + told + told + "Sonic: <STX>Q<ETX>51\n", output.Text());
  EXPECT_TRUE(before == 2 && unheard && restless.records.size() == 4);
  EXPECT_EQ("enough", thrown);
}

TEST(SonicDevice, APortThatRefusesThrows) {
  FakeDevice port;
  const Pty line;
  const CapturedOutput errors(STDERR_FILENO);
  SonicDevice device(line.Path(), 3, 57600, false);
  EXPECT_EQ("Unable to configure Sonic: " + line.Path(), ErrorText([&] { device.SetBps(14400); }));
  port.failing = "cfsetospeed";
  EXPECT_EQ("Unable to configure Sonic: " + line.Path(), ErrorText([&] { SonicDevice(line.Path(), 3, 9600, false); }));
}

}  // namespace
