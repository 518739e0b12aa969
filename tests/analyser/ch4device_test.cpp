#include "analyser/ch4device.h"

#include <gtest/gtest.h>

#include <memory>

#include "emulators/analyser.h"
#include "emulators/avahi_hosts.h"
#include "emulators/poll_runner.h"
#include "tests/support/captured_output.h"

// What a line is taken for is held against a second decoder in fuzz/ch4_fuzz.cpp.

namespace {

struct CH4DeviceTest : testing::Test, CH4Device::Listener {
  CH4DeviceTest() { AvahiHosts::UseNone(); }
  ~CH4DeviceTest() noexcept override {}

  void GotCH4Data(const CH4Data& data) override {
    ++records;
    ch4 = data.values[1];
    if (destroys) device.reset();
  }

  std::unique_ptr<CH4Device> device;
  int records = 0;
  double ch4 = 0;
  bool destroys = false;
};

TEST_F(CH4DeviceTest, TellsWhatItReadsWhenVerbose) {
  device = std::make_unique<CH4Device>(true);
  device->RegisterListener(this);
  const CapturedOutput output;
  for (const char* line : {"x\n", "DATAH\tDIAG\tCH4\tCH4\tCHK\n", "DATADIAGH\tNOSIGNAL\tBADTEMP\n",
                           "DATA\t2\t1.25\t7\t109\n", "DATA\t2\t1\t  1\n"})
    device->HeadGotLine(line);
  EXPECT_EQ(
      "CH4: x\n\n"
      "CH4: DATAH\tDIAG\tCH4\tCH4\tCHK\n\nCH4=2\nCHK=3\nDIAG=0\n"
      "CH4: DATADIAGH\tNOSIGNAL\tBADTEMP\n\nBADTEMP=2\nNOSIGNAL=1\n"
      "CH4: DATA\t2\t1.25\t7\t109\n\nCH4: CH4=7 DIAG=2 BADTEMP=1 NOSIGNAL=0\n"
      "CH4: DATA\t2\t1\t  1\n\n",
      output.Text());
}

TEST_F(CH4DeviceTest, AsksTheAnalyserAndMayBeDestroyedByItsListener) {
  Analyser analyser;
  device = std::make_unique<CH4Device>(false);
  device->GetHead() = Head(device.get(), analyser.Port(), false);
  device->GetHead().Connect(analyser.Host());
  EXPECT_EQ(nullptr, device->RegisterListener(this));
  EXPECT_TRUE(PollUntil([&] { return records > 0 && !analyser.Commands().empty(); }));
  EXPECT_EQ(
      "<tarno><tn5500><output><rate>10</rate><waveforms>false</waveforms><status>false</status>"
      "<dataclock>false</dataclock></output></tn5500></tarno>",
      analyser.Commands().at(0));
  // Without a listener nothing is looked at, headers included.
  EXPECT_EQ(this, device->RegisterListener(nullptr));
  device->HeadGotLine("DATAH\tCH4D\tCHK\n");
  device->RegisterListener(this);
  destroys = true;
  EXPECT_TRUE(PollUntil([this] { return device == nullptr; }));
  EXPECT_NE(CH4Unavailable, ch4);
}

}  // namespace
