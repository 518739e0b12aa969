// Prints what a GPS receiver tells, until interrupted.
//
//   gps                              an emulated Garmin unit, left at 4800 bps: the search takes 8 s
//   gps /dev/ttyS1                   a Garmin unit on a port
//   gps --hemisphere [/dev/ttyS1]    a Hemisphere unit, emulated or on a port
//   gps --fixes 10 ...               ends after so many fixes
//   gps --seconds 60 ...             ends after so many seconds
//
// A port that goes, as an adapter does that is pulled out, is opened again each second until it is back.

#include <iomanip>
#include <iostream>
#include <optional>
#include <string>

#include "emulators/gps_receiver.h"
#include "examples/commandline.h"
#include "examples/portdevice.h"
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

  Printer printer;
  const int type = options.hemisphere ? GPSDevice::TypeHemisphere : GPSDevice::TypeGarmin;
  const PortDevice<GPSDevice> receiver([&](std::optional<GPSDevice>& device) {
    device.emplace(options.path, type, false, true);
    device->RegisterListener(&printer);
    printer.ForgetDate();
    std::cout << "listening to " << options.path << std::endl;
  });
  RunLoop(options.seconds, [&] { return options.fixes > 0 && printer.Fixes() >= options.fixes; });
  return LastLine({{"fixes", printer.Fixes()}, {"times", printer.Times()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
