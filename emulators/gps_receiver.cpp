#include "emulators/gps_receiver.h"

#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace {

constexpr int64_t kTick = 100'000'000;  // nanoseconds
constexpr int kTicksPerSecond = 10;
constexpr int kLate = 2;                   // ticks from the moment that a sentence is of until it comes
constexpr int kSilence = kTicksPerSecond;  // of a restart, in ticks

// The rates behind the codes of $PGRMC, in bits per second.
const std::map<std::string, int> kRateCodes = {{"1", 1200},  {"2", 2400}, {"3", 4800}, {"4", 9600},
                                               {"5", 19200}, {"6", 300},  {"7", 600},  {"8", 38400}};

// When it gets its power.
const std::map<std::string, int> kOutputs = {{"GPRMC", 1}, {"GPGGA", 1}, {"GPGSA", 1}, {"GPGSV", 1}, {"GPVTG", 1}};

// The words of a command; empty ones behind them, as many as any command has.
std::vector<std::string> Split(const std::string& text) {
  constexpr size_t kMost = 16;
  std::vector<std::string> words(1);
  for (const char c : text.substr(0, text.find('*')))
    if (c == ',')
      words.emplace_back();
    else
      words.back() += c;
  words.resize(std::max(words.size(), kMost));
  return words;
}

std::string Moment(const char* format, int64_t tenths) {
  const auto seconds = static_cast<time_t>(tenths / kTicksPerSecond);
  std::tm broken;
  gmtime_r(&seconds, &broken);
  char text[32];
  return {text, std::strftime(text, sizeof text, format, &broken)};
}

std::string TimeOfDay(int64_t tenths) {
  return Moment("%H%M%S", tenths) + '.' + std::to_string(tenths % kTicksPerSecond) + "00";
}

// Of this host's clock.
int64_t Tenths() {
  timeval now;
  gettimeofday(&now, nullptr);
  return int64_t{now.tv_sec} * kTicksPerSecond + now.tv_usec / 100'000;
}

}  // namespace

GPSReceiver::GPSReceiver(Make make, int rate, int seconds)
    : PollItem(POLLIN, true),
      PollTimer(-1, true),
      _make(make),
      _period(kTicksPerSecond * seconds),
      _rate(rate),
      _next_rate(rate),
      _started(Tenths()),
      _began(PollTimer::Now()),
      _outputs(kOutputs) {
  _WaitForNext();
}

std::string GPSReceiver::Sentence(std::string_view body) {
  unsigned char sum = 0;
  for (const char c : body) sum ^= static_cast<unsigned char>(c);
  char end[8];
  std::snprintf(end, sizeof end, "*%02X\r\n", sum);
  return '$' + std::string(body) + end;
}

std::string GPSReceiver::Compose(std::string_view name, int64_t tenths, bool fix, int number) {
  const std::string place = fix ? std::string(kLatitude) + ',' + kLongitude : ",,,";
  if (name == "GPRMC")
    return Sentence("GPRMC," + TimeOfDay(tenths) + (fix ? ",A," : ",V,") + place + (fix ? ",000.5,036.6," : ",,,") +
                    Moment("%d%m%y", tenths) + ",012.0,W" + (fix ? ",A" : ",N"));
  if (name == "GPGGA") {
    char rest[48];
    std::snprintf(rest, sizeof rest, ",1.5,%.3f,M,-33.7,M,,0000", kAltitude + number * 0.001);
    return Sentence("GPGGA," + TimeOfDay(tenths) + ',' + place + (fix ? ",1,06" : ",0,00") + rest);
  }
  if (name == "GPGSV")
    return Sentence("GPGSV,2,1,06,16,74,173,27,23,42,310,21,31,40,066,23,32,39,218,22") +
           Sentence("GPGSV,2,2,06,20,38,248,21,29,15,048,16");
  if (name == "GPGSA") return Sentence("GPGSA,A,3,31,16,29,23,20,32,,,,,,,2.8,1.5,2.4");
  return Sentence("GPVTG,036.6,T,048.6,M,000.5,N,000.9,K");
}

void GPSReceiver::HandleRead() {
  _input += _pty.Read();
  _Tick();
  if (_pty.Speed() != _rate || _ticks < _silent_until) _input.clear();
  for (size_t end; (end = _input.find('\n')) != std::string::npos; _input.erase(0, end + 1))
    _Obey(_input.substr(0, _input.find_first_of("\r\n")));
  _WaitForNext();
}

void GPSReceiver::_Obey(const std::string& command) {
  _commands.push_back(command);
  if (_make == Garmin)
    _ObeyGarmin(Split(command));
  else
    _ObeyHemisphere(Split(command));
}

void GPSReceiver::LosePower(int seconds, int rate) {
  _rate = _next_rate = rate;
  _silent_until = _ticks + int64_t{seconds} * kTicksPerSecond;
  _outputs = kOutputs;
}

void GPSReceiver::_ObeyGarmin(const std::vector<std::string>& words) {
  const std::string& command = words[0];
  if (command == "$PGRMO") _outputs[words[1]] = std::atoi(words[2].c_str());
  if (command == "$PGRMC" && kRateCodes.contains(words[10])) _next_rate = kRateCodes.at(words[10]);
  if (command == "$PGRMCE") _Send(Sentence("PGRMC,A,100.3,100,6378137.000,298.257223563,0.0,0.0,0.0,A,8,1,2,4,30"));
  if (command == "$PGRMI" && words[7] == "R") {
    _rate = _next_rate;
    _silent_until = _ticks + kSilence;
  }
}

// What is for another port isn't for this one.
void GPSReceiver::_ObeyHemisphere(const std::vector<std::string>& words) {
  if (words[0] == "$JASC" && words[3].empty()) _outputs[words[1]] = std::atoi(words[2].c_str());
  _Send("$>\r\n");
}

void GPSReceiver::HandleTimeout() {
  _Tick();
  _WaitForNext();
}

// All ticks until now, as the timer may come late.
void GPSReceiver::_Tick() {
  std::string sentences;
  for (const int64_t now = (PollTimer::Now() - _began) / kTick; _ticks < now;) {
    ++_ticks;
    for (const auto& [name, rate] : _outputs)
      if (_IsDue(name, rate, _ticks))
        sentences += Compose(name, _started + _ticks - kLate, _fix, name == "GPGGA" ? _sent++ : 0);
  }
  for (size_t end = 0; _bad_sums && (end = sentences.find('\r', end)) != sentences.npos; ++end) sentences[end - 1] ^= 1;
  if (!sentences.empty()) _Send(sentences);
}

bool GPSReceiver::_IsDue(const std::string& name, int rate, int64_t tick) const {
  return tick >= _silent_until && (_started + tick - kLate) * rate % _period < rate && name.starts_with("GP");
}

// Ticks without a sentence pass unnoticed.
void GPSReceiver::_WaitForNext() {
  int64_t next = _ticks + 1;
  const auto is_due = [&](const auto& output) { return _IsDue(output.first, output.second, next); };
  while (next < _ticks + _period && std::none_of(_outputs.begin(), _outputs.end(), is_due)) ++next;
  SetTimeout(static_cast<int>(std::max<int64_t>(_began + next * kTick - PollTimer::Now() + 999'999, 0) / 1'000'000));
}

void GPSReceiver::_Send(const std::string& bytes) {
  _pty.Write(bytes, _rate);
}
