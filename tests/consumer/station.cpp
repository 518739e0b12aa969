#include <iostream>

#include "analyser/ch4device.h"
#include "config/docmoorlog.h"
#include "logging/reclaimer.h"
#include "serial/linuxclocksync.h"

int main() {
  Reclaimer(false).Reclaim("/nowhere", 50);
  long frequency = 0;
  LinuxClockSync(false, 40, 4).Sync({1, 0}, {1, 0}, &frequency);
  std::cout << CH4Device(false).GetHead().IsConnected();
  DocMoorlog().configuration(std::cout);
}
