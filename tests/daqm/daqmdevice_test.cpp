#include "daqm/daqmdevice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "emulators/own_host.h"
#include "emulators/poll_runner.h"
#include "emulators/pty.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/gpio_tree.h"

// The format of a line is held against a second form in fuzz/daqmdevice_fuzz.cpp.

namespace {

struct Lines : DAQMDevice::Listener {
  void GotDAQMLine(std::string line) override { text += line; }
  std::string text;
};

void ExpectPower() {
  GpioTree tree;
  const Pty pty;
  Lines lines;
  EXPECT_EQ(ErrorText([&] { const DAQMDevice device(pty.Path(), 9, nullptr, false); }), "DAQMDevice: Invalid listener");
  EXPECT_EQ(ErrorText([&] { const DAQMDevice device("/dev/null", 9, &lines, false); }),
            "LinuxTTY: Unable to change settings for tty device: /dev/null");
  EXPECT_EQ(tree.Writes(), "export=9 gpio9/active_low=0 gpio9/direction=out gpio9/active_low=0 gpio9/direction=out ")
      << "no power without a device";
  ASSERT_EQ(seteuid(0), 0);
  {
    const CapturedOutput output;
    const DAQMDevice device(pty.Path(), 13, &lines, false);
    EXPECT_EQ(tree.Writes(), "export=13 gpio13/active_low=0 gpio13/direction=out gpio13/value=1 ");
    EXPECT_EQ(output.Text(), "DAQMDevice: XON/XOFF is disabled\n");
    EXPECT_EQ(pty.Speed(), 115'200);
  }
  EXPECT_EQ(tree.Writes(), "gpio13/value=0 ");

  // The power is switched as user 0, whoever asks.
  auto* const device = new DAQMDevice(pty.Path(), 13, &lines, false);
  ASSERT_EQ(seteuid(4'711), 0);
  GpioTree::current = nullptr;
  delete device;
  EXPECT_EQ(geteuid(), 4'711U);
  ASSERT_EQ(setresuid(4'711, 4'711, 4'711), 0);
}

TEST(DAQMDevice, PowersTheBusAsLongAsItExists) {
  ExpectInMountNamespace(ExpectPower);
}

void ExpectFailingPower() {
  const GpioTree tree;
  const Pty pty;
  Lines lines;
  const CapturedOutput output;
  const auto make = [&] { return new DAQMDevice(pty.Path(), 13, &lines, false); };
  DAQMDevice* device = make();
  std::filesystem::remove("/sys/class/gpio/gpio13/value");
  EXPECT_EQ(ErrorText([&] { delete device; }),
            "StreamFile: Unable to open /sys/class/gpio/gpio13/value: No such file or directory");
  device = make();
  std::filesystem::remove("/sys/class/gpio/gpio13/value");
  EXPECT_EQ(ErrorText([&] {
              const std::unique_ptr<DAQMDevice, void (*)(DAQMDevice*)> held(device,
                                                                            [](DAQMDevice* its) { delete its; });
              throw std::runtime_error("first");
            }),
            "first");
}

TEST(DAQMDevice, TellsThatThePowerCouldNotBeSwitched) {
  ExpectInMountNamespace(ExpectFailingPower);
}

TEST(DAQMDevice, SendsWholeLinesOrNone) {
  ExpectInChild([] {
    if (!BecomeRoot()) return;
    Gpio::_debug = true;
    Pty pty;
    Lines lines;
    const CapturedOutput output;
    DAQMDevice device(pty.Path(), 13, &lines, true);
    const std::string line = std::string(1'499, 'x') + '\n';
    for (int i = 0; i < 3; ++i) device.Write(line);
    device.Write(std::string(1'096, 'y'));
    device.Write("z");
    std::string sent;
    EXPECT_TRUE(PollUntil([&] { return (sent += pty.Read()).size() >= 4'096; }));
    EXPECT_EQ(sent, line + line + std::string(1'096, 'y'));
    device.Write("z");
    pty.Write("one\r\ntw");
    EXPECT_TRUE(PollUntil([&] { return !lines.text.empty(); }));
    pty.Write("o\n");
    EXPECT_TRUE(PollUntil([&] { return lines.text == "one\r\ntwo\n"; }));
    device.DumpTTYErrors();
    const std::string full = "ERROR: DAQMDevice: No room for a line of ";
    EXPECT_EQ(output.Text(),
              "Exporting GPIO13\nSetting GPIO13 active high\nSetting GPIO13 to out\n"
              "DAQMDevice: XON/XOFF is disabled\nSetting GPIO13 to 1\n" +
                  full + "1500 bytes: " + pty.Path() + '\n' + full + "1 bytes: " + pty.Path() + '\n' +
                  "DAQM Rx: one\r\nDAQM Rx: two\n" + pty.Path() +
                  " ERRORS:  FRAMING: 0 OVERRUN: 0 PARITY: 0 BREAK: 0 BUFOVERRUN: 0\n");
  });
}

}  // namespace
