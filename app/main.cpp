// The entry tool: prints the logger's document type description and its default configuration.

#include <exception>
#include <iostream>
#include <stdexcept>

#include "config/docmoorlog.h"

int main() {
  try {
    const DocMoorlog document;
    document.doctype(std::cout);
    document.configuration(std::cout);
    std::cout << std::endl;
    if (!std::cout) throw std::runtime_error("unable to write to standard output");
    return 0;
  } catch (const std::exception& error) {
    std::cout << "ERROR: " << error.what() << std::endl;
    return -1;
  }
}
