#include <iostream>

#include "config/docmoorlog.h"

int main() {
  const DocMoorlog document;
  document.configuration(std::cout);
}
