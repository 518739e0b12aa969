#include "emulators/sonic_anemometer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <numeric>

namespace {

constexpr int kSecond = 1'000;  // milliseconds

std::string Formatted(const char* format, double value) {
  char text[32];
  return {text, static_cast<size_t>(std::snprintf(text, sizeof text, format, value))};
}

}  // namespace

SonicAnemometer::SonicAnemometer(int bps, const AnemometerSettings& settings) : PollTimer(-1, true), _bps(bps) {
  Set(settings);
}

void SonicAnemometer::Set(const AnemometerSettings& settings) {
  const int rate = IsActive() ? _settings.rate : 0;
  _settings = settings;
  _settings.rate = std::clamp(settings.rate, 1, kFastest);
  if (_settings.rate == rate) return;
  _in_period = 0;
  SetTimeout(kSecond * _settings.seconds / _settings.rate);
}

AnemometerReading SonicAnemometer::ReadingOf(int number, int inputs) {
  AnemometerReading reading = {1.5 + std::sin(number * 0.1), 0.5 * std::cos(number * 0.07),
                               0.2 * std::sin(number * 0.3), 346 + 0.01 * (number % 50), 25 + 0.01 * (number % 70)};
  for (int input = 0; input < inputs; ++input, number /= 1'000)
    reading.inputs.push_back(0.001 * (number % 1'000) + input);
  return reading;
}

std::string SonicAnemometer::Message(const AnemometerReading& reading, const AnemometerSettings& settings) {
  std::string body = "Q,";
  for (const double wind : {reading.u, reading.v, reading.w}) body += Formatted("%+08.3f,", wind);
  body += settings.units + Formatted(",%+07.2f", reading.speed_of_sound) + Formatted(",%+07.2f", reading.temperature) +
          Formatted(",%02.0f,", settings.status);
  for (const double input : reading.inputs) body += Formatted("%+06.3f,", input);
  const int sum = std::accumulate(body.begin(), body.end(), settings.bad_sums ? 1 : 0, std::bit_xor<>());
  char end[16];
  std::snprintf(end, sizeof end, "\x03%02X\r\n", static_cast<unsigned>(sum) & 0xff);
  return '\x02' + body + end;
}

// Thirds of milliseconds and the like add up to whole seconds.
void SonicAnemometer::HandleTimeout() {
  const auto due = [this](int message) { return kSecond * _settings.seconds * message / _settings.rate; };
  const int next = _in_period + 1;
  AddTimeout(due(next + 1) - due(next));
  _in_period = next % _settings.rate;
  _pty.Write(Message(ReadingOf(_sent, _settings.inputs), _settings), _bps);
  ++_sent;
}
