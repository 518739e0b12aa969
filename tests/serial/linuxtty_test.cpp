#include "serial/linuxtty.h"

#include <fcntl.h>
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

using testing::ElementsAre;

// The name of a modem line's call as FakePort::failing wants it.
std::string Line(const char* call, int line) {
  return call + std::to_string(line);
}

auto Content(const termios& t) {
  return std::tuple(t.c_iflag, t.c_oflag, t.c_cflag, t.c_lflag, std::string(std::begin(t.c_cc), std::end(t.c_cc)),
                    cfgetispeed(&t), cfgetospeed(&t));
}

template <typename Function>
std::string ErrorOf(Function function) {
  try {
    function();
  } catch (const LinuxTTYBase::DeviceError& error) {
    return error.what();
  }
  return "nothing thrown";
}

TEST(LinuxTTY, OpeningTellsThePathAndWhy) {
  const std::string missing = "LinuxTTY: Unable to open tty device: /nowhere/tty: No such file or directory";
  EXPECT_EQ(ErrorOf([] { LinuxTTYReader("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { LinuxTTYWriter("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { LinuxTTYControl("/nowhere/tty"); }), missing);
  EXPECT_EQ(ErrorOf([] { LinuxTTYControl("/dev/null"); }),
            "LinuxTTY: Unable to change settings for tty device: /dev/null");
  PollPasses(2);  // what failed to open has left the loop
}

TEST(LinuxTTY, OpeningIsRawAndClosingRestores) {
  const Pty pty;
  const int device = open(pty.Path().c_str(), O_RDWR | O_NOCTTY);
  termios found = {}, raw = {}, restored = {};
  tcgetattr(device, &found);
  found.c_iflag = ~tcflag_t{IUCLC | IMAXBEL};
  found.c_oflag |= OPOST;
  found.c_cflag |= CRTSCTS | CSTOPB;
  found.c_lflag = ISIG | ICANON | ECHO | ECHOE | IEXTEN;
  found.c_cc[VMIN] = found.c_cc[VTIME] = 5;
  cfsetspeed(&found, B2400);
  tcsetattr(device, TCSANOW, &found);
  tcgetattr(device, &found);
  {
    const LinuxTTYControl control(pty.Path());
    tcgetattr(device, &raw);
  }
  tcgetattr(device, &restored);
  close(device);
  EXPECT_EQ(found.c_iflag & ~raw.c_iflag, tcflag_t{IGNBRK | BRKINT | PARMRK | ISTRIP | ICRNL});
  EXPECT_EQ(found.c_oflag & ~raw.c_oflag, tcflag_t{OPOST});
  EXPECT_EQ(found.c_cflag & ~raw.c_cflag, CRTSCTS);
  EXPECT_EQ(raw.c_lflag, tcflag_t{ECHOE});
  EXPECT_THAT((std::vector{raw.c_cc[VMIN], raw.c_cc[VTIME]}), ElementsAre(0, 0));
  EXPECT_EQ(cfgetospeed(&raw), speed_t{B2400});
  EXPECT_EQ(Content(restored), Content(found));
}

struct ConfigRow {
  const char* name;
  LinuxTTYControl::ConfigInfo asked;  // rate, stop bits, parity, data bits, software and hardware flow control
  tcflag_t flags;                     // of CSIZE, CSTOPB, PARENB, PARODD, CRTSCTS
  const char* complaint = "";
  int parity_read = -1;  // where it isn't the one asked for
};

class LinuxTTYConfig : public testing::TestWithParam<ConfigRow> {};

TEST_P(LinuxTTYConfig, SetsExactlyWhatIsAskedOrNothing) {
  const auto& row = GetParam();
  const Pty pty;
  FakePort port;
  LinuxTTYControl control(pty.Path());
  port.settings.c_cflag = CLOCAL | CREAD | CS6 | PARENB | PARODD;
  port.settings.c_iflag = IXOFF | INLCR;
  const termios before = port.settings;
  const CapturedOutput errors(STDERR_FILENO);
  const bool applied = control.configure(row.asked);
  EXPECT_EQ(errors.Text(), row.complaint);
  EXPECT_EQ(applied, *row.complaint == '\0');
  if (!applied) {
    EXPECT_EQ(Content(port.settings), Content(before));
    return;
  }
  EXPECT_EQ(port.settings.c_cflag & ~tcflag_t{CBAUD}, CREAD | row.flags);
  EXPECT_EQ(port.settings.c_iflag, tcflag_t(INLCR | (row.asked.softwareFlowControl ? IXON | IXOFF : 0)));
  EXPECT_EQ(cfgetispeed(&port.settings), cfgetospeed(&port.settings));
  const auto read = control.configuration();
  EXPECT_EQ(read.baudRate, row.asked.baudRate);
  EXPECT_EQ(read.stopBits, row.asked.stopBits);
  EXPECT_EQ(read.parity, row.parity_read < 0 ? row.asked.parity : row.parity_read);
  EXPECT_EQ(read.dataBits, row.asked.dataBits);
  EXPECT_EQ(read.softwareFlowControl, row.asked.softwareFlowControl);
  EXPECT_EQ(read.hardwareFlowControl, row.asked.hardwareFlowControl);
}

using Control = LinuxTTYControl;
INSTANTIATE_TEST_SUITE_P(
    Rows, LinuxTTYConfig,
    testing::Values(
        ConfigRow{"Slowest", {300, 1, Control::ParityNone, 8, false, false}, CS8},
        ConfigRow{"SevenEven", {1200, 1, Control::ParityEven, 7, false, false}, CS7 | PARENB},
        ConfigRow{"SevenOddTwo", {2400, 2, Control::ParityOdd, 7, true, false}, CS7 | PARENB | PARODD | CSTOPB},
        ConfigRow{"Gps", {4800, 1, Control::ParityNone, 8, false, false}, CS8},
        ConfigRow{"MarkIsNone", {9600, 1, Control::ParityMark, 8, false, false}, CS8, "", Control::ParityNone},
        ConfigRow{"SpaceIsNone", {19200, 1, Control::ParitySpace, 8, false, false}, CS8, "", Control::ParityNone},
        ConfigRow{"Hardware", {38400, 1, Control::ParityNone, 8, false, true}, CS8 | CRTSCTS},
        ConfigRow{"Hemisphere", {57600, 1, Control::ParityNone, 8, true, true}, CS8 | CRTSCTS},
        ConfigRow{"Fastest", {115200, 1, Control::ParityNone, 8, false, false}, CS8},
        ConfigRow{"Rate", {14400, 3, 9, 9}, 0, "LinuxTTYControl: Invalid baud rate: 14400\n"},
        ConfigRow{"DataBits", {9600, 3, 9, 6}, 0, "LinuxTTYControl: Invalid number of data bits: 6\n"},
        ConfigRow{"StopBits", {9600, 0, 9, 8}, 0, "LinuxTTYControl: Invalid number of stop bits: 0\n"},
        ConfigRow{"Parity", {9600, 1, 5, 8}, 0, "LinuxTTYControl: Invalid parity: 5\n"}),
    [](const auto& row) { return row.param.name; });

TEST(LinuxTTYControl, APortLeftOddlyIsStillRead) {
  const Pty pty;
  FakePort port;
  const LinuxTTYControl control(pty.Path());
  port.settings.c_cflag = CS5 | CSTOPB;
  cfsetspeed(&port.settings, B110);
  const auto read = control.configuration();
  EXPECT_THAT((std::vector{read.baudRate, read.dataBits, read.stopBits}), ElementsAre(0, 0, 2));
}

struct FailureRow {
  const char* name;
  std::string failing;
  std::function<bool(Control&)> operation;  // false: the operation gives its "failed" result
  std::string text;                         // on the error stream, or thrown
};

class LinuxTTYFailure : public testing::TestWithParam<FailureRow> {};

TEST_P(LinuxTTYFailure, HasItsText) {
  const auto& row = GetParam();
  const Pty pty;
  FakePort port;
  Control control(pty.Path());
  port.failing = row.failing;
  const CapturedOutput errors(STDERR_FILENO);
  bool result = false;
  const std::string thrown = ErrorOf([&] { result = row.operation(control); });
  EXPECT_FALSE(result);
  EXPECT_EQ(thrown == "nothing thrown" ? errors.Text() : thrown + '\n', row.text + ": Input/output error\n");
}

bool Configure(Control& control) {
  return control.configure({});
}
bool Lines(Control& control, bool rts, bool dtr) {
  return control.lineControl({rts, dtr, false, false});
}
const std::string kUnreadable = "LinuxTTYControl: Unable to get configuration for tty device";

INSTANTIATE_TEST_SUITE_P(
    Rows, LinuxTTYFailure,
    testing::Values(FailureRow{"ReadForConfigure", "tcgetattr", Configure, kUnreadable},
                    FailureRow{"ReadForConfiguration", "tcgetattr",
                               [](auto& c) { return c.configuration().baudRate > 0; }, kUnreadable},
                    FailureRow{"ReadForLines", "tcgetattr", [](auto& c) { return Lines(c, true, true); }, kUnreadable},
                    FailureRow{"Speed", "cfsetospeed", Configure, "LinuxTTYControl: Unable to set baud rate"},
                    FailureRow{"Apply", "tcsetattr", Configure, "LinuxTTYControl: Unable to configure serial port"},
                    FailureRow{"Status", "TIOCMGET", [](auto& c) { return c.lineStatus().cts; },
                               "LinuxTTYControl: Unable to read line status"},
                    FailureRow{"Counters", "TIOCGICOUNT", [](auto& c) { return c.lineCounters().cts != 0; },
                               "LinuxTTYControl: Unable to read line counters"},
                    FailureRow{"SetRTS", Line("TIOCMBIS", TIOCM_RTS), [](auto& c) { return Lines(c, true, true); },
                               "LinuxTTYControl: Unable to set RTS"},
                    FailureRow{"ClearRTS", Line("TIOCMBIC", TIOCM_RTS), [](auto& c) { return Lines(c, false, true); },
                               "LinuxTTYControl: Unable to clear RTS"},
                    FailureRow{"SetDTR", Line("TIOCMBIS", TIOCM_DTR), [](auto& c) { return Lines(c, false, true); },
                               "LinuxTTYControl: Unable to set DTR"},
                    FailureRow{"ClearDTR", Line("TIOCMBIC", TIOCM_DTR), [](auto& c) { return Lines(c, true, false); },
                               "LinuxTTYControl: Unable to clear DTR"},
                    FailureRow{"Break", "tcsendbreak", [](auto& c) { return c.sendBreak(), false; },
                               "LinuxTTYControl: Unable to send break signal"}),
    [](const auto& row) { return row.param.name; });

TEST(LinuxTTYControl, ModemLinesAndCounters) {
  const Pty pty;
  FakePort port;
  Control control(pty.Path());
  port.lines = TIOCM_RTS | TIOCM_CTS | TIOCM_CAR;
  EXPECT_TRUE(Lines(control, false, true));
  EXPECT_EQ(port.lines, TIOCM_DTR | TIOCM_CTS | TIOCM_CAR);
  const auto status = control.lineStatus();
  EXPECT_THAT((std::vector{status.rts, status.dtr, status.cts, status.dsr}), ElementsAre(false, true, true, false));
  const auto counters = control.lineCounters();
  static_assert(sizeof counters == 11 * sizeof(int32_t));
  for (int i = 0; i < 11; ++i) EXPECT_EQ(reinterpret_cast<const int32_t*>(&counters)[i], i + 1);
  control.sendBreak();
  port.settings.c_cflag |= CRTSCTS;
  const CapturedOutput errors(STDERR_FILENO);
  EXPECT_FALSE(Lines(control, true, false));
  EXPECT_EQ(port.lines, TIOCM_DTR | TIOCM_CTS | TIOCM_CAR);
  EXPECT_EQ(errors.Text(), "");
}

TEST(LinuxTTYWriter, QueuesWhatFitsAndSendsItInOrder) {
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  LinuxTTYWriter writer(pty.Path());
  EXPECT_EQ(writer.Write("x", 0), 0);
  EXPECT_EQ(writer.RequestedEvents(), 0);
  std::string sent;
  for (int i = 0; sent.size() < 5'000; ++i) sent += std::to_string(i) + ' ';
  EXPECT_EQ(writer.Write(sent.data(), 5'000), 4'096);
  EXPECT_EQ(writer.Write("x"), 0);
  std::string got;
  EXPECT_TRUE(PollUntil([&] { return (got += pty.Read()).size() >= 4'096; }));
  EXPECT_EQ(got, sent.substr(0, 4'096));
  EXPECT_EQ(writer.Write(sent.substr(4'096)), static_cast<int>(sent.size()) - 4'096);
  writer.HandleWrite();
  EXPECT_EQ(writer.RequestedEvents(), POLLOUT);  // sent, but only the next event finds it so
  writer.HandleWrite();
  EXPECT_EQ(writer.RequestedEvents(), 0);
  EXPECT_TRUE(PollUntil([&] { return (got += pty.Read()).size() >= sent.size(); }));
  EXPECT_EQ(got, sent);
  PollPasses(3);
  EXPECT_EQ(writer.RequestedEvents(), 0);
}

TEST(LinuxTTYWriter, AStalledLineKeepsTheQueue) {
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  LinuxTTYWriter writer(pty.Path());
  tcflow(writer.Fileno(), TCOOFF);
  EXPECT_EQ(writer.Write(std::string(4'096, 'a')), 4'096);
  PollPasses(3);
  writer.HandleWrite();
  EXPECT_EQ(writer.Write("x"), 0);
  EXPECT_EQ(writer.RequestedEvents(), POLLOUT);
  tcflow(writer.Fileno(), TCOON);
  // More than the kernel takes at once: some writes are cut short.
  std::string sent(4'096, 'a');
  for (int i = 0; i < 2'000; ++i) {
    const std::string word = std::to_string(i) + ' ' + std::string(50, '.');
    sent += word.substr(0, writer.Write(word));
    if (i % 100 == 0) PollPasses(1);
  }
  std::string got;
  EXPECT_TRUE(PollUntil([&] { return (got += pty.Read()).size() >= sent.size(); }));
  EXPECT_EQ(got, sent);
}

struct Ear : LinuxTTYReader::Listener {
  void ReceivedChars(LinuxTTYReader& reader, const char* data, int length) override {
    heard.append(data, length);
    largest = std::max(largest, length);
    if (leave) reader.RegisterListener(nullptr);
  }
  std::string heard;
  int largest = 0;
  bool leave = false;
};

TEST(LinuxTTYReader, HandsOnWhatArrivesAndDropsItWithoutListener) {
  VirtualTime time;
  time.SetGrace(20);
  Pty pty;
  LinuxTTYReader reader(pty.Path());
  pty.Write("nobody hears");
  PollFor(1);
  Ear ear;
  EXPECT_EQ(reader.RegisterListener(&ear), nullptr);
  PollFor(1);
  EXPECT_EQ(ear.heard, "");
  const std::string all("\0\x01\r\n\x7f\xff", 6);
  pty.Write(all);
  EXPECT_TRUE(PollUntil([&] { return ear.heard.size() >= all.size(); }));
  EXPECT_EQ(ear.heard, all);
  ear.leave = true;
  pty.Write("last");
  PollFor(1);
  EXPECT_EQ(reader.RegisterListener(nullptr), nullptr);
  EXPECT_LE(ear.largest, 4'096);
}

// What the loop asks of a port whose descriptor is gone is our own mistake.
TEST(LinuxTTYDeathTest, ADescriptorIsNeverMissing) {
  struct Closed : LinuxTTYReader {
    using LinuxTTYReader::LinuxTTYReader;
    void Lose() { _ttyfd = -1; }
  };
  const Pty pty;
  Closed reader(pty.Path());
  EXPECT_DEATH((reader.Lose(), reader.Fileno()), "_ttyfd>=0");
}

}  // namespace
