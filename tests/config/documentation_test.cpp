// The exchanges in docs/configuration.md, run as they stand there.

#include <gtest/gtest.h>

#include <fstream>

#include "config/docmoorlog.h"

namespace {

// The lines up to the fence that closes a block.
std::string Block(std::istream& page) {
  std::string block, line;
  while (std::getline(page, line) && line != "```") block += line + "\n";
  return block;
}

TEST(Documentation, EveryExchangeIsTrue) {
  std::ifstream page(std::string(MOORLOG_SOURCE_DIR) + "/docs/configuration.md");
  auto document = std::make_unique<DocMoorlog>();
  std::string line, answer;
  int exchanges = 0;
  while (std::getline(page, line)) {
    if (line.rfind("## ", 0) == 0) document = std::make_unique<DocMoorlog>();
    if (line == "```send") {
      std::istringstream in(Block(page));
      std::ostringstream out;
      document->configure_and_send_events(in, out);
      answer = out.str().substr(out.str().find_first_not_of('\n')) + "\n";
    } else if (line == "```answer") {
      EXPECT_EQ(Block(page), answer);
      ++exchanges;
    }
  }
  EXPECT_LE(9, exchanges);
}

}  // namespace
