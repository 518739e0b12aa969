#include "emulators/analyser.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "runtime/datachecksum.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds
constexpr int64_t kSecondInMicros = 1'000'000;
constexpr int kFirstRate = 10;  // lines a second

constexpr const char* kColumns =
    "DATAH\tSECONDS\tNANOSECONDS\tDIAG\tCH4\tCH4D\tTEMP\tPRESSURE\tRSSI\tDROPRATE\tAUX1\tAUX2\tAUX3\tAUX4\tAUX5\tAUX6"
    "\tAUX7\tAUX8\tAUXTC1\tAUXTC2\tAUXTC3\tCHK\n";
constexpr const char* kDiagnostics =
    "DATADIAGH\tNOTREADY\tNOSIGNAL\tREFUNLOCKED\tBADTEMP\tLASTERTEMPUNREG\tBLOCKTEMPUNREG\tMOTORSPINNING\tPUMPON"
    "\tMIRRORHEATERON\tCALIBRATING\tCHK\n";
constexpr const char* kAcknowledged = "<tarno><tn5500><ack>true</ack></tn5500></tarno>\n";

// Microseconds since 1970.
int64_t WallClock() {
  timeval now;
  gettimeofday(&now, nullptr);
  return now.tv_sec * kSecondInMicros + now.tv_usec;
}

}  // namespace

Analyser::Analyser(const std::string& host, int port) : LineServer(host, port), PollTimer(-1, true) {
  SetRate(kFirstRate);
  Listen();
}

void Analyser::SetRate(int rate) {
  _rate = std::clamp(rate, 0, kFastest);
  if (_rate == 0) return SetTimeout(-1);
  const int64_t period = kSecondInMicros / _rate;
  SetTimeout(static_cast<int>((period - WallClock() % period + 999) / 1'000));
}

void Analyser::Announce(const std::string& name) {
  Listen();
  _announcement.emplace(name, kType, Port());
}

void Analyser::Vanish() {
  _announcement.reset();
  Refuse();
  HangUp();
}

void Analyser::CutLine() {
  const std::string line = DataLine(0, 0, 0);  // whatever it is joined to, the sum doesn't vary
  Send(line.substr(0, line.size() / 2));
  HangUp();
}

void Analyser::SendGarbage(size_t size) {
  std::string noise(size, ' ');
  for (char& c : noise) {
    _noise = _noise * 1'664'525 + 1'013'904'223;
    c = static_cast<char>(_noise >> 24);
  }
  Send(noise + '\n');
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
  if (!IsConnected() || IsJammed() || IsStalled()) return;
  // The timer is late by its own kind, the instrument is not.
  const int64_t period = kSecondInMicros / _rate;
  const int64_t moment = (WallClock() + period / 2) / period * period;
  Send(DataLine(static_cast<int32_t>(moment / kSecondInMicros), static_cast<int32_t>(moment % kSecondInMicros) * 1'000,
                _lines++));
}

void Analyser::Accepted() {
  Send(Headers());
}

void Analyser::GotLine(const std::string& command) {
  _commands.push_back(command);
  if (const size_t rate = command.find("<rate>"); rate != std::string::npos)
    SetRate(std::atoi(command.c_str() + rate + std::string_view("<rate>").size()));
  Send(kAcknowledged);
}
