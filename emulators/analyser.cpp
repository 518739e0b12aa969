#include "emulators/analyser.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "runtime/datachecksum.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds
constexpr int kBacklog = 4;

constexpr const char* kColumns =
    "DATAH\tSECONDS\tNANOSECONDS\tDIAG\tCH4\tCH4D\tTEMP\tPRESSURE\tRSSI\tDROPRATE\tAUX1\tAUX2\tAUX3\tAUX4\tAUX5\tAUX6"
    "\tAUX7\tAUX8\tAUXTC1\tAUXTC2\tAUXTC3\tCHK\n";
constexpr const char* kDiagnostics =
    "DATADIAGH\tNOTREADY\tNOSIGNAL\tREFUNLOCKED\tBADTEMP\tLASTERTEMPUNREG\tBLOCKTEMPUNREG\tMOTORSPINNING\tPUMPON"
    "\tMIRRORHEATERON\tCALIBRATING\tCHK\n";
constexpr const char* kAcknowledged = "<tarno><tn5500><ack>true</ack></tn5500></tarno>\n";

}  // namespace

void Analyser::Door::Open(const std::string& host, int& port) {
  SocketAddress address(host);
  address.Port(port);
  _socket.Open(address.Family(), Socket::TypeStream, 0);
  _socket.Bind(address);
  _socket.Listen(kBacklog);
  _socket.GetSockName(&address);
  port = address.Port();
  Register();
}

void Analyser::Door::Close() {
  UnRegister();
  _socket._close();
}

void Analyser::Door::HandleRead() {
  try {
    _analyser._Accepted(_socket.Accept(nullptr));
  } catch (const ErrnoError&) {
    // It went away again.
  }
}

void Analyser::Peer::Take(const Socket& socket) {
  Close(false);
  _socket = socket;
  _socket.SetNonBlock();
  Register();
}

void Analyser::Peer::Send(const std::string& bytes) {
  if (!IsOpen()) return;
  _queue += bytes;
  HandleWrite();
}

void Analyser::Peer::Stall(bool stalled) {
  _stalled = stalled;
  SetRequestedEvents(stalled ? 0 : POLLIN | POLLOUT);
}

void Analyser::Peer::Close(bool reset) {
  if (!IsOpen()) return;
  const linger at_once = {1, 0};
  if (reset) setsockopt(_socket.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  UnRegister();
  _socket.Close();
  _queue.clear();
  _input.clear();
}

void Analyser::Peer::HandleRead() {
  std::string data;
  try {
    _socket.Read(data);
  } catch (const ErrnoError&) {
    data.clear();
  }
  if (data.empty()) {
    Close(false);
    return;
  }
  _input += data;
  for (size_t end; (end = _input.find('\n')) != std::string::npos; _input.erase(0, end + 1))
    _analyser._Obey(_input.substr(0, end));
}

void Analyser::Peer::HandleWrite() {
  if (_stalled) return;
  const ssize_t sent = send(Fileno(), _queue.data(), _queue.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent > 0) _queue.erase(0, static_cast<size_t>(sent));
  SetRequestedEvents(_queue.empty() ? POLLIN : POLLIN | POLLOUT);
}

Analyser::Analyser(const std::string& host, int port)
    : PollTimer(kSecond / 10, true), _host(host), _port(port), _door(*this), _peer(*this) {
  Listen();
}

void Analyser::SetRate(int rate) {
  _rate = std::clamp(rate, 0, kFastest);
  SetTimeout(_rate > 0 ? kSecond / _rate : -1);
}

void Analyser::Announce(const std::string& name) {
  Listen();
  _announcement.emplace(name, kType, _port);
}

void Analyser::Vanish() {
  _announcement.reset();
  Refuse();
  HangUp();
}

void Analyser::MoveTo(const std::string& host) {
  _host = host;
  HangUp();
  Listen();
}

void Analyser::Refuse() {
  _door.Close();
}

void Analyser::Listen() {
  _door.Close();
  _door.Open(_host, _port);
}

void Analyser::Stall(bool stalled) {
  _stalled = stalled;
  _peer.Stall(stalled);
}

void Analyser::CutLine() {
  const std::string line = DataLine(0, 0, 0);  // whatever it is joined to, the sum doesn't vary
  Send(line.substr(0, line.size() / 2));
  HangUp();
}

void Analyser::HangUp() {
  _peer.Close(false);
}

void Analyser::Reset() {
  _peer.Close(true);
}

void Analyser::SendGarbage(size_t size) {
  std::string noise(size, ' ');
  for (char& c : noise) {
    _noise = _noise * 1'664'525 + 1'013'904'223;
    c = static_cast<char>(_noise >> 24);
  }
  Send(noise + '\n');
}

void Analyser::Send(const std::string& bytes) {
  _peer.Send(bytes);
}

std::string Analyser::Headers() {
  return std::string(kColumns) + kDiagnostics;
}

std::string Analyser::DataLine(int32_t seconds, int32_t nanoseconds, int number) {
  char text[256];
  const double wave = (number % 100) / 1'000.0;
  std::snprintf(
      text, sizeof text,
      "DATA\t%d\t%09d\t%d\t%.7f\t%.6f\t%.4f\t%.5f\t%.3f\t0\t%d\t0.000%d\t0\t0\t0\t0\t0\t0\t%.3f\t%.3f\t%.3f\t", seconds,
      nanoseconds, 128, 1.9 + wave, 0.0787 + wave / 24, 21.5 + wave, 101.325 - wave, 62.5 + wave, number, number % 7,
      21.1 + wave, 21.2 + wave, 21.3 + wave);
  std::string line = text;
  AppendCheckSum(line);
  return line;
}

void Analyser::HandleTimeout() {
  AddTimeout(kSecond / _rate);
  if (!_peer.IsOpen() || _peer.IsJammed() || _stalled) return;
  timeval now;
  gettimeofday(&now, nullptr);
  Send(DataLine(static_cast<int32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec) * 1'000, _lines++));
}

void Analyser::_Accepted(const Socket& socket) {
  ++_connections;
  _peer.Take(socket);
  _peer.Stall(_stalled);
  Send(Headers());
}

void Analyser::_Obey(const std::string& command) {
  _commands.push_back(command);
  if (const size_t rate = command.find("<rate>"); rate != std::string::npos)
    SetRate(std::atoi(command.c_str() + rate + std::string_view("<rate>").size()));
  Send(kAcknowledged);
}
