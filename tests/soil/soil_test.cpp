#include "soil/soil.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "fuzz/soilbench.h"
#include "json/statefile.h"
#include "net/net_util.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"

// What days of troubles come to is seen to by fuzz/soilweek_fuzz.cpp.

namespace {

SoilData Measurement(int current) {
  SoilData data;
  data.longs = {{"/SR/STATE/CUROB", current}, {"/SR/STATE/OBCOMPLETE", 100}};
  data.strings = {{"/SR/MEASUREMENT/NAME", Hostname()}, {"/SR/MEASUREMENT/LOCATION", "INT"}};
  return data;
}

class SoilTest : public testing::Test, protected SoilBench {
 protected:
  SoilTest() : SoilBench("127.0.15.1") { _soil.RegisterListener(this); }
  ~SoilTest() noexcept override {}
  void Connect() {
    _soil.Connect(_instrument.Host());
    Settle([this] { return _instrument.Commands().size() >= 3; });
  }
  // What the instrument got since the last call, short: so many lines, if there are as many.
  Lines Heard(size_t count) {
    Settle([&] { return _instrument.Commands().size() >= count; });
    Settle([] { return false; }, 5);
    Lines heard = _instrument.Commands();
    for (std::string& line : heard) line = Short(line);
    _instrument.ForgetCommands();
    return heard;
  }
  void GotSoilConnected(std::string target) override { _events += "connected " + target + '\n'; }
  void GotSoilError(std::string error) override { _events += "error " + error + '\n'; }

  Manager _soil{_dir.Path()};
  std::string _events;
};

TEST_F(SoilTest, AsksForTheStateAndSetsTheInstrumentOnceADay) {
  _instrument.SetName(Hostname());
  Connect();
  EXPECT_EQ(Heard(4),
            (Lines{kState, "<CMD><MEAS><LIST>1:*</LIST></MEAS></CMD>", "<CMD><QUERY>MEAS</QUERY></CMD>", kStart}))
      << "an idle instrument is started";
  PollFor(30'000 - 2);
  EXPECT_EQ(Heard(0), Lines()) << "30 s less a few milliseconds";
  PollFor(10);
  EXPECT_EQ(Heard(1), (Lines{kState}));
  PollFor(10 * kMinute - 20);
  EXPECT_EQ(Heard(0), Lines());
  PollFor(30);
  EXPECT_EQ(Heard(1), (Lines{kState}));

  _instrument.Stop();
  _instrument.SetClockError(-4'321);
  _time.Advance(24 * kHour);
  EXPECT_EQ(Heard(1), (Lines{"<CMD><MEAS>STOP</MEAS></CMD>"}));
  PollFor(15'000 - 20);
  EXPECT_EQ(Heard(0), Lines());
  PollFor(30);
  EXPECT_EQ(Heard(12).size(), 12U);
  EXPECT_NEAR(_instrument.ClockError(), 0, 1);
  PollFor(10 * kMinute);
  EXPECT_EQ(Heard(1), (Lines{kState})) << "no second sequence on that day";
}

TEST_F(SoilTest, StaysAwayAfterAnInterruption) {
  Connect();
  _events.clear();
  _instrument.Interrupt();
  Settle([this] { return !_events.empty(); });
  EXPECT_EQ(_events, "error Measurement Interruption: chamber\n");
  EXPECT_FALSE(_soil.IsActive());
  PollFor(10 * kMinute - 3'000);
  EXPECT_FALSE(_instrument.IsConnected());
  PollFor(5'000);
  Settle([this] { return _instrument.IsConnected() && _events.ends_with(".1\n"); });
  EXPECT_EQ(_events.substr(40), "connected 127.0.15.1\n");
}

TEST(SoilRequests, AreTheLastTenThousandAtMost) {
  const TempDirectory dir;
  SoilBench::Manager soil(dir.Path(), true);
  const CapturedOutput output;
  SoilData data = Measurement(2'000'000'000);
  soil.GotSoilStatus(data);
  soil.GotSoilMeasurement(data);
  const std::string text = output.Text();
  EXPECT_EQ(text.find("<OB>1999990000<"), text.npos);
  EXPECT_LT(text.find("<OB>1999990001<"), text.find("<OB>2000000000<"));
  EXPECT_EQ(ReadStateFile(dir / "Soil.conf")[Hostname()]["obs"], 2'000'000'000);
}

TEST(SoilFile, IsWhereItBelongsAndItsFailureIsTold) {
  ExpectInMountNamespace([] {
    MountEmpty("/home");
    Soil soil(false, false);
    SoilData data = Measurement(12);
    soil.GotSoilStatus(data);
    {
      const CapturedOutput output;
      soil.GotSoilMeasurement(data);
      EXPECT_EQ(output.Text(), "Soil: Unable to write conf file\n");
    }
    std::filesystem::create_directory("/home/tarno");
    soil.GotSoilMeasurement(data);
    EXPECT_EQ(ReadStateFile("/home/tarno/.config/Soil.conf")[Hostname()]["obs"], 12);
  });
}

}  // namespace
