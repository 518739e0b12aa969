// What goes to standard output by its stream goes nowhere while the object lives.

#pragma once

#include <iostream>

class Silence {
 public:
  Silence() : _saved(std::cout.rdbuf(nullptr)) {}
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    std::cout.rdbuf(_saved);
    std::cout.clear();
  }

 private:
  std::streambuf* _saved;
};
