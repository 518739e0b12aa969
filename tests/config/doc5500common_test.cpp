#include "config/doc5500common.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>

#include "config/docmoorlog.h"
#include "tests/support/child_process.h"

namespace {

// The answer to a document that holds this text inside the tag `cfg`.
std::string Answer(DocMoorlog& document, const std::string& text) {
  std::istringstream in("<tarno><moorlog><cfg>" + text + "</cfg></moorlog></tarno>");
  std::ostringstream out;
  Configurable::set_compact(out, true);
  document.configure(in, out);
  return out.str();
}

TEST(Doc5500Common, ABadAddressLeavesConfigureAndTheTreeAsItWas) {
  for (const std::string text : {"192.168.1.95", "FE80:0::1", "192.168.1", "1.2.3.4 5", "\xff"}) {
    DocMoorlog document;
    document._set_changed(false);
    const auto& network = document.moorlog.cfg.network;
    std::string sent = "<network><name>set</name><ipaddress>" + text + "</ipaddress>";
    sent += "<gateway>10.0.0.1</gateway>&query_changes_item;</network>";
    const std::string set = "<name>set</name>";
    const std::string gateway = "<gateway>10.0.0.1</gateway>";
    if (text == "192.168.1.95") {
      EXPECT_EQ(set + gateway, Answer(document, sent));
    } else if (text[0] == 'F') {
      EXPECT_EQ(set + std::string("<ipaddress>fe80::1</ipaddress>").append(gateway), Answer(document, sent));
      document.moorlog.cfg.set_to_default();
      EXPECT_EQ("192.168.1.95", network.ipaddress.get().Presentation());
    } else {
      EXPECT_THROW(Answer(document, sent), SocketError) << text;
      EXPECT_EQ(set, Answer(document, "<network>&query_changes_item;</network>"));
    }
  }
}

// In a child: the list is that of the process.
TEST(Doc5500Common, ZonesComeInByDocumentForAllInstances) {
  const auto result = RunInChild([] {
    DocMoorlog document, other;
    auto& zone = document.moorlog.cfg.clock.zone;
    document._set_changed(false);
    const auto shown = [&] { return Answer(other, "<clock><zone>&query_item;&query_doctype_item;</zone></clock>"); };
    const auto send = [&](const std::string& text) {
      return Answer(document, "<clock><zone>" + text + "</zone></clock>");
    };
    EXPECT_EQ("UTC {UTC}", shown());
    EXPECT_EQ("", send("{A/B|C||D|}&query_item;"));
    EXPECT_EQ("A/B {A/B|C||D}", shown());
    EXPECT_EQ("<Error Param=\"zone\">invalid option: UTC\n</Error>", send("UTC"));
    EXPECT_FALSE(document.has_changed());
    send("D");
    zone.set_str("no such zone");
    EXPECT_EQ("D", zone.get_str());
    send("{A|B}");
    EXPECT_EQ("{A|B}", send("&query_item;&query_doctype_item;"));
    zone.set_str("B");
    EXPECT_EQ("B", zone.get_str());
    send("{}");
    zone.set_str("B");
    EXPECT_EQ("", zone.get_str());
    EXPECT_EQ("{}", shown());
    EXPECT_EQ("UTC", ConfigTimezone().get_str());
  });
  EXPECT_EQ(0, result.exit_status) << result.output;
}

TEST(Doc5500Common, ClockTextAndSecondsBothWays) {
  const std::string bad_date = "Invalid date format (should be YYYY-MM-DD): ";
  const std::string bad_time = "Invalid time format (should be HH:MM:SS): ";
  const struct {
    std::string date, time, full;  // `full` empty: throws
    long seconds = 0;
  } rows[] = {
      {"1970-01-01", "01:00:00", "1970-01-01 01:00:00", 0},
      {"2024-07-01", "12:00:00", "2024-07-01 12:00:00", 1719828000},
      {"2024-3-1", "7:05:09", "2024-03-01 07:05:09", 1709273109},
      {" 2024 - 02 - 30 and more", "24:60:61.5", "2024-03-02 01:01:01", 1709337661},
      {"1970-01-01", "00:59:50", "1970-01-01 00:59:50", -10},
      {"", "", ""},
      {"2024-03", "noon", ""},
      {"2024-3:1", "", ""},
      {"99999999999-1-1", "", ""},
      {"-2147483648-1-1", "", ""},
      {"1--2147483648-1", "", ""},
      {"2024-03-01", "12:30:", ""},
      {"2024-03-01", "12:30-00", ""},
      {"2024-03-01", "2147483648:0:0", ""},
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
      EXPECT_EQ(row.date == "2024-03-01" ? bad_time + row.time : bad_date + row.date, error.what());
      EXPECT_EQ("", row.full);
    }
  }
  unsetenv("TZ");
}

}  // namespace
