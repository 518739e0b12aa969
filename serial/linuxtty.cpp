#include "serial/linuxtty.h"

#include <fcntl.h>
#include <linux/serial.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <utility>

namespace {

constexpr int kBufferSize = 4096;  // of the reader's buffer and the writer's queue

struct Speed {
  int rate;  // bits per second
  speed_t code;
};
constexpr Speed kSpeeds[] = {
    {300, B300},     {1200, B1200},   {2400, B2400},   {4800, B4800},     {9600, B9600},
    {19200, B19200}, {38400, B38400}, {57600, B57600}, {115200, B115200},
};

// A value of the configuration, and its bits among the control flags.
struct Choice {
  int value;
  tcflag_t bits;
};
constexpr Choice kDataBits[] = {{7, CS7}, {8, CS8}};
constexpr Choice kStopBits[] = {{1, 0}, {2, CSTOPB}};
// Mark and space would want a bit that not every driver has: they are quietly none.
constexpr Choice kParities[] = {
    {LinuxTTYControl::ParityNone, 0},
    {LinuxTTYControl::ParityEven, PARENB},
    {LinuxTTYControl::ParityOdd, PARENB | PARODD},
    {LinuxTTYControl::ParityMark, 0},
    {LinuxTTYControl::ParitySpace, 0},
};

std::optional<speed_t> FindSpeed(int rate) {
  for (const Speed& speed : kSpeeds)
    if (speed.rate == rate) return speed.code;
  std::cerr << "LinuxTTYControl: Invalid baud rate: " << rate << '\n';
  return std::nullopt;
}

template <size_t Count>
std::optional<tcflag_t> FindBits(const Choice (&choices)[Count], int value, const char* name) {
  for (const Choice& choice : choices)
    if (choice.value == value) return choice.bits;
  std::cerr << "LinuxTTYControl: Invalid " << name << ": " << value << '\n';
  return std::nullopt;
}

// Tells the system's error on the error stream.
void Complain(const char* what) {
  const int error = errno;
  std::cerr << "LinuxTTYControl: Unable to " << what << ": " << std::strerror(error) << '\n';
}

int OpenDevice(const std::string& path, LinuxTTYBase::OpenMode mode) {
  const int access = mode == LinuxTTYBase::OpenRead ? O_RDONLY : mode == LinuxTTYBase::OpenWrite ? O_WRONLY : O_RDWR;
  const int fd = open(path.c_str(), access | O_NONBLOCK);
  if (fd >= 0) return fd;
  const int error = errno;
  throw LinuxTTYBase::DeviceError("LinuxTTY: Unable to open tty device: " + path + ": " + std::strerror(error));
}

}  // namespace

LinuxTTYBase::LinuxTTYBase(const std::string& path, OpenMode mode) : _ttyfd(OpenDevice(path, mode)) {}

LinuxTTYBase::~LinuxTTYBase() {
  close(_checked_fd());
}

int LinuxTTYBase::_checked_fd() const {
  // clang-format off
  assert(_ttyfd>=0);  // assert prints the expression as it is spelt here
  // clang-format on
  return _ttyfd;
}

LinuxTTYItem::LinuxTTYItem(const std::string& path, OpenMode mode, short events)
    : PollItem(events, true), LinuxTTYBase(path, mode), _path(path) {}

bool LinuxTTYItem::IsHungUp() const {
  pollfd asked = {_ttyfd, 0, 0};
  return _hung_up || poll(&asked, 1, 0) > 0;
}

int LinuxTTYItem::Fileno() const {
  return _checked_fd();
}

// One event can bring several of these.
void LinuxTTYItem::HandleHangUp() {
  SetRequestedEvents(0);
  if (!std::exchange(_hung_up, true)) std::cout << Description() << ": Lost tty device: " << _path << std::endl;
}

void LinuxTTYItem::HandleError() {
  HandleHangUp();
}

void LinuxTTYItem::HandleInvalid() {
  HandleHangUp();
}

LinuxTTYReader::LinuxTTYReader(const std::string& path) : LinuxTTYItem(path, OpenRead, POLLIN), _buffer(kBufferSize) {}

LinuxTTYReader::Listener* LinuxTTYReader::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void LinuxTTYReader::HandleRead() {
  const ssize_t count = read(_ttyfd, _buffer.data(), _buffer.size());
  if (_listener != nullptr && count > 0) _listener->ReceivedChars(*this, _buffer.data(), static_cast<int>(count));
}

const char* LinuxTTYReader::Description() const {
  return "LinuxTTYReader";
}

LinuxTTYWriter::LinuxTTYWriter(const std::string& path) : LinuxTTYItem(path, OpenWrite, 0) {
  _queue.reserve(kBufferSize);
}

int LinuxTTYWriter::Room() const {
  return _hung_up ? 0 : kBufferSize - static_cast<int>(_queue.size());
}

int LinuxTTYWriter::Write(const char* data, int length) {
  length = std::min(length, Room());
  if (length > 0) {
    _queue.insert(_queue.end(), data, data + length);
    SetRequestedEvents(POLLOUT);
  }
  return length;
}

int LinuxTTYWriter::Write(const std::string& text) {
  return Write(text.data(), static_cast<int>(std::min<size_t>(text.size(), kBufferSize)));
}

// Interest is taken away by the event that finds nothing to send, one later than could be.
void LinuxTTYWriter::HandleWrite() {
  if (_queue.empty()) {
    SetRequestedEvents(0);
    return;
  }
  const ssize_t count = write(_ttyfd, _queue.data(), _queue.size());
  if (count > 0) _queue.erase(_queue.begin(), _queue.begin() + count);
}

const char* LinuxTTYWriter::Description() const {
  return "LinuxTTYWriter";
}

LinuxTTYControl::LinuxTTYControl(const std::string& path) : LinuxTTYBase(path, OpenReadWrite) {
  _have_saved = tcgetattr(_ttyfd, &_saved) == 0;
  termios raw = _saved;
  raw.c_iflag &= ~tcflag_t{IGNBRK | BRKINT | PARMRK | ISTRIP | ICRNL};
  raw.c_oflag &= ~tcflag_t{OPOST};
  raw.c_cflag &= ~tcflag_t{CRTSCTS};
  raw.c_lflag &= ~tcflag_t{ISIG | ICANON | ECHO | IEXTEN};
  raw.c_cc[VMIN] = 0;
  raw.c_cc[VTIME] = 0;
  if (tcsetattr(_ttyfd, TCSANOW, &raw) != 0)
    throw DeviceError("LinuxTTY: Unable to change settings for tty device: " + path);
}

LinuxTTYControl::~LinuxTTYControl() {
  if (_have_saved) tcsetattr(_ttyfd, TCSANOW, &_saved);
}

termios LinuxTTYControl::_settings() const {
  termios settings = {};
  if (tcgetattr(_ttyfd, &settings) == 0) return settings;
  const int error = errno;
  throw DeviceError(std::string("LinuxTTYControl: Unable to get configuration for tty device: ") +
                    std::strerror(error));
}

bool LinuxTTYControl::IsBaudRate(int rate) {
  return std::any_of(std::begin(kSpeeds), std::end(kSpeeds), [rate](const Speed& speed) { return speed.rate == rate; });
}

LinuxTTYControl::ConfigInfo LinuxTTYControl::configuration() const {
  const termios settings = _settings();
  const tcflag_t flags = settings.c_cflag;
  const auto speed = std::find_if(std::begin(kSpeeds), std::end(kSpeeds),
                                  [code = cfgetospeed(&settings)](const Speed& s) { return s.code == code; });
  ConfigInfo config;
  config.baudRate = speed == std::end(kSpeeds) ? 0 : speed->rate;
  config.stopBits = (flags & CSTOPB) != 0 ? 2 : 1;
  if ((flags & PARENB) != 0) config.parity = (flags & PARODD) != 0 ? ParityOdd : ParityEven;
  config.dataBits = (flags & CSIZE) == CS8 ? 8 : (flags & CSIZE) == CS7 ? 7 : 0;
  config.softwareFlowControl = (settings.c_iflag & (IXON | IXOFF)) != 0;
  config.hardwareFlowControl = (flags & CRTSCTS) != 0;
  return config;
}

bool LinuxTTYControl::configure(const ConfigInfo& config) {
  termios settings = _settings();
  const auto speed = FindSpeed(config.baudRate);
  if (!speed) return false;
  const auto data_bits = FindBits(kDataBits, config.dataBits, "number of data bits");
  if (!data_bits) return false;
  const auto stop_bits = FindBits(kStopBits, config.stopBits, "number of stop bits");
  if (!stop_bits) return false;
  const auto parity = FindBits(kParities, config.parity, "parity");
  if (!parity) return false;

  if (cfsetospeed(&settings, *speed) != 0 || cfsetispeed(&settings, *speed) != 0) {
    Complain("set baud rate");
    return false;
  }
  settings.c_cflag &= ~tcflag_t{CRTSCTS | CSIZE | CSTOPB | PARENB | PARODD | CLOCAL};
  settings.c_cflag |= *data_bits | *stop_bits | *parity | (config.hardwareFlowControl ? CRTSCTS : 0);
  settings.c_iflag &= ~tcflag_t{IXON | IXOFF};
  if (config.softwareFlowControl) settings.c_iflag |= IXON | IXOFF;
  if (tcsetattr(_ttyfd, TCSANOW, &settings) != 0) {
    Complain("configure serial port");
    return false;
  }
  return true;
}

LinuxTTYControl::LineInfo LinuxTTYControl::lineStatus() const {
  int lines = 0;
  if (ioctl(_ttyfd, TIOCMGET, &lines) != 0) {
    Complain("read line status");
    return {};
  }
  return {(lines & TIOCM_RTS) != 0, (lines & TIOCM_DTR) != 0, (lines & TIOCM_CTS) != 0, (lines & TIOCM_DSR) != 0};
}

bool LinuxTTYControl::lineControl(const LineInfo& lines) {
  if ((_settings().c_cflag & CRTSCTS) != 0) return false;
  return _set_line(TIOCM_RTS, lines.rts, "RTS") && _set_line(TIOCM_DTR, lines.dtr, "DTR");
}

bool LinuxTTYControl::_set_line(int line, bool on, const char* name) {
  if (ioctl(_ttyfd, on ? TIOCMBIS : TIOCMBIC, &line) == 0) return true;
  const int error = errno;
  std::cerr << "LinuxTTYControl: Unable to " << (on ? "set " : "clear ") << name << ": " << std::strerror(error)
            << '\n';
  return false;
}

LinuxTTYControl::LineCounters LinuxTTYControl::lineCounters() const {
  serial_icounter_struct counted = {};
  if (ioctl(_ttyfd, TIOCGICOUNT, &counted) != 0) {
    Complain("read line counters");
    return {};
  }
  return {counted.cts,   counted.dsr,     counted.rng,    counted.dcd, counted.rx,         counted.tx,
          counted.frame, counted.overrun, counted.parity, counted.brk, counted.buf_overrun};
}

void LinuxTTYControl::sendBreak() {
  if (tcsendbreak(_ttyfd, 0) != 0) Complain("send break signal");
}
