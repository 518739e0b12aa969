// The manager of a soil instrument beside an emulated one, in virtual time.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "emulators/poll_runner.h"
#include "emulators/soilinstrument.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "soil/soil.h"

class SoilBench : public Soil::Listener {
 public:
  using Lines = std::vector<std::string>;

  static constexpr int64_t kMinute = 60'000;  // milliseconds, as all of these
  static constexpr int64_t kHour = 60 * kMinute;

  static constexpr const char* kStart = "<CMD><MEAS>START</MEAS></CMD>";
  static constexpr const char* kState = "<CMD><QUERY>STATE</QUERY></CMD>";

  // Without its root.
  static std::string Short(const std::string& line) { return line.substr(4, line.size() - 9); }

  struct Manager : Soil {
    explicit Manager(const std::string& directory, bool trace = false) : Soil(trace, false) {
      _confDirectory = directory;
    }
  };

 protected:
  explicit SoilBench(const std::string& host) : _instrument(host, {120, 1'800, 120}) {}
  ~SoilBench() noexcept override = default;

  // Until `done`; what is under way gets the real time that it needs.
  template <typename Done>
  void Settle(Done done, int grace = 2'000) {
    _time.SetGrace(grace);
    PollUntil(done, 1);
    _time.SetGrace(0);
  }

  VirtualTime _time;
  const TempDirectory _dir;
  SoilInstrument _instrument;
};
