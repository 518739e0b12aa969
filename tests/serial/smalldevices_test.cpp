// The pulse device, the push button and the control of the PTP services. What is read from both devices is held against
// plain second forms in fuzz/pulse_button_fuzz.cpp.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "emulators/poll_runner.h"
#include "emulators/push_button.h"
#include "emulators/temp_directory.h"
#include "serial/ppsdevice.h"
#include "serial/ptpcontrol.h"
#include "serial/usbbuttondevice.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

namespace {

TEST(UsbButtonDevice, TellsEventsAndSetsTheLED) {
  struct : UsbButtonDevice::Listener {
    void GotUsbButtonDown() override { told += 'D'; }
    void GotUsbButtonUp() override { told += 'U'; }
    std::string told;
  } events;
  PushButton button;
  UsbButtonDevice device(button.Path());
  device.RegisterListener(&events);
  button.Press(), button.Hold(), button.Release();
  EXPECT_TRUE(PollUntil([&] { return events.told == "DU"; }));
  using Device = UsbButtonDevice;
  for (const auto& [set, shown] : {std::pair(&Device::LED_On, 'Y'),
                                   {&Device::LED_Off, 'N'},
                                   {&Device::LED_Activity, 'A'},
                                   {&Device::LED_Error, 'E'}}) {
    (device.*set)();
    EXPECT_TRUE(PollUntil([&, led = shown] { return button.LED() == led; })) << shown;
  }
}

// The file is one that polls as readable and can't be read.
TEST(SmallDevices, OneThatHasGoneTellsSoInEachPass) {
  const CapturedOutput output;
  const PPSDevice pps("/proc/self/mem", false);
  const UsbButtonDevice button("/proc/self/mem");
  PollPasses(2);
  const std::string error = "Device::HandleRead(): ERROR: StreamFileBase: error in Read: Input/output error\n";
  EXPECT_EQ("PPS" + error + "UsbButton" + error + "PPS" + error + "UsbButton" + error, output.Text());
  EXPECT_THROW(PPSDevice("/no/pps", false), std::runtime_error);
  EXPECT_THROW(UsbButtonDevice("/no/button"), std::runtime_error);
}

TEST(PTPControl, RunsSystemctlAsRoot) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const TempDirectory place;
  place.Write("systemctl", "#!/bin/sh\necho $(id -u) \"$@\"\nexit 7\n");
  ASSERT_EQ(0, chmod((place / "systemctl").c_str(), 0755));
  const auto result = RunInChild([&] {
    setenv("PATH", (place.Path() + ":/bin:/usr/bin").c_str(), 1);
    using Control = PTPControl;
    PTPControl control;
    ASSERT_EQ(0, setresuid(0, 65534, 0));
    for (const auto& [operation, master] : {std::pair(&Control::StopSlave, false),
                                            {&Control::StartGPS, true},
                                            {&Control::StopSlave, true},
                                            {&Control::StartSlave, false},
                                            {&Control::RestartGPS, true},
                                            {&Control::RestartSlave, false}}) {
      (control.*operation)();
      EXPECT_EQ(master, control.IsGPSMaster());
    }
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
