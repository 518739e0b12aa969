// The entry tool: prints the logger's document type description and its default configuration.

#include <exception>
#include <iostream>

#include "config/docmoorlog.h"

int main() {
  try {
    const DocMoorlog document;
    document.doctype(std::cout);
    document.configuration(std::cout);
    std::cout << std::endl;
    return 0;
  } catch (const std::exception& error) {
    std::cout << "ERROR: " << error.what() << std::endl;
    return -1;
  }
}
