// What would keep the loop waiting, done by children: systemctl(1) and hostnamectl(1) take up to a minute and a half
// where what they start, or ask, doesn't answer.
//
// Thread: the poll loop's.

#pragma once

#include <sys/types.h>

#include <deque>
#include <functional>
#include <string>
#include <utility>

#include "runtime/pollprocessor.h"
#include "runtime/streamfilebase.h"

class Errands : private PollItem {
 public:
  Errands() : PollItem(POLLIN, true) {}

  // Has it done as soon as those before it have been, by a copy of this process that has none of its descriptors but
  // the standard ones. It raises its rights itself: std::runtime_error where root's can't be had at all. What it throws
  // is told on standard output, behind the name. What waits when this goes is not done.
  void Do(std::string name, std::function<void()> deed);

 private:
  void _Begin();
  void _Listen();

  int Fileno() const override { return _words.Fileno(); }
  void HandleRead() override { _Listen(); }
  void HandleHangUp() override { _Listen(); }
  const char* Description() const override { return "Errands"; }

  std::deque<std::pair<std::string, std::function<void()>>> _waiting;  // the first one is being done
  StreamFileBase _words;                                               // of its child; open while there is one
  pid_t _child = -1;
  std::string _error;
};
