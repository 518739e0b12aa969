#include "config/doc5500common.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "config/docmoorlog.h"
#include "tests/support/child_process.h"

namespace {

// The answer to a document that holds this text in an item of a section.
std::string Answer(DocMoorlog& document, const std::string& section, const std::string& item, const std::string& text) {
  std::istringstream in("<tarno><moorlog><cfg><" + section + "><" + item + ">" + text + "</" + item + "></" + section +
                        "></cfg></moorlog></tarno>");
  std::ostringstream out;
  Configurable::set_compact(out, true);
  document.configure(in, out);
  return out.str();
}

TEST(Doc5500Common, ABadAddressLeavesConfigureAndTheTreeAsItWas) {
  DocMoorlog document;
  document._set_changed(false);
  const auto& address = document.moorlog.cfg.network.ipaddress;
  for (const char* text : {"192.168.1", "1.2.3.4 5", "\xff"})
    EXPECT_THROW(Answer(document, "network", "ipaddress", text), SocketError) << text;
  EXPECT_TRUE(!document.has_changed() && address.get().Presentation() == "192.168.1.95");
  Answer(document, "network", "ipaddress", "FE80:0::1");
  EXPECT_TRUE(document.has_changed() && address.get().Presentation() == "fe80::1");
}

// In a child: the list is that of the process.
TEST(Doc5500Common, ZonesComeInByDocumentForAllInstances) {
  const auto result = RunInChild([] {
    DocMoorlog document, other;
    auto& zone = document.moorlog.cfg.clock.zone;
    const auto shown = [&] { return Answer(other, "clock", "zone", "&query_item;&query_doctype_item;"); };
    const auto send = [&](const char* text) { return Answer(document, "clock", "zone", text); };
    EXPECT_EQ("", send("{A/B|C||D|}&query_item;"));
    EXPECT_EQ("A/B {A/B|C||D}", shown());
    EXPECT_EQ("<Error Param=\"zone\">invalid option: UTC\n</Error>", send("UTC"));
    zone.set_str("D");
    zone.set_str("no such zone");
    send("{A|B}");
    EXPECT_EQ("{A|B}", send("&query_item;&query_doctype_item;"));
    send("{}");
    EXPECT_EQ("{}", shown());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST(Doc5500Common, ClockTextAndSecondsBothWays) {
  const struct {
    std::string date, time, full;  // `full` is the text of the error where the seconds are -1
    long seconds;
  } rows[] = {
      {"2024-07-01", "12:00:00", "2024-07-01 12:00:00", 1719828000},
      {"2024-3-1", "7:05:09", "2024-03-01 07:05:09", 1709273109},
      {" 2024 - 02 - 30 and more", "24:60:61.5", "2024-03-02 01:01:01", 1709337661},
      {"2024-03", "noon", "Invalid date format (should be YYYY-MM-DD): 2024-03", -1},
      {"-2147483648-1-1", "", "Invalid date format (should be YYYY-MM-DD): -2147483648-1-1", -1},
      {"1--2147483648-1", "", "Invalid date format (should be YYYY-MM-DD): 1--2147483648-1", -1},
      {"2024-03-01", "12:30-00", "Invalid time format (should be HH:MM:SS): 12:30-00", -1},
  };
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  for (const auto& row : rows) {
    ConfigCfgClock clock;
    clock.date.set(row.date);
    clock.time.set(row.time);
    clock._set_changed(false);
    try {
      EXPECT_EQ(row.seconds, clock.TimeDate()) << row.date;
      clock.TimeDate(row.seconds);
      EXPECT_EQ(row.full, clock.date.get() + " " + clock.time.get());
      EXPECT_EQ(row.full != row.date + " " + row.time, clock.has_changed());
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(row.full, error.what());
    }
  }
  unsetenv("TZ");
}

}  // namespace
