// A soil chamber instrument on the network: purges, measures observation after observation into data files of its own,
// answers queries and requests for reports, and misbehaves when told to.
//
// It listens on port 1526 of its host, as the protocol fixes it, so each one on a machine needs a loopback address of
// its own. Its clock is the system's plus an offset, which commands set to whole seconds. Observations are numbered in
// each file, and belong to the file of the week, from Sunday on, that they begin in by its clock.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>
#include <vector>

#include "emulators/lineserver.h"
#include "runtime/pollprocessor.h"

class SoilInstrument : public LineServer, public PollTimer {
 public:
  struct Settings {
    int purge = 120;          // seconds, before the first observation after a start
    int observation = 1'800;  // seconds
    int data = 1;             // seconds between data lines, and between all that it does by itself
  };
  struct Observation {
    std::string file;
    int number = 0;
    time_t ended = 0;  // by its clock
    bool operator==(const Observation& other) const { return file == other.file && number == other.number; }
  };

  // Listens at once; idle, with a measurement named "factory".
  SoilInstrument(const std::string& host, const Settings& settings);

  const std::vector<std::string>& Commands() const { return _commands; }  // without their ends
  void ForgetCommands() { _commands.clear(); }
  const std::vector<Observation>& Finished() const { return _finished; }  // files that are deleted included
  int ClockError() const { return _clock_ahead; }                         // seconds

  void SetClockError(int seconds) { _clock_ahead = seconds; }
  void SetName(const std::string& name);          // somebody at the instrument names the measurement anew
  void SetLocation(const std::string& location);  // INT or EXT: where the data files are
  void Stop();                                    // somebody stops it
  void Interrupt();                               // stops, with an error
  void HangUpAfter(int commands) { _hang_up_after = commands; }  // so many commands on; 0: with the next
  void CutLine();                                                // half a data line, and hangs up
  // One of kMisbehaviours: the ones above, whatever LineServer can do, and a stop.
  static constexpr int kMisbehaviours = 11;
  void Misbehave(int which);

  // The text of the report, as it is before its special characters are escaped.
  static std::string Report(const Observation& observation);
  static std::string Escaped(const std::string& text);

  void HandleTimeout() override;
  const char* Description() const override { return "SoilInstrument"; }

 private:
  enum State { kIdle, kPurging, kRunning };

  void Accepted() override {}
  void GotLine(const std::string& command) override;
  void _Obey(const std::string& command);
  void _Start();
  void _BeginFile();
  void _Advance();
  time_t _Clock() const { return time(nullptr) + _clock_ahead; }
  std::string _DataLine() const;
  std::string _StateLine() const;
  std::string _ListLine() const;
  std::string _MeasurementLine() const;
  void _SendReport(const std::string& file, int number);

  const Settings _settings;
  int _clock_ahead = 0;
  State _state = kIdle;
  time_t _since = 0;  // of the state or the observation, by the system's clock
  std::string _name = "factory", _location = "INT";
  std::string _file;                  // the one that grows; empty before the first start
  std::map<std::string, int> _files;  // the number of observations in each
  std::vector<Observation> _finished;
  std::vector<std::string> _commands;
  int _hang_up_after = -1;  // negative: never
  int _away = 0;            // seconds until it takes connections and sends again
};
