#include "config/configbuiltin.h"

#include <gtest/gtest.h>

#include <cmath>

#include "config/doc5500common.h"
#include "tests/config/sample_tree.h"
#include "tests/support/error_text.h"

namespace {

struct TestDoc : ConfigurableComposite {
  TestDoc() : ConfigurableComposite("T") {
    add(plain), add(real), add(clamped), add(clamped_real), add(strict), add(strict_real);
    add(flag), add(range), add(any), add(text);
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
};

TEST(ValueItems, ReadClampRefuseAndReport) {
  const Exchange rows[] = {
      {"<Float>-inf</Float><Double> nan </Double>", "<Float>-inf</Float><Double>nan</Double>"},
      {"<Float>7 apples</Float><Double>7e2x</Double>", "<Float>7</Float><Double>700</Double>"},
      {"<Double>1234567.8</Double><Float>1e-7</Float>", "<Float>1e-07</Float><Double>1.23457e+06</Double>"},
      {"<Double>1e999</Double><Float>1e39</Float>",
       "<Error Param=\"Double\">unable to read double</Error><Error Param=\"Float\">unable to read float</Error>"},
      {"<Float>infinity</Float><Double>+inf</Double>",
       "<Error Param=\"Float\">unable to read float</Error><Error Param=\"Double\">unable to read double</Error>"},
      {"<Float>junk&query_item;8</Float>", "<Error Param=\"Float\">unable to read float</Error>"},  // not the 8
      {"<Float>0</Float>", ""},
      {"<CF>inf</CF><CD>-inf</CD>", "<CF>5.5</CF><CD>-5.5</CD>"},
      {"<CF>nan</CF><SF>-inf</SF><SD>inf</SD>", "<CF>nan</CF><SF>-5.5</SF><SD>5.5</SD>"},
      {"<flag>false junk</flag>", "<flag>false</flag>"},
      {"<flag>yes</flag>", "<Error Param=\"flag\">invalid bool</Error>"},
      {"<range>1</range><any>-5x</any>", "<range>2</range><any>-5</any>"},
      {"<range>5000000000</range><any>-5000000000</any>", "<range>9</range><any>-2147483648</any>"},
      {"<any>x</any>", "<Error Param=\"any\">unable to read integer</Error>"},
      {"<any>99999999999999999999</any>", "<Error Param=\"any\">unable to read integer</Error>"},
      {"<text>a  b &lt;</text>", "<text>a  b &lt;</text>"},
      {"&query_doctype_item;",
       "<Float>{float:0}</Float><Double>{double:0}</Double><CF>{float:1;-5.5...5.5}</CF>"
       "<CD>{double:1;-5.5...5.5}</CD><SF>{float:9;-5.5...5.5}</SF><SD>{double:9;-5.5...5.5}</SD>"
       "<flag>{true|false}</flag><range>{integer:5;2...9}</range><any>{integer:5}</any><text>{string:x}</text>"}};
  for (const auto& row : rows) {
    TestDoc doc;
    EXPECT_EQ(row.answer, Answer(doc, std::string("<T>") + row.document + "&query_changes_item;</T>"));
  }
  TestDoc doc;
  EXPECT_EQ("<text>a</text>", Answer(doc, std::string("<T><text>a\0b</text>&query_changes_item;</T>", 43)));
}

// Whatever the sign of the board's NaN.
TEST(ConfigurableReal, NaNMarksAChangeOrIsRefused) {
  TestDoc doc;
  for (int changes = 1; changes < 3; ++changes) {
    doc.clamped.set(-std::nanf(""));
    EXPECT_EQ(changes, doc.clamped.get_change_count());
  }
  ConfigurableDouble nan("N", -std::nan(""));
  EXPECT_EQ("<CF>nan</CF>", Answer(doc, "<T>&query_changes_item;</T>"));
  EXPECT_EQ("<N>{double:nan}</N>", Answer(nan, "&query_doctype;"));
  EXPECT_EQ("ConfigurableFloat: range error", ErrorText([&] { Answer(doc, "<T><SF>nan</SF></T>"); }));
  EXPECT_EQ("ConfigurableDouble: range error", ErrorText([&] { Answer(doc, "<T><SD>nan</SD></T>"); }));
}

TEST(ValueItems, SayThatAStreamHasFailed) {
  TestDoc doc;
  Lunch lunch;
  ConfigIPAddress address("address", "1.2.3.4");
  const std::pair<Configurable*, const char*> rows[] = {{&doc.flag, ""},
                                                        {&doc.real, ""},
                                                        {&doc.any, "unable to read integer"},
                                                        {&doc.text, "unable to read string\n"},
                                                        {&lunch, "unable to read choice\n"},
                                                        {&address, "unable to read IP address\n"}};
  for (const auto& [item, said] : rows) {
    std::istringstream failed("7");
    failed.setstate(std::ios_base::failbit);
    std::ostringstream errors;
    item->read(failed, errors);
    EXPECT_EQ(said, errors.str());
    EXPECT_EQ(0, item->get_change_count());
  }
}

TEST(ValueItems, TakeTheirDefaultsAsGivenUntilTheyAreSet) {
  TestDoc doc;
  EXPECT_EQ(9, doc.strict.get());
  doc.strict.set_to_default();
  EXPECT_EQ(5.5, doc.strict.get());
  ConfigurableInteger from("i", 50, 0);
  EXPECT_EQ("<i>{integer:50;0...2147483647}</i>", Answer(from, "&query_doctype;"));
  Lunch lunch;
  for (const int index : {-1, 0, 6}) lunch.set(index);
  EXPECT_EQ(0, lunch.get_change_count());
  lunch.set(5);
  EXPECT_EQ("translate<>&'\"", lunch.get_str());
}

}  // namespace
