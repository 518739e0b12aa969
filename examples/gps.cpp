// Prints what a GPS receiver tells, until interrupted.
//
//   gps                              an emulated Garmin unit, left at 4800 bps: the search takes 8 s
//   gps /dev/ttyS1                   a Garmin unit on a port
//   gps --hemisphere [/dev/ttyS1]    a Hemisphere unit, emulated or on a port
//   gps --fixes N ...                ends after N fixes

#include <csignal>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>

#include "emulators/gps_receiver.h"
#include "runtime/pollprocessor.h"
#include "serial/gpsdevice.h"

namespace {

class Printer : public GPSDevice::Listener {
 public:
  int Fixes() const { return _fixes; }

  void GotGPSData(const GPSData& data) override {
    ++_fixes;
    std::cout << "fix         " << TimeVal(data.seconds, data.nanoseconds) << std::fixed << std::setprecision(5)
              << " latitude " << data.values[0] << " longitude " << data.values[1] << std::setprecision(1)
              << " altitude " << data.values[2] << " m, " << data.values[3] << " satellites" << std::endl;
  }
  void GotGPSTime(const TimeVal& time) override { std::cout << "time        " << time << std::endl; }
  void GotGPSNoFix() override { std::cout << "no fix" << std::endl; }
  void GotGPSSatellites(const std::vector<GPSDevice::SatStatus>& satellites) override {
    std::cout << "satellites ";
    for (const auto& satellite : satellites)
      if (satellite.prn != 0) std::cout << ' ' << satellite.prn << " (" << satellite.snr << " dB)";
    std::cout << std::endl;
  }

 private:
  int _fixes = 0;
};

struct Options {
  int type = GPSDevice::TypeGarmin;
  int fixes = 0;     // 0: no end
  std::string path;  // empty: the emulator's
};

Options Read(char** arguments) {
  Options options;
  for (; *arguments != nullptr; ++arguments) {
    const std::string argument = *arguments;
    if (argument == "--hemisphere")
      options.type = GPSDevice::TypeHemisphere;
    else if (argument == "--fixes" && arguments[1] != nullptr)
      options.fixes = std::atoi(*++arguments);
    else
      options.path = argument;
  }
  return options;
}

}  // namespace

int main(int, char** argv) try {
  auto& loop = PollProcessor::Instance();
  loop.QuitOnSignal(SIGINT);
  loop.QuitOnSignal(SIGTERM);

  Options options = Read(argv + 1);
  std::unique_ptr<GPSReceiver> emulated;
  if (options.path.empty()) {
    const bool garmin = options.type == GPSDevice::TypeGarmin;
    emulated =
        std::make_unique<GPSReceiver>(garmin ? GPSReceiver::Garmin : GPSReceiver::Hemisphere, garmin ? 4800 : 57600);
    options.path = emulated->Path();
  }

  Printer printer;
  GPSDevice device(options.path, options.type, false, true);
  device.RegisterListener(&printer);
  while (loop.Poll(-1) && (options.fixes == 0 || printer.Fixes() < options.fixes)) continue;
  return 0;
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
