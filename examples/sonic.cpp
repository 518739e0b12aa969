// Prints what a sonic anemometer tells, and every ten seconds how evenly its records come, until interrupted.
//
//   sonic                          an emulated anemometer, at 10 Hz
//   sonic --rate 32 --trouble      one that is faster, and now and then sends bad sums, other units and a bad status
//   sonic /dev/ttyS2 --bps 9600    one on a port; 57600 bps otherwise
//   sonic --every 10 ...           prints each tenth record only
//   sonic --seconds 30 ...         ends after so many seconds
//
// Records are stamped with the moment of this system's clock at which they are told. A port that goes is opened again
// each second until it is back.

#include <sys/time.h>

#include <iomanip>
#include <iostream>
#include <optional>
#include <string>

#include "emulators/sonic_anemometer.h"
#include "examples/commandline.h"
#include "examples/portdevice.h"
#include "examples/timer.h"
#include "serial/sonicdevice.h"
#include "serial/sonicstats.h"

namespace {

constexpr int kSecond = 1'000;  // milliseconds

class Printer : public SonicDeviceListener {
 public:
  explicit Printer(int every) : _every(every) {}

  int Records() const { return _records; }
  int Periods() const { return _periods; }

  void GotSonicData(int unitNumber, const SonicData& data) override {
    SonicData stamped = data;
    timeval now;
    gettimeofday(&now, nullptr);
    stamped.seconds = static_cast<int32_t>(now.tv_sec);
    stamped.nanoseconds = static_cast<int32_t>(now.tv_usec) * 1'000;
    if (_records++ % _every == 0) _Print(unitNumber, stamped);
    const double before = _stats.MeanInterval();
    _stats.Update(stamped);
    if (_stats.MeanInterval() != before) _EndPeriod();
  }

 private:
  static void _Print(int unit, const SonicData& data) {
    std::cout << "unit " << unit << "  " << TimeVal(data.seconds, data.nanoseconds) << std::fixed
              << std::setprecision(3) << "  wind " << data.values[0] << ' ' << data.values[1] << ' ' << data.values[2]
              << " m/s, sound " << std::setprecision(2) << data.values[3] << " m/s, " << data.values[4] << " degrees";
    if (data.errorFlags != 0) std::cout << "  flags " << std::hex << data.errorFlags << std::dec;
    std::cout << std::endl;
  }
  void _EndPeriod() {
    if (_periods++ == 0) return;  // the first one counts from 1970
    std::cout << std::fixed << std::setprecision(3) << "interval  mean " << _stats.MeanInterval() << " ms, range "
              << _stats.IntervalRange() << " ms, deviation " << _stats.IntervalDeviation() << " ms" << std::endl;
  }

  const int _every;
  SonicStats _stats;
  int _records = 0;
  int _periods = 0;
};

// Each second another habit of the emulated anemometer.
class Trouble {
 public:
  Trouble(SonicAnemometer& anemometer, int rate) : _anemometer(anemometer), _rate(rate) {}

 private:
  void _Next() {
    const AnemometerSettings habits[] = {{.rate = _rate},
                                         {.rate = _rate, .status = 3},
                                         {.rate = _rate, .status = 12, .inputs = 0},
                                         {.rate = _rate, .units = 'N'},
                                         {.rate = _rate, .bad_sums = true}};
    _next.AddTimeout(kSecond);
    _anemometer.Set(habits[_number++ % std::size(habits)]);
  }

  SonicAnemometer& _anemometer;
  const int _rate;
  size_t _number = 0;
  Timer _next{kSecond, [this] { _Next(); }};
};

struct Options {
  std::string path;  // empty: the emulator's
  int bps = 57600;
  int rate = 10;
  int every = 1;
  int seconds = 0;  // 0: no end
  bool trouble = false;
};

Options Read(int argc, char** argv) {
  Options options;
  CommandLine line("Prints what a sonic anemometer tells. Without a port it brings one of its own up.");
  line.add_option("port", options.path, "as in /dev/ttyS2")->type_name("");
  line.AddNumber("--bps", options.bps, 300, 115'200, "of the line");
  line.AddNumber("--rate", options.rate, 1, SonicAnemometer::kFastest, "messages a second of the emulated anemometer");
  line.AddNumber("--every", options.every, 1, 1'000'000, "print each so manieth record only");
  line.add_flag("--trouble", options.trouble, "the emulated anemometer misbehaves");
  line.AddSeconds(options.seconds);
  line.Read(argc, argv);
  return options;
}

}  // namespace

int main(int argc, char** argv) try {
  Options options = Read(argc, argv);
  std::optional<SonicAnemometer> emulated;
  std::optional<Trouble> trouble;
  if (options.path.empty()) {
    emulated.emplace(options.bps, AnemometerSettings{options.rate});
    if (options.trouble) trouble.emplace(*emulated, options.rate);
    options.path = emulated->Path();
  }

  Printer printer(options.every);
  const PortDevice<SonicDevice> anemometer([&](std::optional<SonicDevice>& device) {
    device.emplace(options.path, 1, options.bps, false);
    device->RegisterListener(&printer);
    std::cout << "listening to " << options.path << std::endl;
  });
  RunLoop(options.seconds);
  return LastLine({{"records", printer.Records()}, {"periods", printer.Periods()}});
} catch (const std::exception& error) {
  std::cerr << "ERROR: " << error.what() << std::endl;
  return 1;
}
