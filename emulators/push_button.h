// A push button with an LED on a pseudo-terminal: tells "D", "U" and "L", and takes "Y", "N", "A" and "E".
//
// Thread: the poll loop's.

#pragma once

#include <string>

#include "emulators/pty.h"
#include "runtime/pollprocessor.h"

class PushButton : public PollItem {
 public:
  PushButton() : PollItem(POLLIN, true) {}

  const std::string& Path() const { return _pty.Path(); }

  void Press() { _pty.Write("D"); }
  void Release() { _pty.Write("U"); }
  void Hold() { _pty.Write("L"); }  // pressed for long by now

  // What the LED shows: the last byte, off at first.
  char LED() const { return _led; }

  int Fileno() const override { return _pty.Fileno(); }
  void HandleRead() override {
    for (const char c : _pty.Read()) _led = c;
  }
  const char* Description() const override { return "PushButton"; }

 private:
  Pty _pty;
  char _led = 'N';
};
