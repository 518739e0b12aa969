#include "serial/gpsdevice.h"

#include <cmath>
#include <ctime>
#include <iostream>
#include <limits>
#include <string_view>
#include <utility>

#include "serial/serial_fields.h"

namespace {

constexpr int kBps = 38400;                  // of a Garmin unit, once it is set up
constexpr int kHemisphereBps = 57600;        // always
constexpr int kTrialTime = 5000;             // milliseconds at each rate
constexpr int kRestartTime = 2000;           // milliseconds until a Garmin unit is back
constexpr int kShortest = 11;                // bytes of a sentence
constexpr size_t kSentenceRoom = 256;        // bytes
constexpr double kKnot = 0.514444444444444;  // m/s

constexpr const char* kGarminFixes[] = {
    "$PGRMO,GPRMC,1\r\n",
    "$PGRMO,GPGGA,1\r\n",
    "$PGRMO,GPGSA,0\r\n",
};
constexpr const char* kGarminSatellites[] = {"$PGRMO,GPGSV,0\r\n", "$PGRMO,GPGSV,1\r\n"};
constexpr const char* kGarminRest[] = {
    "$PGRMO,GPVTG,0\r\n", "$PGRMO,PGRMT,0\r\n",
    "$PGRMC,,,,,,,,,,8,,2,0\r\n",  // 38400 bps from the next start on
};
constexpr const char kGarminQuery[] = "$PGRMCE\r\n";
constexpr const char kGarminRestart[] = "$PGRMI,,,,,,,R\r\n";

// GGA ten times a second and RMC once on this port, nothing on the others.
constexpr const char* kHemisphere[] = {
    "$JASC,GPGGA,0,OTHER\r\n", "$JASC,GPVTG,0,OTHER\r\n", "$JASC,GPGSA,0,OTHER\r\n", "$JASC,GPZDA,0,OTHER\r\n",
    "$JASC,GPGGA,0,PORTC\r\n", "$JASC,GPGST,0,PORTC\r\n", "$JBIN,1,0,PORTC\r\n",     "$JBIN,2,0,PORTC\r\n",
    "$JASC,GPGGA,10\r\n",      "$JASC,GPRMC,1\r\n",
};
constexpr const char* kHemisphereQueries[] = {
    "$JSHOW\r\n", "$JSHOW,ASC\r\n", "$JSHOW,BIN\r\n", "$JSHOW,CONF\r\n", "$JSHOW,GP\r\n", "$JSHOW,THISPORT\r\n",
};

// From the rate that was tried in vain to the next one. After the last row, at another rate, the search starts anew.
struct SearchStep {
  int present;
  int next;
  bool last;
  const char* told;
};
constexpr SearchStep kSearch[] = {
    {38400, 4800, false, "GPS: trying 4800 baud"},
    {4800, 9600, false, "GPS: trying 9600 baud"},
    {9600, 19200, false, "GPS: trying 19200 baud"},
    {19200, kBps, true, "GPS: baud search failed\nGPS: defaulting to 38400 baud"},
};
constexpr SearchStep kSearchAnew = {0, kBps, false, "GPS: defaulting to 38400 baud"};

const SearchStep& StepFrom(int rate) {
  for (const auto& step : kSearch)
    if (step.present == rate) return step;
  return kSearchAnew;
}

template <size_t Count>
void WriteAll(LinuxTTYWriter& writer, const char* const (&commands)[Count]) {
  for (const char* command : commands) writer.Write(command);
}

// Towards zero; what is out of range becomes the nearest int.
int Truncate(double value) {
  using Limits = std::numeric_limits<int>;
  if (!(value > Limits::min())) return Limits::min();
  return value < Limits::max() ? static_cast<int>(value) : Limits::max();
}

// From degrees and minutes, packed as decimal digits.
double Degrees(double packed, char hemisphere) {
  const int whole = Truncate(packed);
  const int whole_degrees = whole / 100;
  const double degrees = whole_degrees + ((packed - whole) + (whole % 100)) / 60;
  return hemisphere == 'S' || hemisphere == 'W' ? -degrees : degrees;
}

// Against the byte values, not the digits: meant.
uint32_t Status(char quality) {
  return quality == 0 ? 0x880 : quality == 1 ? 0x80 : 0;
}

}  // namespace

void GPSDevice::Listener::GotGPSData(const GPSData&) {}
void GPSDevice::Listener::GotGPSTime(const TimeVal&) {}
void GPSDevice::Listener::GotGPSNoFix() {}
void GPSDevice::Listener::GotGPSSatellites(const std::vector<SatStatus>&) {}

GPSDevice::GPSDevice(const std::string& device, int type, bool verbose, bool wantSatellites)
    : PollTimer(-1, true),
      _devicePath(device),
      _gpsType(type),
      _framer(kSentenceRoom),
      _control(device),
      _writer(device),
      _reader(device),
      _verbose(verbose),
      _wantSatellites(wantSatellites) {
  _reader.RegisterListener(this);
  _ConfigGPS();
}

GPSDevice::Listener* GPSDevice::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

void GPSDevice::SetType(int type) {
  _gpsType = type;
}

void GPSDevice::_SetBps(int bps) {
  LinuxTTYControl::ConfigInfo config;
  config.baudRate = bps;
  if (!_control.configure(config)) throw std::runtime_error("Unable to configure GPS: " + _devicePath);
}

void GPSDevice::_ConfigGPS() {
  if (_gpsType == TypeHemisphere) {
    _baudSearch = BaudIdle;
    _SetBps(kHemisphereBps);
    _ConfigHemisphere();
    SetTimeout(-1);
  } else if (_gpsType == TypeGarmin) {
    _baudSearch = BaudSearching;
    _SetBps(kBps);
    _ConfigGarmin();
    SetTimeout(kTrialTime);
  }
}

void GPSDevice::_ConfigGarmin() {
  WriteAll(_writer, kGarminFixes);
  _writer.Write(kGarminSatellites[_wantSatellites ? 1 : 0]);
  WriteAll(_writer, kGarminRest);
  if (_verbose) _writer.Write(kGarminQuery);
}

void GPSDevice::_ConfigHemisphere() {
  WriteAll(_writer, kHemisphere);
  if (_verbose) WriteAll(_writer, kHemisphereQueries);
}

void GPSDevice::HandleTimeout() {
  if (_baudSearch == BaudResetting)
    _UnlessGone([this] { _SetBps(kBps); });
  else if (_baudSearch == BaudSearching)
    _UnlessGone([this] { _SearchStep(); });
}

// A port that has gone ends the search; any other failure is thrown.
template <class Step>
void GPSDevice::_UnlessGone(Step step) {
  try {
    step();
  } catch (const std::runtime_error&) {
    if (!_reader.IsHungUp()) throw;
    _baudSearch = BaudIdle;
  }
}

void GPSDevice::_SearchStep() {
  const SearchStep& step = StepFrom(_control.configuration().baudRate);
  if (_verbose) std::cout << step.told << std::endl;
  _SetBps(step.next);
  if (step.last) _baudSearch = BaudIdle;
  if (_gpsType == TypeGarmin) _ConfigGarmin();
  if (_gpsType == TypeHemisphere) _ConfigHemisphere();
  if (_baudSearch == BaudSearching) AddTimeout(kTrialTime);
}

void GPSDevice::_BPSDetected() {
  _baudSearch = BaudIdle;
  SetTimeout(-1);
  if (_gpsType == TypeGarmin) _UnlessGone([this] { _RestartAt38400(); });
}

// A Garmin unit takes up its new rate when it starts again; the port follows when it is back.
void GPSDevice::_RestartAt38400() {
  if (_control.configuration().baudRate == kBps) return;
  _writer.Write(kGarminRestart);
  _baudSearch = BaudResetting;
  SetTimeout(kRestartTime);
}

void GPSDevice::ReceivedChars(LinuxTTYReader&, const char* data, int length) {
  _framer.Take(data, length, [this](const std::string& sentence) { _EndSentence(sentence); });
}

void GPSDevice::_EndSentence(const std::string& sentence) {
  if (_verbose) std::cout << "GPS: " << sentence << std::endl;
  if (_listener != nullptr && sentence.size() >= kShortest) _HandleMessage(sentence);
}

void GPSDevice::_HandleMessage(std::string_view sentence) {
  struct Sentence {
    std::string_view name;
    void (GPSDevice::*handle)(FieldStream&);
  };
  static constexpr Sentence kSentences[] = {
      {"GGA", &GPSDevice::_HandleGGA}, {"GSV", &GPSDevice::_HandleGSV}, {"RMC", &GPSDevice::_HandleRMC}};

  const bool positioning = sentence.starts_with("$GP") && sentence[sentence.size() - 3] == '*';
  if (!positioning && !sentence.starts_with("$PGRMC")) return;
  // The sum doesn't matter for this: noise at a wrong rate never looks so.
  if (_baudSearch == BaudSearching) _BPSDetected();
  if (!positioning || !ChecksumAgrees(sentence)) return;
  for (const auto& known : kSentences)
    if (sentence.substr(3, 3) == known.name) {
      FieldStream fields(sentence.substr(7));
      (this->*known.handle)(fields);
      return;
    }
}

// Hours, minutes and seconds packed as decimal digits; the fraction counts in hundredths.
void GPSDevice::_KeepTime(double packed) {
  double whole;
  const double fraction = std::modf(packed, &whole);
  const int time = Truncate(whole);
  const int hundredths = Truncate(fraction * 100 + 0.5);
  _GPSTimeToTv(time / 10000, time % 10000 / 100, time % 100, hundredths * 10);
}

void GPSDevice::_GPSTimeToTv(int hours, int minutes, int seconds, int milliseconds) {
  std::tm broken = {};
  broken.tm_year = static_cast<int>(_rmcYear) - 1900;
  broken.tm_mon = static_cast<int>(_rmcMonth) - 1;
  broken.tm_mday = static_cast<int>(_rmcDay);
  broken.tm_hour = hours;
  broken.tm_min = minutes;
  broken.tm_sec = seconds;
  broken.tm_isdst = -1;
  // The low 32 bits, also for the year 0 that stands before the first date; -1 where the system's own count has 32 bits
  // and can't hold it.
  const auto since_1970 = static_cast<int32_t>(int64_t{timegm(&broken)});
  _gpsTime = TimeVal(since_1970, static_cast<int32_t>(int64_t{milliseconds} * 1'000'000));
  _gpsTime._normalize();
}

void GPSDevice::_HandleRMC(FieldStream& fields) {
  const double time = GPSReadDouble(fields);
  const char status = GPSReadChar(fields);
  for (int coordinate = 0; coordinate < 2; ++coordinate) {  // the position is GGA's to tell
    GPSReadDouble(fields);
    GPSReadChar(fields);
  }
  const double knots = GPSReadDouble(fields);
  const double course = GPSReadDouble(fields);
  const unsigned int date = GPSReadUnsigned(fields);
  GPSReadDouble(fields);  // magnetic variation, and its side
  GPSReadChar(fields);
  GPSReadChar(fields);  // mode
  if (status != 'A' || fields.fail()) {
    _listener->GotGPSNoFix();
    return;
  }
  const unsigned int year = date % 100;
  _rmcYear = year < 70 ? 2000 + year : 1900 + year;
  _rmcMonth = date / 100 % 100;
  _rmcDay = date / 10000;
  _speed = knots * kKnot;
  _course = course;
  _KeepTime(time);
  _listener->GotGPSTime(_gpsTime);
}

void GPSDevice::_HandleGGA(FieldStream& fields) {
  const double time = GPSReadDouble(fields);
  const double latitude = GPSReadDouble(fields);
  const char north_south = GPSReadChar(fields);
  const double longitude = GPSReadDouble(fields);
  const char east_west = GPSReadChar(fields);
  const char quality = GPSReadChar(fields);
  const double satellites = GPSReadDouble(fields);
  const double dilution = GPSReadDouble(fields);
  const double altitude = GPSReadDouble(fields);
  const char altitude_unit = GPSReadChar(fields);
  const double separation = GPSReadDouble(fields);
  const char separation_unit = GPSReadChar(fields);
  const double age = GPSReadDouble(fields);
  const unsigned int station = GPSReadUnsigned(fields);
  if (fields.fail() || altitude_unit != 'M' || separation_unit != 'M') return;

  _KeepTime(time);
  GPSData data;
  data.seconds = _gpsTime.seconds;
  data.nanoseconds = _gpsTime.nanoseconds;
  data.values = {Degrees(latitude, north_south),
                 Degrees(longitude, east_west),
                 altitude,
                 satellites,
                 dilution,
                 separation,
                 _speed,
                 _course,
                 age,
                 static_cast<double>(station)};
  data.errorFlags = Status(quality);
  _listener->GotGPSData(data);
}

void GPSDevice::_HandleGSV(FieldStream& fields) {
  const unsigned int total = GPSReadUnsigned(fields);
  const unsigned int number = GPSReadUnsigned(fields);
  GPSReadUnsigned(fields);  // satellites in view
  if (number == 1) _satellites.clear();
  for (int group = 0; group < 4; ++group) {
    SatStatus satellite;
    satellite.prn = GPSReadInteger(fields);
    satellite.elevation = GPSReadInteger(fields);
    satellite.azimuth = GPSReadInteger(fields);
    satellite.snr = GPSReadInteger(fields);
    if (!fields.fail()) _satellites.push_back(satellite);
  }
  // A copy: a listener that feeds characters changes the list.
  if (number == total) _listener->GotGPSSatellites(std::vector(_satellites));
}
