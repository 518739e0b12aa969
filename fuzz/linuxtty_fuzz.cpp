// The control of a serial line beside a plain second form of it, on a device in memory any of whose calls may fail:
// they agree on results, on what is thrown and said, and on all that the device is left with.
//
// Input: twenty bytes for the device as it is found, one for the call that fails while the line is opened, and then two
// for each operation and the call that fails within it, followed by its arguments.

#include <sys/ioctl.h>
#include <termios.h>

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>

#include "emulators/pty.h"
#include "serial/linuxtty.h"
#include "tests/support/fake_device.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

using Control = LinuxTTYControl;

constexpr int kRates[] = {300, 1200, 2400, 4800, 9600, 19200, 38400, 57600, 115200};
const std::string kIo = "Input/output error";

class Input {
 public:
  Input(const uint8_t* data, size_t size) : _at(data), _end(data + size) {}
  bool AtEnd() const { return _at == _end; }
  unsigned int Byte() { return AtEnd() ? 0 : *_at++; }
  unsigned int Word() {
    unsigned int word = 0;
    for (int i = 0; i < 4; ++i) word = word << 8 | Byte();
    return word;
  }

 private:
  const uint8_t* _at;
  const uint8_t* const _end;
};

// Most often none.
std::string FailingCall(unsigned int code) {
  const std::string rts = std::to_string(TIOCM_RTS), dtr = std::to_string(TIOCM_DTR);
  const std::string calls[] = {"tcgetattr",   "tcsetattr",      "cfsetospeed",    "tcsendbreak",    "TIOCMGET",
                               "TIOCGICOUNT", "TIOCMBIS" + rts, "TIOCMBIC" + rts, "TIOCMBIS" + dtr, "TIOCMBIC" + dtr};
  return code < std::size(calls) ? calls[code] : "";
}

// What an operation gives: its result in bytes, or what it throws; and what it says on the error stream.
struct Outcome {
  std::string result, thrown, said;
  bool operator==(const Outcome&) const = default;
};

template <class Value>
std::string Bytes(const Value& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}
std::string Bytes(const Control::ConfigInfo& config) {
  return Bytes(config.baudRate) + Bytes(config.stopBits) + Bytes(config.parity) + Bytes(config.dataBits) +
         Bytes(config.softwareFlowControl) + Bytes(config.hardwareFlowControl);
}

std::string Bytes(const termios& settings) {
  return Bytes(settings.c_iflag) + Bytes(settings.c_oflag) + Bytes(settings.c_cflag) + Bytes(settings.c_lflag) +
         Bytes(settings.c_cc) + Bytes(settings.c_ispeed) + Bytes(settings.c_ospeed);
}

template <class Operation>
Outcome OutcomeOf(const Operation& operation) {
  Outcome outcome;
  std::ostringstream said;
  std::streambuf* const errors = std::cerr.rdbuf(said.rdbuf());
  try {
    outcome.result = operation();
  } catch (const LinuxTTYBase::DeviceError& error) {
    outcome.thrown = error.what();
  }
  std::cerr.rdbuf(errors);
  outcome.said = said.str();
  return outcome;
}

// The settings and lines of a device, and what the operations on it do.
struct SecondForm {
  static Outcome Said(const std::string& result, const std::string& text) {
    return {result, "", "LinuxTTYControl: " + text + '\n'};
  }
  static Outcome Unreadable() {
    return {"", "LinuxTTYControl: Unable to get configuration for tty device: " + kIo, ""};
  }

  Outcome Open(const std::string& path) {
    if (failing != "tcgetattr") found = settings;
    termios raw = found.value_or(termios{});
    raw.c_iflag = raw.c_iflag & ~(IGNBRK | BRKINT | PARMRK | ISTRIP | ICRNL);
    raw.c_oflag = raw.c_oflag & ~OPOST;
    raw.c_cflag = raw.c_cflag & ~CRTSCTS;
    raw.c_lflag = raw.c_lflag & ~(ISIG | ICANON | ECHO | IEXTEN);
    raw.c_cc[VMIN] = raw.c_cc[VTIME] = 0;
    if (failing == "tcsetattr") return {"", "LinuxTTY: Unable to change settings for tty device: " + path, ""};
    settings = raw;
    return {};
  }
  void Close() {
    if (found && failing != "tcsetattr") settings = *found;
  }

  Outcome Configure(const Control::ConfigInfo& asked) {
    const std::string no = Bytes(false);
    if (failing == "tcgetattr") return Unreadable();
    bool known = false;
    for (const int rate : kRates) known = known || rate == asked.baudRate;
    if (!known) return Said(no, "Invalid baud rate: " + std::to_string(asked.baudRate));
    if (asked.dataBits != 7 && asked.dataBits != 8)
      return Said(no, "Invalid number of data bits: " + std::to_string(asked.dataBits));
    if (asked.stopBits != 1 && asked.stopBits != 2)
      return Said(no, "Invalid number of stop bits: " + std::to_string(asked.stopBits));
    if (asked.parity < 0 || asked.parity > 4) return Said(no, "Invalid parity: " + std::to_string(asked.parity));
    if (failing == "cfsetospeed") return Said(no, "Unable to set baud rate: " + kIo);
    if (failing == "tcsetattr") return Said(no, "Unable to configure serial port: " + kIo);
    cfsetspeed(&settings, static_cast<speed_t>(asked.baudRate));
    Put(settings.c_cflag, CSIZE, asked.dataBits == 7 ? CS7 : CS8);
    Put(settings.c_cflag, CSTOPB, asked.stopBits == 2 ? CSTOPB : 0);
    Put(settings.c_cflag, PARENB | PARODD, asked.parity == 1 ? PARENB : asked.parity == 2 ? PARENB | PARODD : 0);
    Put(settings.c_cflag, CRTSCTS | CLOCAL, asked.hardwareFlowControl ? CRTSCTS : 0);
    Put(settings.c_iflag, IXON | IXOFF, asked.softwareFlowControl ? IXON | IXOFF : 0);
    return {Bytes(true), "", ""};
  }
  static void Put(tcflag_t& flags, tcflag_t mask, tcflag_t bits) { flags = (flags & ~mask) | bits; }

  Outcome Configuration() const {
    if (failing == "tcgetattr") return Unreadable();
    Control::ConfigInfo config = {0, 1, 0, 0, false, false};
    for (const int rate : kRates) {
      termios at_rate = settings;
      cfsetspeed(&at_rate, static_cast<speed_t>(rate));
      if (cfgetospeed(&at_rate) == cfgetospeed(&settings)) config.baudRate = rate;
    }
    const tcflag_t flags = settings.c_cflag;
    if ((flags & CSIZE) == CS7) config.dataBits = 7;
    if ((flags & CSIZE) == CS8) config.dataBits = 8;
    if ((flags & CSTOPB) != 0) config.stopBits = 2;
    if ((flags & PARENB) != 0) config.parity = (flags & PARODD) != 0 ? 2 : 1;
    config.hardwareFlowControl = (flags & CRTSCTS) != 0;
    config.softwareFlowControl = (settings.c_iflag & (IXON | IXOFF)) != 0;
    return {Bytes(config), "", ""};
  }

  Outcome LineStatus() const {
    if (failing == "TIOCMGET") return Said(Bytes(Control::LineInfo{}), "Unable to read line status: " + kIo);
    const auto on = [this](int line) { return (lines & line) != 0; };
    return {Bytes(Control::LineInfo{on(TIOCM_RTS), on(TIOCM_DTR), on(TIOCM_CTS), on(TIOCM_DSR)}), "", ""};
  }

  Outcome LineControl(const Control::LineInfo& asked) {
    if (failing == "tcgetattr") return Unreadable();
    if ((settings.c_cflag & CRTSCTS) != 0) return {Bytes(false), "", ""};
    const struct {
      int line;
      bool on;
      const char* name;
    } rows[] = {{TIOCM_RTS, asked.rts, "RTS"}, {TIOCM_DTR, asked.dtr, "DTR"}};
    for (const auto& row : rows) {
      if (failing == (row.on ? "TIOCMBIS" : "TIOCMBIC") + std::to_string(row.line))
        return Said(Bytes(false), std::string("Unable to ") + (row.on ? "set " : "clear ") + row.name + ": " + kIo);
      lines = row.on ? lines | row.line : lines & ~row.line;
    }
    return {Bytes(true), "", ""};
  }

  Outcome LineCounters() const {
    if (failing == "TIOCGICOUNT") return Said(Bytes(Control::LineCounters{}), "Unable to read line counters: " + kIo);
    return {Bytes(Control::LineCounters{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}), "", ""};
  }

  Outcome SendBreak() const {
    return failing == "tcsendbreak" ? Said("", "Unable to send break signal: " + kIo) : Outcome{};
  }

  std::string failing;
  termios settings = {};
  int lines = 0;
  std::optional<termios> found;
};

Control::ConfigInfo Asked(Input& input) {
  Control::ConfigInfo asked;
  const unsigned int rate = input.Byte() % 12, format = input.Byte(), flags = input.Byte();
  asked.baudRate = rate < std::size(kRates) ? kRates[rate] : static_cast<int>(rate) * 1'600 - 14'400;
  asked.stopBits = static_cast<int>(format % 4);
  asked.dataBits = static_cast<int>(format / 4 % 8) + 2;
  asked.parity = static_cast<int>(flags % 8) - 1;
  asked.softwareFlowControl = (flags & 16) != 0;
  asked.hardwareFlowControl = (flags & 32) != 0;
  return asked;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Pty pty;
  Input input(data, size);
  FakeDevice device;
  SecondForm expected;
  for (tcflag_t termios::*flags : {&termios::c_iflag, &termios::c_oflag, &termios::c_cflag, &termios::c_lflag})
    expected.settings.*flags = input.Word();
  expected.settings.c_cc[VMIN] = expected.settings.c_cc[VTIME] = static_cast<cc_t>(input.Byte());
  expected.lines = static_cast<int>(input.Word() >> 8);
  device.settings = expected.settings;
  device.lines = expected.lines;
  const auto fail = [&] { device.failing = expected.failing = FailingCall(input.Byte()); };
  const auto agree = [&](const Outcome& outcome, const Outcome& wanted) {
    REQUIRE(outcome == wanted);
    REQUIRE(Bytes(device.settings) == Bytes(expected.settings) && device.lines == expected.lines);
  };

  std::optional<Control> control;
  fail();
  agree(OutcomeOf([&] { return control.emplace(pty.Path()), ""; }), expected.Open(pty.Path()));
  while (control && !input.AtEnd()) {
    const unsigned int operation = input.Byte() % 6;
    fail();
    if (operation == 0) {
      const auto asked = Asked(input);
      agree(OutcomeOf([&] { return Bytes(control->configure(asked)); }), expected.Configure(asked));
    } else if (operation == 1) {
      const unsigned int bits = input.Byte();
      const Control::LineInfo asked = {(bits & 1) != 0, (bits & 2) != 0, (bits & 4) != 0, (bits & 8) != 0};
      agree(OutcomeOf([&] { return Bytes(control->lineControl(asked)); }), expected.LineControl(asked));
    } else if (operation == 2) {
      agree(OutcomeOf([&] { return Bytes(control->configuration()); }), expected.Configuration());
    } else if (operation == 3) {
      agree(OutcomeOf([&] { return Bytes(control->lineStatus()); }), expected.LineStatus());
    } else if (operation == 4) {
      agree(OutcomeOf([&] { return Bytes(control->lineCounters()); }), expected.LineCounters());
    } else {
      agree(OutcomeOf([&] { return control->sendBreak(), ""; }), expected.SendBreak());
    }
  }
  if (control) expected.Close();
  agree(OutcomeOf([&] { return control.reset(), ""; }), {});
  return 0;
}
