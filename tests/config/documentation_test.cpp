// The exchanges in docs/configuration.md, run as they stand there, and its table of the analyser's document.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>

#include "config/doc5500.h"
#include "config/docmoorlog.h"
#include "tests/support/child_process.h"

namespace {

// The lines up to the fence that closes a block.
std::string Block(std::istream& page) {
  std::string block, line;
  while (std::getline(page, line) && line != "```") block += line + "\n";
  return block;
}

// Without the line break in front, and with one behind it.
std::string Answer(DocMoorlog& document, const std::string& text) {
  std::istringstream in(text);
  std::ostringstream out;
  document.configure_and_send_events(in, out);
  const std::string answer = out.str();
  return answer.empty() ? "" : answer.substr(answer.find_first_not_of('\n')) + "\n";
}

// A line of dots at the end stands for any more.
void ExpectShown(const std::string& shown, const std::string& answer, const std::string& sent) {
  const std::size_t dots = std::min(shown.find("..."), shown.size());
  const std::string whole = shown.substr(0, shown.find_last_not_of('\t', dots - 1) + 1);
  EXPECT_EQ(whole, dots == shown.size() ? answer : answer.substr(0, whole.size())) << sent;
}

// In a child, and each exchange alone in a child of its own: the list of zones is that of the process.
TEST(Documentation, EveryExchangeIsTrueAloneAndInSession) {
  ExpectInChild([] {
    std::ifstream page(std::string(MOORLOG_SOURCE_DIR) + "/docs/configuration.md");
    DocMoorlog session;
    std::string line, sent, alone, in_session;
    int exchanges = 0;
    while (std::getline(page, line)) {
      if (line == "```send") {
        sent = Block(page);
        alone = RunInChild([&] { std::cout << Answer(*std::make_unique<DocMoorlog>(), sent); }).output;
        in_session = Answer(session, sent);
        ++exchanges;
      } else if (line.starts_with("```answer")) {
        const std::string shown = Block(page);
        if (!line.ends_with("session")) ExpectShown(shown, alone, sent);
        if (!line.ends_with("alone")) ExpectShown(shown, in_session, sent);
      }
    }
    EXPECT_LE(20, exchanges);
  });
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
