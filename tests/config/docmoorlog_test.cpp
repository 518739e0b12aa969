#include "config/docmoorlog.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

std::string InMoorlog(const std::string& body) {
  return "<tarno><moorlog>" + body + "</moorlog></tarno>";
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

TEST(DocMoorlog, AnswersAsItsTreeSays) {
  DocMoorlog document;
  const std::pair<std::string, std::string> exchanges[] = {
      {InMoorlog("<ack>&query_item;</ack><error>&query_item;</error>"), ""},
      {InMoorlog("<cfg><sonicbaud>-1&query_item;</sonicbaud></cfg>"), "0"},
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
