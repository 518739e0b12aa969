#include "config/configattributes.h"

#include <gtest/gtest.h>

#include "config/configvisitor.h"
#include "tests/config/sample_tree.h"

namespace {

struct Kennel : ConfigurableComposite {
  Kennel() : ConfigurableComposite("L") {
    add(dog);
    dog.add_attribute(pitch);
    dog.add_attribute(sticky);
    sticky._set_enabled(false);
  }
  Number dog{"dog", 88.11}, pitch{"pitch", 11.22};
  Configurable sticky{"sticky"};
};

TEST(ConfigurableAttributes, ComeAndGoWithTheDocuments) {
  Kennel tree;
  tree._set_changed(false);
  const Exchange exchanges[] = {
      {"&query_item;", "<L><dog pitch=\"11.22\">88.11</dog></L>"},
      {"<L><dog &query_item;></dog></L>", "pitch=\"11.22\""},
      {"<L><dog pitch=\"&query_item;\"/></L>", "11.22"},
      {"<L><dog sticky/></L>", ""},
      {"<L><dog> &query; </dog></L>", "<L><dog sticky>88.11</dog></L>"},
      {"&query_changes_item;", "<L><dog sticky>88.11</dog></L>"},
      {"<L><dog &query; /></L>", "<L><dog sticky>88.11</dog></L>"},
      {"<L><dog pitch=\"&query_item;\"/></L>", "&disabled;"},
      {"<L><dog></dog><dog pitch=\"&query_item;\" sticky=\"&query_item;\" /></L>", "&disabled; &enabled;"},
      {"<L><dog sticky pitch=\"&query_item;21&query_item;\">1234.5</dog><dog &query_item;/></L>",
       "&disabled; 21 pitch=\"21\" sticky"},
      {"<L><dog>&query;</dog></L>", "<L><dog pitch=\"21\" sticky>1234.5</dog></L>"},
      {"<L><dog>2</dog><dog>&query;</dog></L>", "<L><dog>2</dog></L>"},
      {"<L><dog bark=\"&query_item;\"/></L>", ""},
      {"<L><dog bark=\"&query_item;\" pitch=\"&query_item;\"/></L>", "&disabled;"},
      {"<L><dog bark=\"15\" pitch=\"1\"/></L>", ""},
      {"<L><dog bark=\"14\" pitch=\"&query_item;\"/></L>", "1"},
      {"<L><dog pitch=\"&query_doctype_item;\"/></L>", "{float}"},
      {"&query_doctype;", "<L><dog pitch=\"{float}\" sticky>{float}</dog></L>"},
      {"<L><dog pitch=\"x\">7</dog><dog>&query_item;</dog></L>",
       "<Error Param=\"pitch\">unable to read float</Error>2"},
  };
  for (const auto& row : exchanges) EXPECT_EQ(row.answer, Answer(tree, row.document)) << row.document;
}

TEST(ConfigurableAttributes, MarksAndFlagsPassThrough) {
  Kennel tree;
  tree._set_changed(false);
  tree.pitch.set(5);
  EXPECT_TRUE(tree.pitch.has_changed() && tree.dog.has_changed() && tree.has_changed());
  tree.dog._set_changed(false);
  EXPECT_FALSE(tree.pitch.has_changed() || tree.dog.has_changed());
  EXPECT_TRUE(tree.has_changed());
  tree._set_locked(true);
  EXPECT_TRUE(tree.sticky.is_locked());
  tree._set_throw_on_error(true);
  EXPECT_THROW(Answer(tree, "<L><dog pitch=\"1\"/></L>"), Configurable::Error);
}

TEST(ConfigurableCompositeDynamic, IsReplacedByTheFirstChildOfAPass) {
  SampleTree tree;
  const Exchange exchanges[] = {
      {"<L><dyn><val1>1</val1><val2>2</val2><val3>3</val3></dyn></L>", ""},
      {"<L><dyn>&query_item;</dyn></L>", "<val1>1</val1><val2>2</val2><val3>3</val3>"},
      {"<L><dyn><val>1</val><val>2</val><val>error</val><val>4</val><val>another error</val></dyn></L>",
       "<Error Param=\"val\">unable to read float</Error><Error Param=\"val\">unable to read float</Error>"},
      {"<L><dyn>&query_changes_item;</dyn></L>", "<val>1</val><val>2</val><val>4</val>"},
  };
  for (const auto& row : exchanges) EXPECT_EQ(row.answer, Answer(tree, row.document)) << row.document;
  tree._set_throw_on_error(true);
  EXPECT_THROW(Answer(tree, "<L><dyn><v>1</v><v>x</v></dyn></L>"), Configurable::Error);
  EXPECT_EQ(1u, tree.dyn.children().size()) << "the item that failed is left out";
}

TEST(ConfigurableCompositeDynamic, OwnsComparesAndCopiesItsItems) {
  ConfigurableCompositeDynamic<Number> list("list"), copy("copy");
  for (const double value : {1.0, 2.0, 1.0}) list.add(*new Number("v", value));
  copy = list;
  EXPECT_TRUE(copy._is_composite_same(list));
  list._set_changed(false);
  copy = list;
  EXPECT_FALSE(copy.has_changed()) << "the same items: no change";
  list.set_unique(true);
  list.add(*new Number("w", 1.0));
  EXPECT_EQ(2u, list.children().size());
  EXPECT_TRUE(list.has_changed());
  list._set_changed(false);
  list.remove(*list.children().front());
  EXPECT_EQ("w", list.find(Number("", 1.0))->get_name());
  EXPECT_EQ(nullptr, list.find(Number("", 2.0)));
  EXPECT_FALSE(list.has_changed());
  list.set_to_default();
  EXPECT_TRUE(list.has_changed() && list.children().empty());
}

TEST(ConfigurableVisitor, SeesEveryItemInOrderAndAttributesWhenItAsks) {
  struct Walker : ConfigurableVisitor {
    void VisitConfigurable(Configurable& item) override { log += item.get_name() + " "; }
    void VisitConfigurableFloat(ConfigurableFloat& item) override { log += item.get_name() + " "; }
    bool VisitConfigurableAttributesBegin() override { return attributes; }
    void VisitConfigurableAttributesEnd() override { log += "] "; }
    void VisitConfigurableCompositeBegin(ConfigurableComposite& item) override { log += item.get_name() + "{ "; }
    void VisitConfigurableCompositeEnd(ConfigurableComposite&) override { log += "} "; }
    bool attributes = false;
    std::string log;
  } walker;
  Kennel kennel;
  kennel.do_accept(walker);
  walker.attributes = true;
  kennel.do_accept(walker);
  EXPECT_EQ("L{ dog ] } L{ dog pitch sticky ] } ", walker.log);
}

}  // namespace
