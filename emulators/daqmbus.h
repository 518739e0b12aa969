// A bus of data acquisition modules and a drm on a pseudo-terminal: identifies, answers, reports each second or at
// longer intervals, hands out what it has kept, obeys a tool, and misbehaves when told to.
//
// Modules have the identifiers "0", "1" and so on, and three columns each: two floating point numbers and a third one.
// Reports flow once the drm has been told that the other side is ready, kept ones first. A tool renames columns:
//
//   {"2":{"rename":7}}      every column of module 2 gets the ending "_7"; answered by {"2":{"renamed":7}}
//   {"2":"storeconfig"}     answered by {"2":"stored"}
//
// Everything due in one second is one write. Lines have a sum; one of the other side without a right one is ignored.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "emulators/pty.h"
#include "runtime/pollprocessor.h"

class DAQMBus : public PollItem, public PollTimer {
 public:
  static constexpr int kColumns = 3;

  struct Settings {
    int modules = 5;
    int interval = 1;  // seconds between a module's reports
    int kept = 20;     // reports of each module that the drm has kept
  };
  struct Report {
    bool kept = false;
    int module = 0;
    long time = 0;         // by the module's clock
    bool missing = false;  // each value is "nan"
    bool good = true;      // went out whole and with its sum
    bool settled = false;  // the other side knew all about the module, as its questions told
  };

  explicit DAQMBus(const Settings& settings);

  const std::string& Path() const { return _pty.Path(); }
  const std::vector<Report>& Reports() const { return _reports; }
  // With its sum and line feed.
  static std::string Framed(const std::string& body);
  // Bodies without their sums; lines that have none are left alone.
  const std::vector<std::string>& Commands() const { return _commands; }
  void Forget();  // commands, and reports unless some are on their way: for long runs

  // Of a report, by which module, column (1 to kColumns) and moment can be told.
  static double ValueOf(int module, int column, long time);
  static int ModuleOf(double value) { return static_cast<int>(value / 10'000'000); }
  static int ColumnOf(double value) { return static_cast<int>(value / 1'000'000) % 10; }
  // The name is this, and what a tool has added.
  static std::string NameOf(int module, int column);

  // Without power nothing is said or heard; what was under way may be lost.
  void SetPower(bool on);

  void Say(const std::string& body) { _output += Framed(body); }  // with the next second
  void SayAsIs(const std::string& bytes) { _output += bytes; }

  enum Misbehaviour {
    kLate,         // a module's reports come two intervals later, for a while
    kSilent,       // a module sends no reports for five minutes
    kRenamed,      // a module renames its columns and says so
    kBadSum,       // the next line of a module has a wrong one
    kMissing,      // the next report has no values
    kHalfLine,     // the next second's lines are cut in the middle, and go on with the one after
    kLostHalf,     // the same, and the rest never comes
    kWrongClock,   // a module's clock goes four seconds wrong
    kNewModule,    // one that nobody knows, once
    kNoise,        // a line that is none
    kVoltageGone,  // a channel of the drm goes off, or on again
    kPowerOff,     // the drm tells that the power goes
    kMisbehaviours
  };
  void Misbehave(int which, int module);

  int Fileno() const override { return _pty.Fileno(); }
  void HandleRead() override;
  void HandleTimeout() override;
  const char* Description() const override { return "DAQMBus"; }

 private:
  struct Module {
    int revision = 0;  // of the columns' names
    int ahead = 0;     // seconds, of its clock
    int silent = 0;    // seconds left
    int late = 0;      // seconds left
    bool bad_sum = false, missing = false;
    bool known = false;                                   // it has been asked what its columns are
    int since_question = 0;                               // seconds
    std::map<long, std::pair<std::string, size_t>> held;  // late lines and their reports, by their second
  };

  std::string _Name(size_t module) const { return std::to_string(module); }
  void _Obey(const std::string& body);
  void _ObeyModule(size_t number, const std::string& order);
  void _ObeyDRM(const std::string& order);
  void _Unsettle(int number);
  void _SayDataInfo(size_t number);
  void _SayKept();
  void _SayReport(size_t number, long now);
  std::string _Values(size_t number, long time, bool missing) const;
  void _Flush();

  const Settings _settings;
  Pty _pty;
  std::vector<Module> _modules;
  bool _power = true, _ready = false, _live = false, _aux = true;
  long _kept_from = 0;  // the time of the oldest report that is still kept
  int _kept_left = 0;
  int _cut = 0;  // 0 nothing, 1 the next write in two, 2 and the second half lost
  std::string _input, _output, _rest;
  std::vector<size_t> _in_output;  // the reports that _output holds
  bool _spoiled = false;           // the next write begins behind half a line
  std::vector<Report> _reports;
  std::vector<std::string> _commands;
};
