#include "config/configtimestamp.h"

#include <gtest/gtest.h>

#include <limits>

#include "tests/config/sample_tree.h"

namespace {

constexpr double kDay = 86400;

struct TimesDoc : ConfigurableComposite {
  TimesDoc() : ConfigurableComposite("T") {
    add(stamp), add(time), add(minutes), add(date), add(month);
    _set_changed(false);
  }
  ConfigurableTimestamp stamp{"S", 31 * kDay};
  ConfigurableTime time{"HMS", 3661.5};
  ConfigurableTime_HourMinutes minutes{"HM", 3660};
  ConfigurableDate date{"YMD", 31 * kDay};
  ConfigurableDate_YearMonth month{"YM", 30 * kDay};
};

constexpr char kUnread[] =
    "<Error Param=\"S\">unable to read Timestamp\n</Error>"
    "<Error Param=\"HMS\">unable to read time (should be HH:MM:SS)\n</Error>"
    "<Error Param=\"HM\">unable to read time (should be HH:MM)\n</Error>"
    "<Error Param=\"YMD\">unable to read date (should be YYYY-MM-DD)\n</Error>"
    "<Error Param=\"YM\">unable to read date (should be YYYY-MM)\n</Error>";

TEST(ConfigurableTimestamp, ReadsAndWritesTheFormOfEachKind) {
  const Exchange rows[] = {
      {"&query_doctype_item;&query_item;",
       "<S>{YYYY-MM-DD HH:MM:SS.SS}</S><HMS>{HH:MM:SS}</HMS><HM>{HH:MM}</HM><YMD>{YYYY-MM-DD}</YMD><YM>{YYYY-MM}</YM>"
       "<S>1989-02-01 00:00:00</S><HMS>01:01:01</HMS><HM>01:01</HM><YMD>1989-02-01</YMD><YM>1989-01</YM>"},
      {"<S>2024-02-29 23:59:58.25</S><HMS>23:59:58</HMS><HM>23:59</HM><YMD>2024-02-29</YMD><YM>2024-03</YM>",
       "<S>2024-02-29 23:59:58.25</S><HMS>23:59:58</HMS><HM>23:59</HM><YMD>2024-02-29</YMD><YM>2024-02</YM>"},
      {"<S>2024-03-01</S><HMS> 1 : 2 : 3 x</HMS><HM>1:2:3</HM><YMD>24-1-32</YMD><YM>2024-1</YM>",
       "<S>2024-03-01 00:00:00</S><HMS>01:02:03</HMS><HM>01:02</HM><YMD>2024-02-01</YMD><YM>2023-12</YM>"},
      {"<HMS>25:00:00</HMS><HM>0:-1</HM><YMD>2100-01-01</YMD><YM>1989-13</YM>",
       "<HMS>01:00:00</HMS><HM>06:27</HM><YMD>1989-01-01</YMD><YM>1989-12</YM>"},
      {"<S>1989-02-01</S><HM>01:01</HM><YMD>1989-02-01</YMD><YM>1989-02</YM>", ""},  // what they were
      {"<S>2024-03</S><HMS>1:2</HMS><HM>1</HM><YMD>2024-03</YMD><YM>2024</YM>", kUnread},
      {"<S>x</S><HMS>1:2.3</HMS><HM>1-2</HM><YMD>2024-03/01</YMD><YM>2024-99999999999</YM>", kUnread}};
  for (const auto& row : rows) {
    TimesDoc doc;
    EXPECT_EQ(row.answer, Answer(doc, std::string("<T>") + row.document + "&query_changes_item;</T>"));
  }
}

TEST(ConfigurableTimestamp, HoldsAnyValueAndItsDefault) {
  TimesDoc doc;
  EXPECT_EQ("", Answer(doc, "<T><HMS>2147483647:2147483647:2147483647</HMS><HM>-2147483648:0</HM></T>"));
  EXPECT_EQ(2147483647 * 3661.0, doc.time.get().get());
  for (const double value : {-3600.0, 1e300, std::numeric_limits<double>::quiet_NaN()}) {
    doc.time.set(value);
    EXPECT_EQ(8u, Answer(doc, "<T><HMS>&query_item;</HMS></T>").size());
  }
  doc.set_to_default();
  EXPECT_EQ("01:01:01 01:01", Answer(doc, "<T><HMS>&query_item;</HMS><HM>&query_item;</HM></T>"));
}

}  // namespace
