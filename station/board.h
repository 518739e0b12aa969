// What the document says of the board itself, put into force: its zone, its clock, its part in the precision time
// protocol, its name.
//
// What this program doesn't change on a board (its addresses, which are the system's network manager's, and what
// nothing here reads) is answered with an error. So is what the system refuses, which the document then doesn't say any
// more; the rest is done all the same. What other programs do for it (name, time protocol, reboot) goes on behind the
// answer, and a failure of theirs is told.
//
// Thread: the poll loop's.

#pragma once

#include <string>
#include <vector>

#include "config/docmoorlog.h"
#include "serial/linuxclock.h"
#include "station/errands.h"

class Board {
 public:
  // Neither is owned; both outlive this.
  Board(LinuxClock& clock, Errands& errands) : _clock(clock), _errands(errands) {}

  // What doesn't outlive a start of the system: a part in the time protocol that was chosen. Returns what went wrong.
  std::vector<std::string> Start(ConfigMoorlog& document);

  // Looks at the marks of change, and returns what went wrong: that is then again as `before`, which was in force.
  std::vector<std::string> Apply(ConfigMoorlog& document, const ConfigMoorlog& before);

  // Throws std::runtime_error without the right to.
  void Reboot();

 private:
  template <class Item, class Deed>
  void _Try(Item& item, const Item& before, Deed deed);
  void _StartPTP(int choice);

  LinuxClock& _clock;
  Errands& _errands;
  std::vector<std::string> _errors;
};
