// Prints what a GPS receiver tells, until interrupted.
//
//   gps                              an emulated Garmin unit, left at 4800 bps: the search takes 8 s
//   gps /dev/ttyS1                   a Garmin unit on a port
//   gps --hemisphere [/dev/ttyS1]    a Hemisphere unit, emulated or on a port
//   gps --fixes 10 ...               ends after so many fixes
//   gps --seconds 60 ...             ends after so many seconds
//
// A port that goes, as an adapter does that is pulled out, is opened again each second until it is back.

#include <unistd.h>

#include <csignal>
#include <iomanip>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>

#include "emulators/gps_receiver.h"
#include "examples/commandline.h"
#include "examples/timer.h"
#include "runtime/pollprocessor.h"
#include "serial/gpsdevice.h"

namespace {

class Printer : public GPSDevice::Listener {
 public:
  int Fixes() const { return _fixes; }
  int Times() const { return _times; }
  void ForgetDate() { _dated = false; }

  // The moment of a fix rests on the date that comes with the first time.
  void GotGPSData(const GPSData& data) override {
    ++_fixes;
    std::cout << "fix         ";
    if (_dated)
      std::cout << TimeVal(data.seconds, data.nanoseconds);
    else
      std::cout << "without a date yet";
    std::cout << std::fixed << std::setprecision(5) << " latitude " << data.values[0] << " longitude " << data.values[1]
              << std::setprecision(1) << " altitude " << data.values[2] << " m, " << data.values[3] << " satellites"
              << std::endl;
  }
  void GotGPSTime(const TimeVal& time) override {
    ++_times;
    _dated = true;
    std::cout << "time        " << time << std::endl;
  }
  void GotGPSNoFix() override { std::cout << "no fix" << std::endl; }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    std::cout << "satellites ";
    for (const auto& satellite : satellites)
      if (satellite.prn != 0) std::cout << ' ' << satellite.prn << " (" << satellite.snr << " dB)";
    std::cout << std::endl;
  }

 private:
  int _fixes = 0;
  int _times = 0;
  bool _dated = false;
};

// A receiver on a port that may go and come back.
class Receiver {
 public:
  // Throws when the port can't be opened.
  Receiver(const std::string& path, int type) : _path(path), _type(type) { _Open(); }

  const Printer& Heard() const { return _printer; }

 private:
  void _Open() {
    _device.emplace(_path, _type, false, true);
    _device->RegisterListener(&_printer);
    _printer.ForgetDate();
    std::cout << "listening to " << _path << std::endl;
  }

  void _Look() {
    constexpr int kSecond = 1'000;  // milliseconds
    _look.SetTimeout(kSecond);
    if (_device && !_device->Reader().IsHungUp()) return;
    _device.reset();
    try {
      _Open();
    } catch (const std::runtime_error&) {
      _device.reset();  // still away
    }
  }

  const std::string _path;
  const int _type;
  Printer _printer;
  std::optional<GPSDevice> _device;  // none while the port is away
  Timer _look{0, [this] { _Look(); }};
};

struct Options {
  bool hemisphere = false;
  int fixes = 0;     // 0: no end
  int seconds = 0;   // 0: no end
  std::string path;  // empty: the emulator's
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Prints what a GPS receiver tells. Without a port it brings a receiver of its own up.");
  line.add_option("port", options.path, "as in /dev/ttyS1")->type_name("");
  line.add_flag("--hemisphere", options.hemisphere, "a Hemisphere unit; a Garmin unit otherwise");
  line.AddNumber("--fixes", options.fixes, 1, 1'000'000'000, "end after so many fixes");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<GPSReceiver> emulated;
  if (options.path.empty()) {
    if (options.hemisphere)
      emulated.emplace(GPSReceiver::Hemisphere, 57600);
    else
      emulated.emplace(GPSReceiver::Garmin, 4800);
    options.path = emulated->Path();
  }

  // Who leads a session gets a hang-up when its port goes.
  if (getsid(0) == getpid()) PollProcessor::Instance().IgnoreSignal(SIGHUP);

  const Receiver receiver(options.path, options.hemisphere ? GPSDevice::TypeHemisphere : GPSDevice::TypeGarmin);
  const Printer& heard = receiver.Heard();
  RunLoop(options.seconds, [&] { return options.fixes > 0 && heard.Fixes() >= options.fixes; });
  return LastLine({{"fixes", heard.Fixes()}, {"times", heard.Times()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
