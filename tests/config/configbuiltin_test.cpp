#include "config/configbuiltin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <locale>

#include "config/configtimestamp.h"
#include "config/doc5500common.h"
#include "tests/config/sample_tree.h"
#include "tests/support/error_text.h"

namespace {

struct TestDoc : ConfigurableComposite {
  TestDoc() : ConfigurableComposite("T") {
    add(plain), add(real), add(clamped), add(clamped_real), add(strict), add(strict_real);
    _add_all({&flag, &range, &any, &text, &stamp, &time, &minutes, &date, &month});
    _set_changed(false);
  }
  ConfigurableFloat plain{"Float", 0};
  ConfigurableDouble real{"Double", 0};
  ConfigurableFloat clamped{"CF", 1, -5.5, 5.5, false};
  ConfigurableDouble clamped_real{"CD", 1, -5.5, 5.5, false};
  ConfigurableFloat strict{"SF", 9, -5.5, 5.5, true};
  ConfigurableDouble strict_real{"SD", 9, -5.5, 5.5, true};
  ConfigurableBool flag{"flag", true};
  ConfigurableInteger range{"range", 5, 2, 9}, any{"any", 5};
  ConfigurableString text{"text", "x"};
  ConfigurableTimestamp stamp{"S", 0.0};
  ConfigurableTime time{"HMS", 0.0};
  ConfigurableTime_HourMinutes minutes{"HM", 0.0};
  ConfigurableDate date{"YMD", 0.0};
  ConfigurableDate_YearMonth month{"YM", 0.0};
};

// What a text does to each of them is held against a second form in fuzz/values_fuzz.cpp.

TEST(ValueItems, DescribeThemselves) {
  TestDoc doc;
  EXPECT_EQ(
      "<Float>{float:0}</Float><Double>{double:0}</Double><CF>{float:1;-5.5...5.5}</CF>"
      "<CD>{double:1;-5.5...5.5}</CD><SF>{float:9;-5.5...5.5}</SF><SD>{double:9;-5.5...5.5}</SD>"
      "<flag>{true|false}</flag><range>{integer:5;2...9}</range><any>{integer:5}</any><text>{string:x}</text>"
      "<S>{YYYY-MM-DD HH:MM:SS.SS}</S><HMS>{HH:MM:SS}</HMS><HM>{HH:MM}</HM><YMD>{YYYY-MM-DD}</YMD><YM>{YYYY-MM}</YM>",
      Answer(doc, "<T>&query_doctype_item;</T>"));
}

TEST(ValueItems, TimesMayBeAnything) {
  ConfigurableTime time("T", 0.0);
  for (const double value : {-3600.0, 1e300, std::nan("")}) {
    time.set(value);
    EXPECT_EQ(8u, Answer(time, "<T>&query_item;</T>").size());
  }
}

// Whatever the sign of the board's NaN. A range of one value refuses that one as well: it lies neither above nor below.
TEST(ConfigurableReal, NaNMarksAChangeOrIsRefused) {
  TestDoc doc;
  for (int changes = 1; changes < 3; ++changes) {
    doc.clamped.set(-std::nanf(""));
    EXPECT_EQ(changes, doc.clamped.get_change_count());
  }
  ConfigurableDouble nan("N", -std::nan("")), three("D", 3, 3, 3, true);
  EXPECT_EQ("<CF>nan</CF>", Answer(doc, "<T>&query_changes_item;</T>"));
  EXPECT_EQ("<N>{double:nan}</N>", Answer(nan, "&query_doctype;"));
  EXPECT_EQ("ConfigurableFloat: range error", ErrorText([&] { Answer(doc, "<T><SF>nan</SF></T>"); }));
  EXPECT_EQ("ConfigurableDouble: range error", ErrorText([&] { Answer(doc, "<T><SD>nan</SD></T>"); }));
  EXPECT_EQ("ConfigurableDouble: range error", ErrorText([&] { three.set(3); }));
}

TEST(ValueItems, TakeTheirDefaultsAsGivenUntilTheyAreSet) {
  TestDoc doc;
  EXPECT_EQ(9, doc.strict.get());
  doc.set_to_default();
  EXPECT_EQ("<SF>5.5</SF><SD>5.5</SD>", Answer(doc, "<T>&query_changes_item;</T>"));
  ConfigurableInteger from("i", 50, 0), to("i", 50, std::numeric_limits<std::int32_t>::min(), 9);
  EXPECT_EQ("<i>{integer:50;0...2147483647}</i>", Answer(from, "&query_doctype;"));
  EXPECT_EQ("<i>{integer:50;-2147483648...9}</i>", Answer(to, "&query_doctype;"));
  Lunch lunch;
  for (const int index : {-1, 0, 6}) lunch.set(index);
  EXPECT_EQ(0, lunch.get_change_count());
  lunch.set(5);
  EXPECT_EQ("translate<>&'\"", lunch.get_str());
  lunch.set_to_default();
  EXPECT_EQ(0, lunch.get());
}

TEST(ValueItems, KnowNothingOfALocaleThatTheProgramHasSet) {
  struct Comma : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    std::string do_grouping() const override { return "\1"; }
  };
  struct Restored {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
    ~Restored() { std::locale::global(before); }
  } restored;
  struct Streamed : Configurable {
    using Configurable::Configurable;
    std::istream& read(std::istream& in, std::ostream& errors) override { return errors << 1234.5, in; }
    std::ostream& write(std::ostream& out) const override { return out << 1234.5; }
  } streamed("W");
  ConfigurableDate date("D", 0.0);
  TestDoc doc;
  doc.add(date), doc.add(streamed);
  EXPECT_EQ(
      "<Error "
      "Param=\"W\">1234.5</Error><Float>1.25</Float><range>9</range><any>123456</any><D>2024-12-31</D><W>1234.5</W>",
      Answer(doc,
             "<T><Float>1.25</Float><range>1234</range><any>123456</any><D>2024-12-31</D>"
             "<W>x</W>&query_changes_item;</T>"));
  EXPECT_EQ("{double:1;-5.5...5.5}", Answer(doc, "<T><CD>&query_doctype_item;</CD></T>"));
  ConfigCfgClock clock;
  clock.date.set("2,0,2,4-1-1");
  EXPECT_THROW(clock.TimeDate(), std::runtime_error);
}

}  // namespace
