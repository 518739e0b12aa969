// The exchanges in docs/configuration.md, run as they stand there, and its table of the analyser's document.

#include <gtest/gtest.h>

#include <fstream>
#include <map>

#include "config/doc5500.h"
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

// For each section its items in order, with what they take and their values.
using Table = std::map<std::string, std::string>;

void Describe(const ConfigurableComposite& section, const std::string& path, Table& table) {
  std::ostringstream row;
  for (const Configurable* child : section.children()) {
    if (!child->is_enabled()) continue;
    row << child->get_name();
    const auto* below = dynamic_cast<const ConfigurableComposite*>(child);
    if (below != nullptr) Describe(*below, path + child->get_name() + "/", table);
    if (below != nullptr) row << "/ ";
    if (below == nullptr) child->write(child->write_doctype(row << '{') << "} ") << ' ';
  }
  table[path] = row.str();
}

TEST(Documentation, TheAnalysersTreeIsThatOfItsTable) {
  Table found, expected = {{"", "tn5500/ "}, {"tn5500/cal/history/", ""}};
  const Doc5500 document;
  Describe(document, "", found);
  std::ifstream page(std::string(MOORLOG_SOURCE_DIR) + "/docs/configuration.md");
  std::string line, sections;
  while (std::getline(page, line) && line != "```tree") continue;
  while (std::getline(page, line) && line != "```") {
    if (!line.starts_with(' ')) sections = line;
    std::istringstream paths(sections);
    for (std::string path; line.starts_with(' ') && paths >> path;) {
      const size_t brace = std::min(line.find('{'), line.size());
      std::istringstream names(line.substr(0, brace));
      for (std::string name; names >> name;)
        expected[path] +=
            name + (brace == line.size() ? "" : line.substr(brace) + (line.ends_with('}') ? " " : "")) + " ";
    }
  }
  int number = 0;
  for (const std::string source : {"ch4d", "temp", "pressure", "rssi", "droprate", "ch4"}) {
    std::string& row = expected["tn5500/cfg/dac" + std::to_string(++number) + "/"];
    row.replace(row.find('*'), 1, source);
  }
  EXPECT_EQ(expected, found);
}

}  // namespace
