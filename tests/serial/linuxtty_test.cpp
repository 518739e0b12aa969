#include "serial/linuxtty.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <functional>
#include <tuple>

#include "emulators/pty.h"
#include "tests/support/captured_output.h"
#include "tests/support/fake_port.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using Control = LinuxTTYControl;

// What the action throws, or else what it says on the error stream.
std::string ErrorOf(const std::function<void()>& action) {
  const CapturedOutput errors(STDERR_FILENO);
  try {
    action();
  } catch (const LinuxTTYBase::DeviceError& error) {
    return error.what();
  }
  return errors.Text();
}

TEST(LinuxTTY, OpeningTellsThePathAndWhy) {
  const std::string missing = "LinuxTTY: Unable to open tty device: /nowhere/tty: No such file or directory";
  EXPECT_EQ(ErrorOf([] { LinuxTTYReader("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { LinuxTTYWriter("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { Control("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { Control("/dev/null"); }), "LinuxTTY: Unable to change settings for tty device: /dev/null");
  PollPasses(2);  // what failed to open has left the loop
}

TEST(LinuxTTYControl, OpeningIsRawAndClosingRestores) {
  const Pty pty;
  FakePort port;
  termios& now = port.settings;
  now.c_iflag = now.c_oflag = now.c_cflag = now.c_lflag = ~tcflag_t{};
  now.c_cc[VMIN] = now.c_cc[VTIME] = 5;
  {
    const Control control(pty.Path());
    EXPECT_EQ(~now.c_iflag, tcflag_t{IGNBRK | BRKINT | PARMRK | ISTRIP | ICRNL});
    EXPECT_EQ(~now.c_oflag, tcflag_t{OPOST});
    EXPECT_EQ(~now.c_cflag, CRTSCTS);
    EXPECT_EQ(~now.c_lflag, tcflag_t{ISIG | ICANON | ECHO | IEXTEN});
    EXPECT_EQ(now.c_cc[VMIN] + now.c_cc[VTIME], 0);
  }
  EXPECT_EQ(now.c_iflag & now.c_oflag & now.c_cflag & now.c_lflag, ~tcflag_t{});
  EXPECT_EQ(now.c_cc[VMIN] + now.c_cc[VTIME], 10);
}

TEST(LinuxTTYControl, ConfigureSetsExactlyWhatIsAskedOrNothing) {
  const struct {
    Control::ConfigInfo asked;  // rate, stop bits, parity, data bits, software and hardware flow control
    tcflag_t flags;
    const char* complaint = "";
  } rows[] = {
      {{300, 1, Control::ParityNone, 8, false, false}, B300 | CS8},
      {{1200, 1, Control::ParityEven, 7, false, false}, B1200 | CS7 | PARENB},
      {{2400, 2, Control::ParityOdd, 7, true, false}, B2400 | CS7 | PARENB | PARODD | CSTOPB},
      {{4800, 1, Control::ParityNone, 8, false, true}, B4800 | CS8 | CRTSCTS},
      {{9600, 1, Control::ParityMark, 8, false, false}, B9600 | CS8},
      {{19200, 1, Control::ParitySpace, 8, false, false}, B19200 | CS8},
      {{38400, 1, Control::ParityNone, 8, true, true}, B38400 | CS8 | CRTSCTS},
      {{57600, 1, Control::ParityNone, 8, false, false}, B57600 | CS8},
      {{115200, 1, Control::ParityNone, 8, false, false}, B115200 | CS8},
      {{14400, 3, 9, 9, false, false}, 0, "LinuxTTYControl: Invalid baud rate: 14400\n"},
      {{9600, 3, 9, 6, false, false}, 0, "LinuxTTYControl: Invalid number of data bits: 6\n"},
      {{9600, 0, 9, 8, false, false}, 0, "LinuxTTYControl: Invalid number of stop bits: 0\n"},
      {{9600, 1, 5, 8, false, false}, 0, "LinuxTTYControl: Invalid parity: 5\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.asked.baudRate << row.complaint);
    const Pty pty;
    FakePort port;
    Control control(pty.Path());
    const bool good = *row.complaint == '\0', soft = row.asked.softwareFlowControl;
    port.settings.c_cflag = CLOCAL | CREAD | CS6 | PARENB | PARODD;
    port.settings.c_iflag = IXOFF | INLCR;
    EXPECT_EQ(ErrorOf([&] { EXPECT_EQ(control.configure(row.asked), good); }), row.complaint);
    EXPECT_EQ(port.settings.c_cflag & ~tcflag_t{CIBAUD},
              good ? CREAD | row.flags : CLOCAL | CREAD | CS6 | PARENB | PARODD);
    EXPECT_EQ(port.settings.c_iflag, tcflag_t(INLCR | (!good ? IXOFF : soft ? IXON | IXOFF : 0)));
    if (!good) continue;
    EXPECT_EQ(cfgetispeed(&port.settings), cfgetospeed(&port.settings));
    auto expected = row.asked;
    if (expected.parity > Control::ParityOdd) expected.parity = Control::ParityNone;
    const auto fields = [](const Control::ConfigInfo& c) {
      return std::tuple(c.baudRate, c.stopBits, c.parity, c.dataBits, c.softwareFlowControl, c.hardwareFlowControl);
    };
    EXPECT_EQ(fields(control.configuration()), fields(expected));
  }
}

TEST(LinuxTTYControl, EachFailureHasItsResultAndItsText) {
  const auto lines = [](bool rts, bool dtr) {
    return [=](Control& c) { return c.lineControl({rts, dtr, false, false}); };
  };
  const auto line = [](const char* call, int number) { return call + std::to_string(number); };
  const auto configure = [](Control& c) { return c.configure({}); };
  const struct {
    std::string failing;
    std::function<bool(Control&)> operation;  // false: the "failed" result
    std::string text;
  } rows[] = {
      {"tcgetattr", configure, "get configuration for tty device"},
      {"tcgetattr", [](auto& c) { return c.configuration().baudRate > 0; }, "get configuration for tty device"},
      {"tcgetattr", lines(true, true), "get configuration for tty device"},
      {"cfsetospeed", configure, "set baud rate"},
      {"tcsetattr", configure, "configure serial port"},
      {"TIOCMGET", [](auto& c) { return c.lineStatus().cts; }, "read line status"},
      {"TIOCGICOUNT", [](auto& c) { return c.lineCounters().cts != 0; }, "read line counters"},
      {line("TIOCMBIS", TIOCM_RTS), lines(true, true), "set RTS"},
      {line("TIOCMBIC", TIOCM_RTS), lines(false, true), "clear RTS"},
      {line("TIOCMBIS", TIOCM_DTR), lines(false, true), "set DTR"},
      {line("TIOCMBIC", TIOCM_DTR), lines(true, false), "clear DTR"},
      {"tcsendbreak", [](auto& c) { return c.sendBreak(), false; }, "send break signal"},
  };
  const Pty pty;
  for (const auto& row : rows) {
    FakePort port;
    Control control(pty.Path());
    port.lines = TIOCM_CTS;
    port.failing = row.failing;
    EXPECT_THAT(ErrorOf([&] { EXPECT_FALSE(row.operation(control)) << row.text; }),
                testing::StartsWith("LinuxTTYControl: Unable to " + row.text + ": Input/output error"));
  }
}

TEST(LinuxTTYControl, ModemLinesCountersAndAnOddPort) {
  const Pty pty;
  FakePort port;
  Control control(pty.Path());
  port.lines = TIOCM_RTS | TIOCM_CTS | TIOCM_CAR;
  EXPECT_TRUE(control.lineControl({false, true, false, false}));
  EXPECT_EQ(port.lines, TIOCM_DTR | TIOCM_CTS | TIOCM_CAR);
  const auto status = control.lineStatus();
  EXPECT_EQ(std::tuple(status.rts, status.dtr, status.cts, status.dsr), std::tuple(false, true, true, false));
  const auto counters = control.lineCounters();
  static_assert(sizeof counters == 11 * sizeof(int32_t));
  for (int i = 0; i < 11; ++i) EXPECT_EQ(reinterpret_cast<const int32_t*>(&counters)[i], i + 1);
  port.settings.c_cflag = CRTSCTS | CS5 | CSTOPB | B110;
  EXPECT_EQ(ErrorOf([&] { EXPECT_FALSE(control.lineControl({true, false, false, false})); }), "");
  EXPECT_EQ(port.lines, TIOCM_DTR | TIOCM_CTS | TIOCM_CAR);
  const auto read = control.configuration();
  EXPECT_EQ(std::tuple(read.baudRate, read.dataBits, read.stopBits), std::tuple(0, 0, 2));
}

TEST(LinuxTTY, BytesGoOutAsFarAsThereIsRoomAndComeInToAListener) {
  struct Ear : LinuxTTYReader::Listener {
    void ReceivedChars(LinuxTTYReader&, const char* data, int length) override { heard.append(data, length); }
    std::string heard;
  } ear;
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  LinuxTTYWriter writer(pty.Path());
  EXPECT_EQ(writer.Write("x", 0), 0);
  EXPECT_EQ(writer.RequestedEvents(), 0);
  tcflow(writer.Fileno(), TCOOFF);  // a stalled line keeps the queue
  std::string sent(5'000, 'a');
  EXPECT_EQ(writer.Write(sent.data(), 5'000), 4'096);
  sent.resize(4'096);
  PollPasses(3);
  writer.HandleWrite();
  EXPECT_EQ(writer.Write("x"), 0);
  tcflow(writer.Fileno(), TCOON);
  for (int i = 0; i < 2'000; ++i) {  // more than the kernel takes at once: some writes are cut short
    const std::string word = std::to_string(i) + std::string(50, '.');
    sent += word.substr(0, writer.Write(word));
    if (i % 100 == 0) PollPasses(1);
  }
  std::string got;
  EXPECT_TRUE(PollUntil([&] { return (got += pty.Read()).size() >= sent.size(); }));
  EXPECT_EQ(got, sent);
  PollPasses(3);
  EXPECT_EQ(writer.RequestedEvents(), 0);
  writer.Write("x");
  writer.HandleWrite();
  EXPECT_EQ(writer.RequestedEvents(), POLLOUT);  // sent, but only the next event finds it so

  LinuxTTYReader reader(pty.Path());
  pty.Write("nobody hears");
  PollFor(1);
  EXPECT_EQ(reader.RegisterListener(&ear), nullptr);
  const std::string all("\0\x01\r\n\x7f\xff", 6);
  pty.Write(all);
  EXPECT_TRUE(PollUntil([&] { return ear.heard.size() >= all.size(); }));
  EXPECT_EQ(ear.heard, all);
}

}  // namespace
