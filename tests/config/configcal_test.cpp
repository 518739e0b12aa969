#include "config/configcal.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

TEST(ConfigCal, ARecordIsItsFourValues) {
  const ConfigCalRecord record(60, "CH4 Zero", 0.5, 1.25);
  std::ostringstream out;
  Configurable::set_compact(out, true);
  ConfigCalRecord copy("other");
  copy.configuration(record.configuration(out));
  EXPECT_EQ(
      "<record><time>1989-01-01 00:01:00</time><type>CH4 Zero</type><ch4zero>0.5</ch4zero><ch4span>1.25</ch4span>"
      "</record><other><time>1989-01-01 00:00:00</time><type/><ch4zero>0</ch4zero><ch4span>1</ch4span></other>",
      out.str());
  const std::function<void()> changes[] = {[] {}, [&] { copy.time.set(61); }, [&] { copy.type.set("CH4 Span"); },
                                           [&] { copy.ch4zero.set(1); }, [&] { copy.ch4span.set(1); }};
  for (const auto& change : changes) {
    change();
    EXPECT_FALSE(copy == record);
    copy = record;
    EXPECT_TRUE(copy == record) << "the tag doesn't count";
  }
}

}  // namespace
