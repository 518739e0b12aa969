#include <iostream>

#include "config/docmoorlog.h"
#include "logging/reclaimer.h"

int main() {
  Reclaimer(false).Reclaim("/nowhere", 50);
  const DocMoorlog document;
  document.configuration(std::cout);
}
