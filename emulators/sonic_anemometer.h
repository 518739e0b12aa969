// A sonic anemometer on a pseudo-terminal, which reports by itself on the poll loop's time, and misbehaves when told
// to.
//
// Its messages look so, closed by the exclusive-or of what stands between STX and ETX, a carriage return and a line
// feed:
//
//   <STX>Q,+000.013,+000.048,+000.008,M,+346.66,+025.19,00,+0.500,<ETX>XX
//
// At another rate than its own the other side sees noise.
//
// Thread: the poll loop's.

#pragma once

#include <string>
#include <vector>

#include "emulators/pty.h"
#include "runtime/pollprocessor.h"

struct AnemometerReading {
  double u = 0, v = 0, w = 0;       // along the axes, in the instrument's units
  double speed_of_sound = 0;        // likewise
  double temperature = 0;           // degrees Celsius
  std::vector<double> inputs = {};  // V, four at most
};

struct AnemometerSettings {
  int rate = 10;        // messages, 1 to SonicAnemometer::kFastest, in
  int seconds = 1;      // so many
  char units = 'M';     // metres per second; the numbers are the same in all units
  unsigned status = 0;  // 0: well
  int inputs = 4;       // analogue inputs that are reported
  bool bad_sums = false;
};

class SonicAnemometer : public PollTimer {
 public:
  static constexpr int kFastest = 32;  // messages a second

  // `bps`: the line's speed.
  explicit SonicAnemometer(int bps, const AnemometerSettings& settings = {});

  const std::string& Path() const { return _pty.Path(); }
  int Sent() const { return _sent; }              // messages; the number of the next one
  void CountFrom(int number) { _sent = number; }  // as if so many had been sent
  // From the next message on.
  void Set(const AnemometerSettings& settings);

  // A breeze: what message number `number` tells, counted from 0. The inputs tell its digits, the last three in the
  // first one, each in thousandths above the input's own number.
  static AnemometerReading ReadingOf(int number, int inputs = 4);
  static std::string Message(const AnemometerReading& reading, const AnemometerSettings& settings = {});

  void HandleTimeout() override;
  const char* Description() const override { return "SonicAnemometer"; }

 private:
  const int _bps;
  AnemometerSettings _settings;
  Pty _pty;
  int _sent = 0;
  int _in_period = 0;  // messages since the rate was set, in these seconds
};
