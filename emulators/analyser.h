// A methane analyser on the network: sends its header lines to whoever connects, then data lines at its rate, and
// misbehaves when told to.
//
// Each line that it is sent is a document for its own one, without errors that are passed over: the first one ends it.
// It is answered by one line, compact: what it asked for, or an acknowledgement, or a document with the error. A second
// line tells what it changed, and a new DATAH line follows a change of the columns in box/output/data. It obeys
// output/rate, sends a data line for cmd/poll, and takes a calibration command as done: the history has its record.
//
// Everything runs on the poll loop's time. It has a clock of its own: the system's at first, and no step of that one
// from then on. Data lines carry its moment in whole periods of the rate, so that at rates that divide a second there
// is one at the top of each. As the instrument has little memory, data lines that find the connection jammed are lost
// whole; answers are not.
//
// Thread: the poll loop's.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/doc5500.h"
#include "emulators/announcement.h"
#include "emulators/lineserver.h"
#include "runtime/pollprocessor.h"

class Analyser : public LineServer, public PollTimer, private Doc5500::Listener {
 public:
  static constexpr const char* kType = "_tarno-tn5500._tcp";
  static constexpr int kFastest = 40;  // lines a second

  // Listens at once, with port 0 on a port of its own.
  explicit Analyser(const std::string& host = "127.0.0.1", int port = 0);

  // So many lines in so many seconds, to kFastest; 0 for silence. 10 a second at first. The document doesn't follow.
  void SetRate(int lines, int seconds = 1);

  // As if somebody had done it at the instrument: `settings` is the inside of tn5500. The peer is told what it changed.
  // Throws what the document throws.
  void Turn(const std::string& settings);
  const Doc5500& Document() const { return _document; }

  // Each line that it was sent, without its end.
  const std::vector<std::string>& Commands() const { return _commands; }
  void ForgetCommands() { _commands.clear(); }
  int LinesSent() const { return _lines; }         // of data; the number of the next one
  void CountFrom(int number) { _lines = number; }  // as if so many had been sent

  // Through the Avahi daemon, as a service of this host; by Vanish it is withdrawn and nobody can connect any more.
  void Announce(const std::string& name);
  void Vanish();
  void CutLine();                 // sends the first half of a line and ends the connection
  void SendGarbage(size_t size);  // noise of all bytes, line feeds included, with an end of its own

  // The header lines, and a data line with its sum, as they are while the columns are those of a new document; AUX1 is
  // the line's number.
  static std::string Headers();
  static std::string DataLine(int32_t seconds, int32_t nanoseconds, int number);

  void HandleTimeout() override;
  const char* Description() const override { return "Analyser"; }

 private:
  void Accepted() override;
  void GotLine(const std::string& command) override;
  void GotOutputRate(int rate) override { SetRate(rate); }
  void GotPollCmd() override;
  void GotCalCH4ZeroCmd() override;
  void GotCalCH4SpanCmd(float concentration) override;

  void _Apply(const std::string& document, std::string& answers);
  void _Calibrated(ConfigurableTimestamp& last, const char* kind);
  void _SendChanges();
  void _SendColumns();
  int64_t _Clock() const;          // microseconds since 1970
  void _SendData(int64_t moment);  // of that clock
  void _SendDocument(std::string text);
  // The word, and those fields whose columns are wanted. `fields`: one for each column, each with a tab behind it.
  std::string _Selected(const char* word, std::string_view fields) const;

  const int64_t _ahead;  // its clock, of CLOCK_MONOTONIC; microseconds
  Doc5500 _document;
  std::string _columns;  // the last DATAH line of this connection
  int64_t _period = 0;   // microseconds
  int _lines = 0;
  std::vector<std::string> _commands;
  std::optional<Announcement> _announcement;
  uint32_t _noise = 1;
};
