// Reads documents from standard input, sends each one to a logger document and prints the answers.
//
//   echo '<tarno><moorlog><cfg><sonicbaud>9600</sonicbaud>&query_item;</cfg></moorlog></tarno>' | configure
//
// One document follows the other; between them white space is skipped. --compact answers without line breaks and tabs.
// Standard output holds nothing but the answers: what was done in the end goes to standard error.

#include <unistd.h>

#include <csignal>
#include <exception>
#include <iostream>
#include <limits>

#include "config/docmoorlog.h"
#include "config/xml_string.h"
#include "examples/commandline.h"

namespace {

// Ctrl-C is the end of the input, also for a read that waits already; a second one ends the program.
void EndInputOnInterrupt() {
  struct sigaction action = {};
  action.sa_handler = [](int) { close(STDIN_FILENO); };
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // and without SA_RESTART
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("Reads documents from standard input, sends each one to a logger document and prints the answers.");
  bool compact = false;
  line.add_flag("--compact", compact, "answer without line breaks and tabs");
  line.Read(argc, argv);
  EndInputOnInterrupt();

  Configurable::set_compact(std::cout, compact);
  DocMoorlog document;
  int answered = 0;
  int failed = 0;
  for (eatwhite(std::cin); std::cin.good() && std::cout.good(); eatwhite(std::cin)) {
    try {
      document.configure_and_send_events(std::cin, std::cout);
      std::cout << std::endl;
      answered += std::cin.fail() ? 0 : 1;
    } catch (const std::exception& error) {  // a bad address, for one
      std::cout << "ERROR: " << error.what() << std::endl;
    }
    // What is left of a document that failed is no document: the rest of its line goes.
    if (!std::cin.fail()) continue;
    ++failed;
    std::cin.clear();
    std::cin.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  const int status = LastLine({{"answered", answered}, {"failed", failed}}, std::cerr);
  return failed > 0 ? 1 : status;
}
