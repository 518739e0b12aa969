#include "config/configbuiltin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "tests/config/sample_tree.h"

namespace {

struct TestDoc : ConfigurableComposite {
  TestDoc() : ConfigurableComposite("TestDoc") {
    add(plain), add(real), add(clamped), add(clamped_real), add(strict), add(strict_real);
    _set_changed(false);
  }
  ConfigurableFloat plain{"Float", 0};
  ConfigurableDouble real{"Double", 0};
  ConfigurableFloat clamped{"CF", 1, -5.5, 5.5, false};
  ConfigurableDouble clamped_real{"CD", 1, -5.5, 5.5, false};
  ConfigurableFloat strict{"SF", 9, -5.5, 5.5, true};
  ConfigurableDouble strict_real{"SD", 9, -5.5, 5.5, true};
};

TEST(ConfigurableReal, ReadsNumbersAndTheirThreeWords) {
  const Exchange rows[] = {
      {"<Float>1.2</Float><Double>3.4</Double>", "<Float>1.2</Float><Double>3.4</Double>"},
      {"<Float>-inf</Float><Double> nan </Double>", "<Float>-inf</Float><Double>nan</Double>"},
      {"<Float>7 apples</Float><Double>7e2x</Double>", "<Float>7</Float><Double>700</Double>"},
      {"<Double>1234567.8</Double><Float>1e-7</Float>", "<Float>1e-07</Float><Double>1.23457e+06</Double>"},
      {"<Float>junk</Float><Double>4.5</Double>",
       "<Error Param=\"Float\">unable to read float</Error><Double>4.5</Double>"},
      {"<Double>1e999</Double><Float>1e39</Float>",
       "<Error Param=\"Double\">unable to read double</Error><Error Param=\"Float\">unable to read float</Error>"},
      {"<Float>infinity</Float><Double>+inf</Double>",
       "<Error Param=\"Float\">unable to read float</Error><Error Param=\"Double\">unable to read double</Error>"},
      // What fails ends its element: the 8 behind it isn't read.
      {"<Float>junk&query_item;8</Float>", "<Error Param=\"Float\">unable to read float</Error>"},
      {"<Float>0</Float>", ""},
      {"<CF>inf</CF><CD>-inf</CD>", "<CF>5.5</CF><CD>-5.5</CD>"},
      {"<CF>nan</CF><CD>nan</CD>", "<CF>nan</CF><CD>nan</CD>"},
      {"<SF>-inf</SF><SD>inf</SD>", "<SF>-5.5</SF><SD>5.5</SD>"},
      {"&query_doctype_item;",
       "<Float>{float:0}</Float><Double>{double:0}</Double><CF>{float:1;-5.5...5.5}</CF>"
       "<CD>{double:1;-5.5...5.5}</CD><SF>{float:9;-5.5...5.5}</SF><SD>{double:9;-5.5...5.5}</SD>"}};
  for (const auto& row : rows) {
    TestDoc doc;
    EXPECT_EQ(row.answer, Answer(doc, std::string("<TestDoc>") + row.document + "&query_changes_item;</TestDoc>"));
  }
}

TEST(ConfigurableReal, NaNMarksAChangeOrIsRefused) {
  TestDoc doc;
  const float nan = std::nanf("");
  for (int changes = 1; changes < 3; ++changes) {
    doc.clamped.set(-nan);
    EXPECT_EQ(changes, doc.clamped.get_change_count());
  }
  EXPECT_EQ("nan", Answer(doc, "<TestDoc><CF>&query_item;</CF></TestDoc>"));
  for (const char* item : {"F", "D"}) try {
      Answer(doc, std::string("<TestDoc><S") + item + ">nan</S" + item + "></TestDoc>");
      ADD_FAILURE() << item;
    } catch (const std::range_error& error) {
      EXPECT_EQ(*item == 'F' ? "ConfigurableFloat: range error" : std::string("ConfigurableDouble: range error"),
                error.what());
    }
  EXPECT_EQ(9, doc.strict.get());  // the default as it was given
  doc.strict.set_to_default();
  EXPECT_EQ(5.5, doc.strict.get());

  std::istringstream failed("5");
  failed.setstate(std::ios_base::failbit);
  std::ostringstream errors;
  doc.real.read(failed, errors);
  EXPECT_EQ("", errors.str());
  EXPECT_EQ(0, doc.real.get());
}

TEST(ValueItems, ReadClampRefuseAndReport) {
  struct Items : ConfigurableComposite {
    Items() : ConfigurableComposite("T") { add(flag), add(range), add(any), add(text); }
    ConfigurableBool flag{"flag", true};
    ConfigurableInteger range{"range", 5, 2, 9}, any{"any", 5};
    ConfigurableString text{"text", "x"};
  };
  const struct {
    const char* item;
    std::string text;
    const char* answer;  // the error reply and the value afterwards
  } rows[] = {
      {"flag", "false junk", "false"},
      {"flag", "yes", "<Error Param=\"flag\">invalid bool</Error>true"},
      {"range", "1", "2"},
      {"range", "5000000000", "9"},
      {"any", "-5x", "-5"},
      {"any", "-5000000000", "-2147483648"},
      {"any", "x", "<Error Param=\"any\">unable to read integer</Error>5"},
      {"any", "99999999999999999999", "<Error Param=\"any\">unable to read integer</Error>5"},
      {"text", "a  b &lt;", "a  b &lt;"},
      {"text", std::string("a\0b", 3), "a"},
  };
  for (const auto& row : rows) {
    Items items;
    const std::string tag = row.item;
    EXPECT_EQ(row.answer, Answer(items, "<T><" + tag + ">" + row.text + "</" + tag + "><" + tag + ">&query_item;</" +
                                            tag + "></T>"));
  }
}

TEST(ValueItems, DescribeThemselvesAndReturnToTheirDefaults) {
  ConfigurableInteger plain("i", 7), from("i", 7, 0), clamped("i", 50, 0, 9);
  const std::pair<Configurable*, const char*> rows[] = {
      {&plain, "<i>{integer:7}</i>"},
      {&from, "<i>{integer:7;0...2147483647}</i>"},
      {&clamped, "<i>{integer:50;0...9}</i>"},
  };
  for (const auto& [item, description] : rows) EXPECT_EQ(description, Answer(*item, "&query_doctype;"));
  EXPECT_EQ(50, clamped.get()) << "the default is taken as it stands until it is set";
  clamped.set_to_default();
  EXPECT_EQ(9, clamped.get());
  Lunch lunch;
  lunch._set_changed(false);
  for (const int index : {-1, 0, 6}) lunch.set(index);
  EXPECT_FALSE(lunch.has_changed());
  lunch.set(5);
  EXPECT_EQ(5, lunch.get());
  EXPECT_EQ("translate<>&'\"", lunch.get_str());
}

}  // namespace
