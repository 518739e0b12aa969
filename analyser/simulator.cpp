#include "analyser/simulator.h"

#include <cstdio>
#include <ctime>
#include <string_view>

#include "serial/serial_fields.h"

namespace {

constexpr int kDelay = 10;                  // milliseconds behind the record
constexpr int32_t kHundredth = 10'000'000;  // nanoseconds

// Its sum is in place.
constexpr std::string_view kSonicMessage =
    "\x02Q,+000.013,+000.048,+000.008,M,+346.66,+025.19,00,\x03"
    "11\r\n";

template <class Device>
void Feed(Device& device, std::string_view text) {
  device.ReceivedChars(device.Reader(), text.data(), static_cast<int>(text.size()));
}

std::string Formatted(const char* format, const std::tm& moment) {
  char text[16];
  return {text, std::strftime(text, sizeof text, format, &moment)};
}

std::string TwoDigits(int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%02d", value);
  return text;
}

}  // namespace

Simulator::Simulator(GPSDevice* gps, PPSDevice* pps, SonicDevice* sonic)
    : PollTimer(-1, true), _gps(gps), _pps(pps), _sonic(sonic) {}

void Simulator::GotCH4Data(const CH4Data& data) {
  _lastData = TimeVal(data.seconds, data.nanoseconds);
  if (PPSDevice::Listener* const listener = _pps->GetListener(); data.nanoseconds == 0 && listener != nullptr)
    listener->GotPPS(_lastData);
  SetTimeout(kDelay);
}

void Simulator::HandleTimeout() {
  const time_t seconds = _lastData.seconds;
  const int hundredths = _lastData.nanoseconds / kHundredth;
  std::tm moment;
  gmtime_r(&seconds, &moment);
  const std::string time = Formatted("%H%M%S.", moment) + TwoDigits(hundredths);
  _SendGPGGA(time);
  if (hundredths == 0) _SendGPRMC(time, Formatted("%d%m%y", moment));
  Feed(*_sonic, kSonicMessage);
}

void Simulator::_SendGPGGA(const std::string& time) {
  _SendToGPS("GPGGA," + time + ",1929.439,S,02410.387,E,1,04,2.8,100.00,M,-33.9,M,,0000");
}

void Simulator::_SendGPRMC(const std::string& time, const std::string& date) {
  _SendToGPS("GPRMC," + time + ",A,1929.459,S,02410.381,E,74.00,16.78," + date + ",0.0,E,A");
}

void Simulator::_SendToGPS(const std::string& body) {
  char sum[8];
  std::snprintf(sum, sizeof sum, "*%02x\r\n", ExclusiveOr(body));
  Feed(*_gps, '$' + body + sum);
}
