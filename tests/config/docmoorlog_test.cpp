#include "config/docmoorlog.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/config/sample_tree.h"

namespace {

std::string InMoorlog(const std::string& body) {
  return "<tarno><moorlog>" + body + "</moorlog></tarno>";
}

TEST(ValueItems, ReadClampRefuseAndReport) {
  const struct {
    const char* name;
    std::function<std::unique_ptr<Configurable>()> make;
    const char* text;
    const char* answer;  // the error reply, whether the document failed with it, and the value afterwards
  } rows[] = {
      {"bool", [] { return std::make_unique<ConfigurableBool>("i", false); }, "true junk", "true"},
      {"bool, unknown word", [] { return std::make_unique<ConfigurableBool>("i", true); }, "yes",
       "<Error Param=\"i\">invalid bool</Error>true"},
      {"integer", [] { return std::make_unique<ConfigurableInteger>("i", 1); }, "-5x", "-5"},
      {"integer below", [] { return std::make_unique<ConfigurableInteger>("i", 5, 2, 9); }, "1", "2"},
      {"integer beyond 32 bits", [] { return std::make_unique<ConfigurableInteger>("i", 5, 2); }, "5000000000",
       "2147483647"},
      {"integer below 32 bits", [] { return std::make_unique<ConfigurableInteger>("i", 5); }, "-5000000000",
       "-2147483648"},
      {"integer, no number", [] { return std::make_unique<ConfigurableInteger>("i", 5); }, "x",
       "<Error Param=\"i\">unable to read integer</Error>(failed)5"},
      {"integer, beyond 64 bits", [] { return std::make_unique<ConfigurableInteger>("i", 5); }, "99999999999999999999",
       "<Error Param=\"i\">unable to read integer</Error>(failed)5"},
      {"string", [] { return std::make_unique<ConfigurableString>("i", "x"); }, "a  b &lt;", "a  b &lt;"},
      {"string with a NUL", [] { return std::make_unique<ConfigurableString>("i", "x"); }, "a\1b", "a"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto item = row.make();
    std::string text = row.text;
    for (char& c : text)
      if (c == '\1') c = '\0';
    std::string answer = Answer(*item, "<i>" + text + "</i>");
    answer += Answer(*item, "<i>&query_item;</i>");
    EXPECT_EQ(row.answer, answer);
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

TEST(DocMoorlog, AnswersAsItsTreeSays) {
  DocMoorlog document;
  const std::pair<std::string, std::string> exchanges[] = {
      {InMoorlog("<ack>&query_item;</ack><error>&query_item;</error>"), ""},
      {InMoorlog("<cfg><sonicbaud>230400&query_item;</sonicbaud></cfg>"), "115200"},
      {InMoorlog("<cfg><sonicbaud>-1&query_item;</sonicbaud></cfg>"), "0"},
      {InMoorlog("<cfg><gpstype>Other</gpstype><gpstype>&query_item;</gpstype></cfg>"),
       "<Error Param=\"gpstype\">invalid option: Other\n</Error>Garmin"},
      {InMoorlog("<serialnumber>X</serialnumber><factory><serialnumber>ML-1</serialnumber></factory>"
                 "<serialnumber>&query;</serialnumber>"),
       InMoorlog("<serialnumber>ML-1</serialnumber>")},
      {InMoorlog("<cfg><daqm><port>3</port>&query_item;</daqm></cfg>"), "<port>3</port>"},
  };
  for (const auto& [sent, answer] : exchanges) EXPECT_EQ(answer, Answer(document, sent)) << sent;
  EXPECT_EQ("ML-1", static_cast<const DocMoorlog&>(document).moorlog.serialnumber.get());

  std::ostringstream out;
  Configurable::set_compact(out, true);
  document.Ack(out);
  document._set_changed(false);
  document.Error(out, "a < b");
  EXPECT_EQ(InMoorlog("<ack>true</ack>") + InMoorlog("<error>a &lt; b</error>"), out.str());
  EXPECT_TRUE(document.has_changed() && document.moorlog.has_changed());
  EXPECT_FALSE(document.moorlog.IsConfigChanged());
}

TEST(DocMoorlog, NotifiesInKeyOrderAndShowsACommandOnce) {
  struct Recorder : ConfigurableListener {
    Recorder(DocMoorlog& watched, const char* key, std::string& heard) : document(watched), name(key), log(heard) {
      watched.insert(key, *this);
    }
    void changed(ConfigurableEvent& event) override {
      EXPECT_EQ(&document, event.source);
      log += name + (document.moorlog.cmd.reboot.get() ? "! " : " ");
    }
    DocMoorlog& document;
    std::string name;
    std::string& log;
  };
  DocMoorlog document;
  std::string log;
  Recorder replaced(document, "a", log), last(document, "b", log), first(document, "a", log);
  const auto send = [&](const std::string& text) {
    std::istringstream in(text);
    std::ostringstream out;
    log.clear();
    document.configure_and_send_events(in, out);
    return log;
  };
  document._set_changed(false);
  EXPECT_EQ("", send("<tarno/>"));
  EXPECT_EQ("a! b! ", send(InMoorlog("<cmd><reboot>true</reboot></cmd>")));
  EXPECT_FALSE(document.moorlog.IsConfigChanged());
  EXPECT_EQ("a b ", send("")) << "the command is set back, and the mark stays";
  document._set_changed(false);
  EXPECT_EQ("", send(""));
  EXPECT_EQ("a b ", send(InMoorlog("<cfg><head>h</head></cfg><cmd>junk</cmd></x>"))) << "also after a failure";
  EXPECT_TRUE(document.moorlog.IsConfigChanged());
}

}  // namespace
