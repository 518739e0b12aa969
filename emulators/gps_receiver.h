// A GPS receiver on a pseudo-terminal: a Garmin or a Hemisphere unit, as far as the logger uses it.
//
// It sends its sentences on the poll loop's time and obeys the set-up commands. Its clock is set by the system's at the
// start, and is its own from then on:
//
//   Garmin      $PGRMO,<sentence>,<0|1>  switches a sentence; one second apart each
//               $PGRMC,,,,,,,,,,<code>   stores the rate for the next start; $PGRMCE answers with a $PGRMC sentence
//               $PGRMI,,,,,,,R           restarts: silent for a second, then at the stored rate
//   Hemisphere  $JASC,<sentence>,<Hz>    on this port; each $J command is answered by a line that starts "$>"
//
// At another rate than its own the other side sees noise, and is noise to it: a pseudo-terminal takes any bytes at any
// speed, so the two numbers are compared.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "emulators/pty.h"
#include "runtime/pollprocessor.h"

class GPSReceiver : public PollItem, public PollTimer {
 public:
  enum Make { Hemisphere, Garmin };

  // Where it stands. It rises by a millimetre with each position that it sends, and keeps standing otherwise.
  static constexpr const char* kLatitude = "1929.439,S";
  static constexpr const char* kLongitude = "02410.387,E";
  static constexpr double kAltitude = 100.3;  // metres

  // `rate`: bits per second. All sentences are on at first, once a second; what it takes for one are so many `seconds`.
  GPSReceiver(Make make, int rate, int seconds = 1);

  const std::string& Path() const { return _pty.Path(); }
  int Rate() const { return _rate; }
  // Each command that it has understood, without its line end.
  const std::vector<std::string>& Commands() const { return _commands; }
  void SetFix(bool fix) { _fix = fix; }
  int Sent() const { return _sent; }              // positions; the number of the next one
  void CountFrom(int number) { _sent = number; }  // as if so many had been sent
  void LosePower(int seconds, int rate);          // back with all sentences, at this rate
  void SetBadSums(bool bad) { _bad_sums = bad; }  // of all that it reports

  // "$", `body`, its checksum and a line end.
  static std::string Sentence(std::string_view body);
  // One of GPRMC, GPGGA, GPGSA, GPVTG, or the group of GPGSV, at this moment in tenths of a second since 1970.
  // `number`: the position's.
  static std::string Compose(std::string_view name, int64_t tenths, bool fix = true, int number = 0);

  int Fileno() const override { return _pty.Fileno(); }
  void HandleRead() override;
  void HandleTimeout() override;
  const char* Description() const override { return "GPSReceiver"; }

 private:
  void _Obey(const std::string& command);
  void _ObeyGarmin(const std::vector<std::string>& words);
  void _ObeyHemisphere(const std::vector<std::string>& words);
  void _Tick();
  bool _IsDue(const std::string& name, int rate, int64_t tick) const;
  void _WaitForNext();
  void _Send(const std::string& bytes);

  const Make _make;
  const int _period;  // in ticks
  Pty _pty;
  int _rate;
  int _next_rate;
  const int64_t _started;     // tenths of a second since 1970; its own clock goes on from there
  const int64_t _began;       // the same moment on PollTimer's clock
  int64_t _ticks = 0;         // tenths of a second since then, as far as it has been
  int64_t _silent_until = 0;  // in ticks
  bool _bad_sums = false;
  bool _fix = true;
  int _sent = 0;
  std::map<std::string, int> _outputs;  // sentence and how often a second
  std::string _input;
  std::vector<std::string> _commands;
};
