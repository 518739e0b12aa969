#include "config/configattributes.h"

#include <gtest/gtest.h>

#include "config/configtimestamp.h"
#include "config/configvisitor.h"
#include "tests/config/sample_tree.h"

namespace {

struct Kennel : ConfigurableComposite {
  Kennel() : ConfigurableComposite("L") {
    add(dog);
    dog.add_attribute(pitch);
    dog.add_attribute(sticky);
    dog.add_attribute(broken);
    sticky._set_enabled(false);
    _set_changed(false);
  }
  Number dog{"dog", 88.11}, pitch{"pitch", 11.22};
  Configurable sticky{"sticky"};
  struct Broken : Configurable {
    Broken() : Configurable("broken") {}
    std::ostream& write(std::ostream& out) const override { return write_doctype(out); }
    std::ostream& write_doctype(std::ostream& out) const override { return out.setstate(std::ios::failbit), out; }
  } broken;
};

TEST(ConfigurableAttributes, OneThatFailsToBeWrittenIsLeftOut) {
  Kennel tree;
  EXPECT_EQ("<L><dog pitch=\"11.22\">88.11</dog></L><L><dog pitch=\"{float}\" sticky>{float}</dog></L>",
            Answer(tree, "&query_item;&query_doctype;"));
}

TEST(ConfigurableAttributes, AreReachedByTheFlagsOfTheirOwner) {
  Kennel tree;
  tree._set_locked(true);
  EXPECT_TRUE(tree.sticky.is_locked() && tree.dog.get_attributes()->is_locked());
  tree._set_throw_on_error(true);
  EXPECT_THROW(Answer(tree, "<L><dog pitch=\"1\"/></L>"), Configurable::Error);
  EXPECT_EQ("pitch=\"11.22\"", Answer(tree, "<L><dog &query_item;/></L>")) << "the pair is over";
}

// A listener that sends a document of its own while an attribute's value is being read.
TEST(ConfigurableAttributes, APairIsTakenUpAgainBehindAnother) {
  struct Sender : ConfigurableListener {
    void changed(ConfigurableEvent&) override {
      if (!sent) sent = true, Answer(tree, "<L><dog sticky=\"&query;\"/></L>");
    }
    bool sent = false;
    Kennel tree;
  } sender;
  sender.tree.pitch.register_configurable_listener(sender);
  EXPECT_EQ("7", Answer(sender.tree, "<L><dog pitch=\"7&query_item;\"/></L>"));
}

TEST(ConfigurableVisitor, SeesEachKindOfItemInOrderAndAttributesWhenItAsks) {
  struct Walker : ConfigurableVisitor {
    void Note(const char* kind, const Configurable& item) { log += kind + (":" + item.get_name()) + " "; }
    void VisitConfigurable(Configurable& item) override { Note("any", item); }
    bool VisitConfigurableAttributesBegin() override { return attributes; }
    void VisitConfigurableAttributesEnd() override { log += "] "; }
    void VisitConfigurableCompositeBegin(ConfigurableComposite& item) override { Note("begin", item); }
    void VisitConfigurableCompositeEnd(ConfigurableComposite& item) override { Note("end", item); }
    void VisitConfigurableMultipleChoice(ConfigurableMultipleChoice& item) override { Note("choice", item); }
    void VisitConfigurableFloat(ConfigurableFloat& item) override { Note("float", item); }
    void VisitConfigurableDouble(ConfigurableDouble& item) override { Note("double", item); }
    void VisitConfigurableInteger(ConfigurableInteger& item) override { Note("integer", item); }
    void VisitConfigurableBool(ConfigurableBool& item) override { Note("bool", item); }
    void VisitConfigurableString(ConfigurableString& item) override { Note("string", item); }
    void VisitConfigurableTimestamp(ConfigurableTimestamp& item) override { Note("timestamp", item); }
    void VisitConfigurableTime(ConfigurableTime& item) override { Note("time", item); }
    void VisitConfigurableTime_HourMinutes(ConfigurableTime_HourMinutes& item) override { Note("minutes", item); }
    void VisitConfigurableDate(ConfigurableDate& item) override { Note("date", item); }
    void VisitConfigurableDate_YearMonth(ConfigurableDate_YearMonth& item) override { Note("month", item); }
    bool attributes = false;
    std::string log;
  } walker;
  Kennel root;
  Lunch lunch;
  ConfigurableDouble real("1", 0);
  ConfigurableInteger integer("2", 0);
  ConfigurableBool flag("3", false);
  ConfigurableString text("4", "");
  ConfigurableStringProxyReadOnly proxy("5", text);
  ConfigurableTimestamp stamp("6", 0.0);
  ConfigurableTime time("7", 0.0);
  ConfigurableTime_HourMinutes minutes("8", 0.0);
  ConfigurableDate date("9", 0.0);
  ConfigurableDate_YearMonth month("10", 0.0);
  root.add(lunch), root.add(real), root.add(integer), root.add(flag), root.add(text), root.add(proxy);
  root.add(stamp), root.add(time), root.add(minutes), root.add(date), root.add(month);
  flag._set_enabled(false);
  root.do_accept(walker);
  EXPECT_EQ(
      "begin:L float:dog ] choice:lunch double:1 integer:2 bool:3 string:4 any:5 timestamp:6 time:7 minutes:8 date:9 "
      "month:10 end:L ",
      walker.log);
  walker.log.clear();
  walker.attributes = true;
  root.dog.do_accept_attributes(walker);
  EXPECT_EQ("float:pitch any:sticky any:broken ] ", walker.log);
}

}  // namespace
