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
      {"<L><dog pitch=\"&query;3&query_changes;\"/></L>",
       "<L><dog pitch=\"1\">2</dog></L><L><dog pitch=\"3\">2</dog></L>"},
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
  EXPECT_EQ("pitch=\"5\"", Answer(tree, "<L><dog &query_item;/></L>"));
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
