// What would keep the loop waiting, done by children: systemctl(1) and hostnamectl(1) take up to a minute and a half
// where what they start, or ask, doesn't answer.
//
// Thread: the poll loop's.

#pragma once

#include <sys/types.h>

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "runtime/pollprocessor.h"
#include "runtime/streamfilebase.h"

class Errands {
 public:
  // Has it done as soon as those before it of the same name have been, by a copy of this process that has none of its
  // descriptors but the standard ones. It raises its rights itself: std::runtime_error where root's can't be had at
  // all. What it throws is told on standard output, behind the name. What waits when this goes is not done, and who is
  // at work then is waited for by nobody.
  void Do(const std::string& name, std::function<void()> deed);

 private:
  // Those of one name.
  class _Line : private PollItem {
   public:
    explicit _Line(std::string name) : PollItem(POLLIN, true), _name(std::move(name)) {}
    void Do(std::function<void()> deed);

   private:
    void _Begin();
    void _Listen();

    int Fileno() const override { return _words.Fileno(); }
    void HandleRead() override { _Listen(); }
    void HandleHangUp() override { _Listen(); }
    const char* Description() const override { return "Errands"; }

    const std::string _name;
    std::deque<std::function<void()>> _waiting;  // the first one is being done
    StreamFileBase _words;                       // of its child; open while there is one
    pid_t _child = -1;
    std::string _error;
  };

  std::map<std::string, _Line> _lines;
};
