// A methane analyser on the network: sends its header lines to whoever connects, then data lines at its rate, and
// misbehaves when told to.
//
// Everything runs on the poll loop's time; data lines carry the system's present moment in whole periods of the rate,
// so that at rates that divide a second there is one at the top of each. It obeys <rate> in what it is sent and
// acknowledges each line. As the instrument has little memory, lines that find the connection jammed are lost whole.
//
// Thread: the poll loop's.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulators/announcement.h"
#include "emulators/lineserver.h"
#include "runtime/pollprocessor.h"

class Analyser : public LineServer, public PollTimer {
 public:
  static constexpr const char* kType = "_tarno-tn5500._tcp";
  static constexpr int kFastest = 40;  // lines a second

  // Listens at once, with port 0 on a port of its own.
  explicit Analyser(const std::string& host = "127.0.0.1", int port = 0);

  // In lines a second, to kFastest; 0 for silence. 10 at first.
  void SetRate(int rate);

  // Each line that it was sent, without its end.
  const std::vector<std::string>& Commands() const { return _commands; }
  void ForgetCommands() { _commands.clear(); }
  int LinesSent() const { return _lines; }

  // Through the Avahi daemon, as a service of this host; by Vanish it is withdrawn and nobody can connect any more.
  void Announce(const std::string& name);
  void Vanish();
  void CutLine();                 // sends the first half of a line and ends the connection
  void SendGarbage(size_t size);  // noise of all bytes, line feeds included, with an end of its own

  // The header lines, and a data line with its sum; AUX1 is its number.
  static std::string Headers();
  static std::string DataLine(int32_t seconds, int32_t nanoseconds, int number);

  void HandleTimeout() override;
  const char* Description() const override { return "Analyser"; }

 private:
  void Accepted() override;
  void GotLine(const std::string& command) override;

  int _rate = 0;
  int _lines = 0;
  std::vector<std::string> _commands;
  std::optional<Announcement> _announcement;
  uint32_t _noise = 1;
};
