// Tells why something can't be had: once, not at each look, and anew when it has been there meanwhile.
//
// Thread: the poll loop's.

#pragma once

#include <exception>
#include <iostream>
#include <string>
#include <utility>

class Absence {
 public:
  void Tell(const std::exception& error) {
    if (std::exchange(_told, error.what()) != error.what()) std::cout << "ERROR: " << error.what() << std::endl;
  }
  void Over() { _told.clear(); }

 private:
  std::string _told;
};
