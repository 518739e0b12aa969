// The pulse device, the push button and the control of the PTP services.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "emulators/pulse_source.h"
#include "emulators/push_button.h"
#include "serial/ppsdevice.h"
#include "serial/ptpcontrol.h"
#include "serial/usbbuttondevice.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

struct Pulses : PPSDevice::Listener {
  void GotPPS(const TimeVal& time) override { told.push_back(time); }
  std::vector<TimeVal> told;
};

struct Events : UsbButtonDevice::Listener {
  void GotUsbButtonDown() override { told += 'D'; }
  void GotUsbButtonUp() override { told += 'U'; }
  std::string told;
};

TEST(PPSDevice, TellsEachPulse) {
  VirtualTime time;
  time.Advance(250);
  PulseSource source;
  PPSDevice device(source.Path(), true);
  PollFor(1'000);
  Pulses pulses;
  EXPECT_EQ(nullptr, device.RegisterListener(&pulses));
  EXPECT_EQ(&pulses, device.GetListener());
  PollFor(3'000);
  EXPECT_EQ(4, source.Pulses());
  const int32_t start = VirtualTime::kDefaultWall;
  EXPECT_EQ((std::vector<TimeVal>{{start + 2}, {start + 3}, {start + 4}}), pulses.told);
}

TEST(UsbButtonDevice, TellsEventsAndSetsTheLED) {
  PushButton button;
  UsbButtonDevice device(button.Path());
  Events events;
  EXPECT_EQ(nullptr, device.RegisterListener(&events));
  button.Press(), button.Hold(), button.Release();
  EXPECT_TRUE(PollUntil([&] { return events.told == "DU"; }));
  const std::pair<void (UsbButtonDevice::*)(), char> rows[] = {{&UsbButtonDevice::LED_On, 'Y'},
                                                               {&UsbButtonDevice::LED_Off, 'N'},
                                                               {&UsbButtonDevice::LED_Activity, 'A'},
                                                               {&UsbButtonDevice::LED_Error, 'E'}};
  for (const auto& [set, shown] : rows) {
    (device.*set)();
    EXPECT_TRUE(PollUntil([&] { return button.LED() == shown; })) << shown;
  }
}

// The file is one that polls as readable and can't be read.
TEST(SmallDevices, ErrorsAreToldInEachPassAndTheDeviceStaysOnTheLoop) {
  const char* const broken = "/proc/self/mem";
  const CapturedOutput output;
  Fifo fifo;
  struct Thrower : Pulses, Events {
    void GotPPS(const TimeVal&) override { throw std::runtime_error("enough"); }
    void GotUsbButtonDown() override { throw std::runtime_error("enough"); }
  } thrower;
  PPSDevice pps(fifo.Path(), false), broken_pps(broken, false);
  UsbButtonDevice button(fifo.Path()), broken_button(broken);
  pps.RegisterListener(&thrower);
  button.RegisterListener(&thrower);
  std::string told;
  const std::string error = "::HandleRead(): ERROR: ";
  for (const auto& [item, name] :
       {std::pair<PollItem*, std::string>{&pps, "PPSDevice"}, {&button, "UsbButtonDevice"}}) {
    fifo.Write("DDDDDDDD");
    item->HandleRead();
    told += name + error + "enough\n";
  }
  PollPasses(2);
  for (const std::string name : {"PPSDevice", "UsbButtonDevice", "PPSDevice", "UsbButtonDevice"})
    told += name + error + "StreamFileBase: error in Read: Input/output error\n";
  EXPECT_EQ(told, output.Text());
  for (const auto& make :
       {std::function<void()>([] { PPSDevice("/no/pps", false); }), {[] { UsbButtonDevice("/no/pps"); }}})
    EXPECT_EQ("StreamFile: Unable to open /no/pps: No such file or directory", ErrorText(make));
}

TEST(PTPControl, RunsSystemctlAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const TempDirectory place;
  place.Write("systemctl", "#!/bin/sh\necho $(id -u) \"$@\"\nexit 7\n");
  ASSERT_EQ(0, chmod((place / "systemctl").c_str(), 0755));
  ASSERT_EQ(0, chmod(place.Path().c_str(), 0755));
  const auto result = RunInChild([&] {
    setenv("PATH", (place.Path() + ":/bin:/usr/bin").c_str(), 1);
    const std::pair<void (PTPControl::*)(), bool> rows[] = {
        {&PTPControl::StopSlave, false},  {&PTPControl::StartGPS, true},   {&PTPControl::StopSlave, true},
        {&PTPControl::StartSlave, false}, {&PTPControl::RestartGPS, true}, {&PTPControl::RestartSlave, false},
    };
    PTPControl control;
    EXPECT_FALSE(control.IsGPSMaster());
    ASSERT_EQ(0, setresuid(0, 65534, 0));
    for (const auto& [operation, master] : rows) {
      (control.*operation)();
      EXPECT_EQ(master, control.IsGPSMaster());
      EXPECT_EQ(65534U, geteuid());
    }
    ASSERT_EQ(0, seteuid(0));
    ASSERT_EQ(0, setresuid(65534, 65534, 65534));
    EXPECT_EQ("Unable to gain super user priviledges: Operation not permitted", ErrorText([&] { control.StartGPS(); }));
    EXPECT_FALSE(control.IsGPSMaster());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
  EXPECT_EQ(
      "0 stop ptpd_slave\n0 start ptpd\n0 stop ptpd_slave\n0 start ptpd_slave\n0 restart ptpd\n0 restart ptpd_slave\n",
      result.output);
}

}  // namespace
