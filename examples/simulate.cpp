// A station without GPS receiver, pulse source and anemometer: the moments of a methane analyser drive all three
// through the simulator, and what their listeners are told is printed behind each of its records.
//
//   simulate                  an emulated analyser
//   simulate ADDRESS          one on the network, an IPv4 address, at port 5500
//   simulate --seconds 10 ... ends after so many seconds

#include <iomanip>
#include <iostream>
#include <optional>
#include <string>

#include "analyser/simulator.h"
#include "emulators/analyser.h"
#include "emulators/fifo.h"
#include "emulators/pty.h"
#include "examples/commandline.h"

namespace {

constexpr int kPort = 5500;
constexpr int kBps = 57600;  // of lines on which nothing comes

std::ostream& Line(const char* name, const TimeVal& time) {
  return std::cout << name << time << std::fixed;
}

// The devices, on lines and a pulse device that lead nowhere.
class Station : public CH4Device::Listener,
                public GPSDevice::Listener,
                public PPSDevice::Listener,
                public SonicDeviceListener {
 public:
  Station() {
    _gps.RegisterListener(this);
    _pps.RegisterListener(this);
    _sonic.RegisterListener(this);
  }
  ~Station() noexcept override {}  // what it holds could throw

  int PrintCounts() const {
    return LastLine(
        {{"records", _records}, {"pulses", _pulses}, {"fixes", _fixes}, {"times", _times}, {"winds", _winds}});
  }

  void GotCH4Data(const CH4Data& data) override {
    ++_records;
    _moment = TimeVal(data.seconds, data.nanoseconds);
    Line("record  ", _moment) << std::setprecision(4) << "  CH4 " << data.values[1] << '\n';
    _simulator.GotCH4Data(data);
  }
  void GotPPS(const TimeVal& time) override {
    ++_pulses;
    Line("  pulse ", time) << '\n';
  }
  // The moment rests on the date that comes with the first time.
  void GotGPSData(const GPSData& data) override {
    ++_fixes;
    std::cout << "  fix   ";
    if (_times > 0)
      std::cout << TimeVal(data.seconds, data.nanoseconds);
    else
      std::cout << "without a date yet  ";
    std::cout << std::fixed << std::setprecision(5) << "  latitude " << data.values[0] << " longitude "
              << data.values[1] << '\n';
  }
  void GotGPSTime(const TimeVal& time) override {
    ++_times;
    Line("  time  ", time) << '\n';
  }
  void GotSonicData(int, const SonicData& data) override {
    ++_winds;
    Line("  wind  ", _moment) << std::setprecision(3) << "  " << data.values[0] << ' ' << data.values[1] << ' '
                              << data.values[2] << " m/s" << std::endl;
  }

 private:
  const Pty _gps_line, _sonic_line;
  const Fifo _pps_device;
  GPSDevice _gps{_gps_line.Path(), GPSDevice::TypeHemisphere, false, false};
  PPSDevice _pps{_pps_device.Path(), false};
  SonicDevice _sonic{_sonic_line.Path(), 1, kBps, false};
  Simulator _simulator{&_gps, &_pps, &_sonic};
  TimeVal _moment;  // of the last record
  int _records = 0, _pulses = 0, _fixes = 0, _times = 0, _winds = 0;
};

}  // namespace

int main(int argc, char** argv) try {
  std::string address;
  int seconds = 0;
  CommandLine line("Simulates GPS receiver, pulse and anemometer by the clock of a methane analyser.");
  line.add_option("address", address, "IPv4 address of the analyser; without it an emulated one comes up")
      ->check(CLI::ValidIPV4)
      ->type_name("");
  line.AddSeconds(seconds);
  line.Read(argc, argv);

  std::optional<Analyser> emulated;
  if (address.empty()) address = emulated.emplace().Host();
  Station station;
  CH4Device analyser(false);
  analyser.RegisterListener(&station);
  analyser.GetHead() = Head(&analyser, emulated ? emulated->Port() : kPort, false);
  analyser.GetHead().Connect(address);
  RunLoop(seconds);
  return station.PrintCounts();
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
