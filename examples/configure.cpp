// Reads documents from standard input, sends each one to a logger document and prints the answers.
//
//   echo '<tarno><moorlog><cfg><sonicbaud>9600</sonicbaud>&query_item;</cfg></moorlog></tarno>' | configure
//
// One document follows the other; between them white space is skipped. --compact answers without line breaks and tabs.

#include <exception>
#include <iostream>
#include <limits>
#include <string_view>

#include "config/docmoorlog.h"
#include "config/xml_string.h"

int main(int argc, char** argv) {
  Configurable::set_compact(std::cout, argc > 1 && std::string_view(argv[1]) == "--compact");
  DocMoorlog document;
  bool failed = false;
  for (eatwhite(std::cin); std::cin.good() && std::cout.good(); eatwhite(std::cin)) {
    try {
      document.configure_and_send_events(std::cin, std::cout);
      std::cout << std::endl;
    } catch (const std::exception& error) {  // a bad address, for one
      std::cout << "ERROR: " << error.what() << std::endl;
    }
    // What is left of a document that failed is no document: the rest of its line goes.
    if (!std::cin.fail()) continue;
    failed = true;
    std::cin.clear();
    std::cin.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  if (!std::cout) std::cerr << "ERROR: unable to write to standard output\n";
  return failed || !std::cout ? 1 : 0;
}
