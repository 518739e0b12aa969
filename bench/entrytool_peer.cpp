// Prints what the entry tool prints, and knows nothing of where it comes from.

#include <iostream>

int main() {
  std::cout <<
#include "moorlog_output.inc"
            << std::flush;
}
