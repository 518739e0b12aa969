#include "config/docmoorlog.h"

#include <gtest/gtest.h>

#include <fstream>
#include <utility>

#include "tests/config/sample_tree.h"

namespace {

std::string InMoorlog(const std::string& body) {
  return "<tarno><moorlog>" + body + "</moorlog></tarno>";
}

// The text is written by hand; the entry tool prints it as well.
TEST(DocMoorlog, IsTheTreeThatTheToolPrints) {
  std::ifstream expected(std::string(MOORLOG_SOURCE_DIR) + "/tests/app/moorlog_output.txt");
  std::ostringstream out;
  DocMoorlog document;
  document.doctype(out);
  document.set_to_default();
  document.configuration(out) << "\n";
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(expected), {}), out.str());
}

TEST(DocMoorlog, AnswersAsItsTreeSays) {
  DocMoorlog document;
  std::ostringstream out;
  Configurable::set_compact(out, true);
  document.Ack(out);
  document._set_changed(false);
  std::as_const(document).Error(out, "a < b");
  EXPECT_EQ(InMoorlog("<ack>true</ack>") + InMoorlog("<error>a &lt; b</error>"), out.str());
  EXPECT_TRUE(document.has_changed() && document.moorlog.has_changed());

  const std::pair<std::string, std::string> exchanges[] = {
      {InMoorlog("<ack>&query_item;</ack><error>&query_item;</error>"), ""},
      {InMoorlog("<cfg><sonicbaud>-1&query_item;230400&query_item;</sonicbaud></cfg>"), "0 115200"},
      {InMoorlog("<serialnumber>X</serialnumber><factory><serialnumber>ML-1</serialnumber></factory>"
                 "<serialnumber>&query;</serialnumber>"),
       InMoorlog("<serialnumber>ML-1</serialnumber>")},
      {InMoorlog("<cfg><daqm><port>3</port>&query_item;</daqm></cfg>"), "<port>3</port>"},
  };
  for (const auto& [sent, answer] : exchanges) EXPECT_EQ(answer, Answer(document, sent)) << sent;
  EXPECT_EQ("ML-1", std::as_const(document).moorlog.serialnumber.get());
}

TEST(DocMoorlog, SomeOfItIsConfiguration) {
  DocMoorlog document;
  std::string counted;
  for (Configurable* item : document.moorlog.children()) {
    document._set_changed(false);
    EXPECT_FALSE(document.moorlog.IsConfigChanged());
    item->_set_changed(true);
    if (document.moorlog.IsConfigChanged()) counted += item->get_name() + " ";
    document.moorlog.Configurable::_set_changed(false);  // its own mark alone
    EXPECT_FALSE(document.moorlog.IsConfigChanged());
  }
  EXPECT_EQ("ver name serialnumber ipaddress output cfg ", counted);
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
  EXPECT_EQ("a b ", send("")) << "the command is set back, and the mark stays";
  document._set_changed(false);
  EXPECT_EQ("", send(""));
  EXPECT_EQ("a b ", send(InMoorlog("<cfg><head>h</head></cfg><cmd>junk</cmd></x>"))) << "also after a failure";
}

}  // namespace
