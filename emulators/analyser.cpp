#include "emulators/analyser.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "runtime/datachecksum.h"

namespace {

constexpr int64_t kSecondInMicros = 1'000'000;
constexpr int kFirstRate = 10;  // lines a second

// In the order of box/output/data. All but the first and the last are wanted at first.
constexpr std::string_view kColumns =
    "MSEC\tSECONDS\tNANOSECONDS\tDIAG\tCH4\tCH4D\tTEMP\tPRESSURE\tRSSI\tDROPRATE\tAUX1\tAUX2\tAUX3\tAUX4\tAUX5\tAUX6"
    "\tAUX7\tAUX8\tAUXTC1\tAUXTC2\tAUXTC3\t";
constexpr const char* kDiagnostics =
    "DATADIAGH\tNOTREADY\tNOSIGNAL\tREFUNLOCKED\tBADTEMP\tLASTERTEMPUNREG\tBLOCKTEMPUNREG\tMOTORSPINNING\tPUMPON"
    "\tMIRRORHEATERON\tCALIBRATING\tCHK\n";

constexpr double kEpoch = 599'616'000;  // seconds from 1970 to 1989, where the document's times begin

// One for each column, each with a tab behind it.
std::string Values(int32_t seconds, int32_t nanoseconds, int number) {
  char text[256];
  const double wave = (number % 100) / 1'000.0;
  std::snprintf(text, sizeof text,
                "%d\t%d\t%09d\t%d\t%.7f\t%.6f\t%.4f\t%.5f\t%.3f\t0\t%d\t0.000%d\t0\t0\t0\t0\t0\t0\t%.3f\t%.3f\t%.3f\t",
                nanoseconds / 1'000'000, seconds, nanoseconds, 128, 1.9 + wave, 0.0787 + wave / 24, 21.5 + wave,
                101.325 - wave, 62.5 + wave, number, number % 7, 21.1 + wave, 21.2 + wave, 21.3 + wave);
  return text;
}

std::string InDocument(const std::string& settings) {
  return "<tarno><tn5500>" + settings + "</tn5500></tarno>";
}

// By a stream that answers in one line.
template <typename Write>
std::string Compact(const Write& write) {
  std::ostringstream out;
  Configurable::set_compact(out, true);
  write(out);
  return std::move(out).str();
}

// Of CLOCK_REALTIME since 1970.
int64_t Microseconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return now.tv_sec * kSecondInMicros + now.tv_nsec / 1'000;
}

}  // namespace

Analyser::Analyser(const std::string& host, int port)
    : LineServer(host, port),
      PollTimer(-1, true),
      _ahead(Microseconds(CLOCK_REALTIME) - Microseconds(CLOCK_MONOTONIC)) {
  SetRate(kFirstRate);
  std::string none;
  _Apply(InDocument("<output><rate>" + std::to_string(kFirstRate) + "</rate></output>"), none);
  _document._set_throw_on_error(true);
  _document._set_changed(false);
  _document.RegisterListener(this);
  Listen();
}

void Analyser::SetRate(int lines, int seconds) {
  if (lines <= 0) return SetTimeout(-1);
  _period = kSecondInMicros * seconds / std::min(lines, kFastest);
  SetTimeout(static_cast<int>((_period - _Clock() % _period + 999) / 1'000));
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
  return "DATAH" + std::string(kColumns.substr(kColumns.find('\t'))) + "CHK\n" + kDiagnostics;
}

std::string Analyser::DataLine(int32_t seconds, int32_t nanoseconds, int number) {
  std::string line = Values(seconds, nanoseconds, number);
  line.replace(0, line.find('\t'), "DATA");
  AppendCheckSum(line);
  return line;
}

std::string Analyser::_Selected(const char* word, std::string_view fields) const {
  std::string line = word;
  auto column = _document.tn5500.box.output.data.children().begin();
  for (size_t end; (end = fields.find('\t')) != std::string_view::npos; fields.remove_prefix(end + 1))
    if (static_cast<const ConfigurableBool*>(*column++)->get()) (line += '\t') += fields.substr(0, end);
  return line += '\t';
}

void Analyser::HandleTimeout() {
  AddTimeout(static_cast<int>(_period / 1'000));
  if (!IsConnected() || IsJammed() || IsStalled()) return;
  // The timer is late by its own kind, the instrument is not.
  _SendData((_Clock() + _period / 2) / _period * _period);
}

int64_t Analyser::_Clock() const {
  return Microseconds(CLOCK_MONOTONIC) + _ahead;
}

void Analyser::_SendData(int64_t moment) {
  std::string line = _Selected("DATA", Values(static_cast<int32_t>(moment / kSecondInMicros),
                                              static_cast<int32_t>(moment % kSecondInMicros) * 1'000, _lines++));
  AppendCheckSum(line);
  Send(line);
}

void Analyser::Accepted() {
  _columns.clear();
  _SendColumns();
  Send(kDiagnostics);
}

void Analyser::GotLine(const std::string& command) {
  _commands.push_back(command);
  std::string answers;
  try {
    _Apply(command, answers);
    _SendDocument(answers.empty() ? Compact([this](std::ostream& out) { _document.Ack(out); }) : answers);
    _SendChanges();
  } catch (const std::exception& error) {
    _SendChanges();
    _SendDocument(Compact([&](std::ostream& out) { _document.Error(out, error.what()); }));
    _document._set_changed(false);
  }
}

void Analyser::Turn(const std::string& settings) {
  std::string none;
  _Apply(InDocument(settings), none);
  _SendChanges();
}

void Analyser::_Apply(const std::string& document, std::string& answers) {
  std::istringstream in(document);
  answers = Compact([&](std::ostream& out) { _document.configure_and_send_events(in, out); });
  if (in.fail()) throw std::runtime_error("not a document");
}

void Analyser::_SendChanges() {
  if (_document.has_changed()) _SendDocument(Compact([this](std::ostream& out) { _document.changed(out); }));
  _document._set_changed(false);
  _SendColumns();
}

void Analyser::_SendColumns() {
  const std::string columns = _Selected("DATAH", kColumns) + "CHK\n";
  if (columns != _columns) Send(columns);
  _columns = columns;
}

void Analyser::_SendDocument(std::string text) {
  std::erase(text, '\n');
  Send(text + '\n');
}

void Analyser::GotPollCmd() {
  _SendData(_Clock());
}

void Analyser::GotCalCH4ZeroCmd() {
  _Calibrated(_document.tn5500.cal.ch4lastzero, "CH4 Zero");
}

void Analyser::GotCalCH4SpanCmd(float) {
  _Calibrated(_document.tn5500.cal.ch4lastspan, "CH4 Span");
}

void Analyser::_Calibrated(ConfigurableTimestamp& last, const char* kind) {
  ConfigCal& cal = _document.tn5500.cal;
  const auto seconds = _Clock() / kSecondInMicros;
  last.set(static_cast<double>(seconds) - kEpoch);
  cal.history.add(*new ConfigCalRecord(last.get(), kind, cal.ch4zero.get(), cal.ch4span.get()));
  cal.ClearOldHistoryRecords();
}
