#include "config/configcal.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

TEST(ConfigCal, KeepsTheRecordsOfTheCalibrationsInForce) {
  // Tags, times and types of records; then what is left with a last zero of 7 s and a last span of 9 s.
  const struct {
    const char* name;
    std::vector<std::tuple<const char*, double, const char*>> records;
    const char* left;
  } rows[] = {
      {"empty", {}, ""},
      {"both", {{"z", 7, "CH4 Zero"}, {"s", 9, "CH4 Span"}}, "s1 z0 "},
      {"other times", {{"z", 9, "CH4 Zero"}, {"s", 7, "CH4 Span"}, {"z", 7.0000001, "CH4 Zero"}}, ""},
      {"the later one", {{"a", 7, "CH4 Zero"}, {"b", 7, "CH4 Zero"}}, "b1 "},
      {"no type, another type", {{"e", 7, ""}, {"o", 9, "CH4 span"}}, ""},
      {"more text", {{"m", 7, "by hand: CH4 Zero, twice"}}, "m0 "},
      {"both types", {{"x", 9, "CH4 Zero, CH4 Span"}, {"y", 7, "CH4 Span, CH4 Zero"}}, "x0 y1 "},
  };
  for (const auto& row : rows) {
    ConfigCal cal;
    cal.ch4lastzero.set(7);
    cal.ch4lastspan.set(9);
    std::string document = "<cal><history>";
    for (size_t i = 0; i < row.records.size(); ++i) {
      const auto& [tag, time, type] = row.records[i];
      document += std::string("<") + tag + "><type>" + type + "</type><ch4zero>" + std::to_string(i) + "</ch4zero></" +
                  tag + ">";
    }
    EXPECT_EQ("", Answer(cal, document + "</history></cal>"));
    size_t i = 0;
    for (Configurable* record : cal.history.children())
      static_cast<ConfigCalRecord*>(record)->time.set(std::get<1>(row.records[i++]));
    cal._set_changed(false);
    cal.ClearOldHistoryRecords();
    std::ostringstream left;
    for (const Configurable* child : cal.history.children()) {
      const auto& record = *static_cast<const ConfigCalRecord*>(child);
      EXPECT_EQ(std::get<2>(row.records[static_cast<size_t>(record.ch4zero.get())]), record.type.get());
      left << child->get_name() << record.ch4zero.get() << ' ';
    }
    EXPECT_EQ(row.left, left.str()) << row.name;
    EXPECT_EQ(!row.records.empty(), cal.has_changed()) << row.name;
  }
}

TEST(ConfigCal, ARecordIsItsFourValues) {
  const ConfigCalRecord record(60, "CH4 Zero", 0.5, 1.25);
  std::ostringstream out;
  Configurable::set_compact(out, true);
  record.configuration(out);
  EXPECT_EQ(
      "<record><time>1989-01-01 00:01:00</time><type>CH4 Zero</type><ch4zero>0.5</ch4zero><ch4span>1.25</ch4span>"
      "</record>",
      out.str());
  ConfigCalRecord copy("other");
  EXPECT_EQ("01", std::to_string(int(copy.ch4zero.get())) + std::to_string(int(copy.ch4span.get())));
  copy = record;
  EXPECT_TRUE(copy == record) << "the tag doesn't count";
  const std::function<void()> changes[] = {[&] { copy.time.set(61); }, [&] { copy.type.set("CH4 Span"); },
                                           [&] { copy.ch4zero.set(1); }, [&] { copy.ch4span.set(1); }};
  for (const auto& change : changes) {
    change();
    EXPECT_FALSE(copy == record);
    copy = record;
    EXPECT_TRUE(copy == record);
  }
  copy.time.set(61);
  copy.set_to_default();
  EXPECT_EQ(0, copy.time.get().get());
}

}  // namespace
