// Standard output goes nowhere while the object lives: some jobs tell of what they do, in the middle of the results.

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
