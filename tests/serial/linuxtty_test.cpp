#include "serial/linuxtty.h"

#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <tuple>
#include <utility>

#include "emulators/pty.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/fake_device.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using Control = LinuxTTYControl;

// What the action throws, or else the line that it says on the error stream; without the "LinuxTTY" of them all.
std::string ErrorOf(const std::function<void()>& action) {
  const CapturedOutput errors(STDERR_FILENO);
  const std::string thrown = ErrorText(action) + '\n';
  const std::string text = thrown == "nothing thrown\n" ? errors.Text() : thrown;
  return text.starts_with("LinuxTTY") && text.ends_with('\n') ? text.substr(8, text.size() - 9) : text;
}

TEST(LinuxTTYControl, IsRawWhileOpenHandlesItsLinesAndRestores) {
  const Pty pty;
  FakeDevice port;
  termios& now = port.settings;
  now.c_iflag = now.c_oflag = now.c_cflag = now.c_lflag = ~tcflag_t{};
  now.c_cc[VMIN] = now.c_cc[VTIME] = 5;
  std::optional<Control> control(std::in_place, pty.Path());
  EXPECT_EQ(~now.c_iflag, tcflag_t{IGNBRK | BRKINT | PARMRK | ISTRIP | ICRNL});
  EXPECT_EQ(~now.c_lflag, tcflag_t{ISIG | ICANON | ECHO | IEXTEN});
  EXPECT_EQ(std::tuple(~now.c_oflag, ~now.c_cflag, now.c_cc[VMIN], now.c_cc[VTIME]), std::tuple(OPOST, CRTSCTS, 0, 0));

  port.lines = TIOCM_RTS | TIOCM_CTS | TIOCM_CAR;
  EXPECT_TRUE(control->lineControl({false, true, false, false}));
  EXPECT_EQ(control->lineStatus(), (Control::LineInfo{false, true, true, false}));
  EXPECT_TRUE(control->lineCounters().cts == 1 && control->lineCounters().rx == 5);
  now.c_cflag = CRTSCTS | CS5 | CSTOPB | B110;
  EXPECT_FALSE(control->lineControl({true, false, false, false}));
  EXPECT_EQ(port.lines, TIOCM_DTR | TIOCM_CTS | TIOCM_CAR);
  EXPECT_EQ(control->configuration(), (Control::ConfigInfo{0, 2, Control::ParityNone, 0, true, true}));
  control.reset();
  EXPECT_EQ(now.c_iflag & now.c_oflag & now.c_cflag & now.c_lflag, ~tcflag_t{});
  EXPECT_EQ(now.c_cc[VMIN] + now.c_cc[VTIME], 10);
}

TEST(LinuxTTYControl, ConfigureSetsExactlyWhatIsAsked) {
  const Pty pty;
  const std::pair<Control::ConfigInfo, tcflag_t> rows[] = {
      // Rate, stop bits, parity, data bits, software and hardware flow control.
      {{2400, 2, Control::ParityOdd, 7, true, false}, CS7 | PARENB | PARODD | CSTOPB},
      {{300, 1, Control::ParityMark, 8, false, true}, CS8 | CRTSCTS}};
  for (auto [asked, flags] : rows) {
    FakeDevice port;
    Control control(pty.Path());
    port.settings.c_cflag = CLOCAL | CREAD | CS6 | PARENB | PARODD;
    port.settings.c_iflag = IXOFF | INLCR;
    EXPECT_TRUE(control.configure(asked));
    EXPECT_EQ(port.settings.c_cflag & ~tcflag_t{CIBAUD | CBAUD}, CREAD | flags);
    EXPECT_EQ(port.settings.c_iflag, tcflag_t(asked.softwareFlowControl ? INLCR | IXON | IXOFF : INLCR));
    if (asked.parity == Control::ParityMark) asked.parity = Control::ParityNone;
    EXPECT_EQ(control.configuration(), asked);
  }
}

TEST(LinuxTTY, EachFailureHasItsResultAndItsText) {
  const auto lines = [](bool up) { return [up](Control& c) { return c.lineControl({up, up, false, false}); }; };
  const auto configure = [](Control::ConfigInfo asked) { return [asked](Control& c) { return c.configure(asked); }; };
  const std::string rts = std::to_string(TIOCM_RTS), dtr = std::to_string(TIOCM_DTR), io = ": Input/output error";
  const struct {
    std::string failing;
    std::function<bool(Control&)> operation;  // false: the "failed" result
    std::string text;
  } rows[] = {
      {"", configure({14400, 3, 9, 9, false, false}), "Invalid baud rate: 14400"},
      {"", configure({9600, 3, 9, 6, false, false}), "Invalid number of data bits: 6"},
      {"", configure({9600, 0, 9, 8, false, false}), "Invalid number of stop bits: 0"},
      {"", configure({9600, 1, 5, 8, false, false}), "Invalid parity: 5"},
      {"cfsetospeed", configure({}), "Unable to set baud rate" + io},
      {"tcsetattr", configure({}), "Unable to configure serial port" + io},
      {"tcgetattr", [](auto& c) { return c.configuration().baudRate > 0; },
       "Unable to get configuration for tty device" + io},
      {"TIOCMGET", [](auto& c) { return c.lineStatus().cts; }, "Unable to read line status" + io},
      {"TIOCGICOUNT", [](auto& c) { return c.lineCounters().cts != 0; }, "Unable to read line counters" + io},
      {"TIOCMBIS" + rts, lines(true), "Unable to set RTS" + io},
      {"TIOCMBIC" + rts, lines(false), "Unable to clear RTS" + io},
      {"TIOCMBIC" + dtr, lines(false), "Unable to clear DTR" + io},
      {"tcsendbreak", [](auto& c) { return c.sendBreak(), false; }, "Unable to send break signal" + io},
  };
  const Pty pty;
  for (const auto& row : rows) {
    FakeDevice port;
    Control control(pty.Path());
    port.lines = TIOCM_CTS;
    port.settings.c_cflag = CS6;
    port.failing = row.failing;
    EXPECT_EQ(ErrorOf([&] { EXPECT_FALSE(row.operation(control)) << row.text; }), "Control: " + row.text);
    EXPECT_EQ(port.settings.c_cflag, tcflag_t{CS6}) << row.text;
  }
  EXPECT_EQ(ErrorOf([] { LinuxTTYReader("/none"); }), ": Unable to open tty device: /none: No such file or directory");
  EXPECT_EQ(ErrorOf([] { Control("/dev/null"); }), ": Unable to change settings for tty device: /dev/null");
}

TEST(LinuxTTY, BytesGoOutAsFarAsThereIsRoom) {
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  LinuxTTYWriter writer(pty.Path());
  tcflow(writer.Fileno(), TCOOFF);  // a stalled line keeps the queue
  std::string sent, got;
  while (sent.size() < 4'096) sent += std::to_string(sent.size()) + ',';
  EXPECT_EQ(writer.Write(sent), 4'096);
  EXPECT_EQ(writer.Write("x"), 0);
  writer.HandleWrite();
  tcflow(writer.Fileno(), TCOON);
  EXPECT_TRUE(PollUntil([&] { return (got += pty.Read()).size() >= 4'096; }));
  EXPECT_EQ(got, sent.substr(0, 4'096));
  PollPasses(3);
  EXPECT_EQ(writer.RequestedEvents(), 0);
}

}  // namespace
