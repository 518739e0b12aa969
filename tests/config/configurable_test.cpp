#include "config/configurable.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

constexpr char kWhole[] =
    "<L><a>1234</a><b>0.1234</b><c>43.21</c><d><e><g>0.11</g><g>0.22</g><g>0.33</g></e><f>6.5</f></d>"
    "<lunch>apple</lunch><dyn/></L>";
// What a tree answers to any input is held against a second form in fuzz/configurable_fuzz.cpp.

TEST(Configurable, ADocumentNestedDeeplyIsSkippedLikeAnyUnknownContent) {
  constexpr int kDepth = 100'000;
  SampleTree tree;
  std::string document = "<L>";
  for (int i = 0; i < kDepth; ++i) document += "<L>";
  for (int i = 0; i < kDepth; ++i) document += "</L>";
  EXPECT_EQ("1234", Answer(tree, document + "<a>&query_item;</a></L>"));
}

TEST(ConfigurableComposite, ReachesADisabledChildForItsFlagsOnly) {
  SampleTree tree;
  EXPECT_TRUE(tree.GG.has_changed());
  EXPECT_EQ(kWhole, Answer(tree, "&query_changes_item;"));
  tree.GG.set(5);
  tree.f.set(5);
  tree.set_to_default();
  EXPECT_EQ(5, tree.GG.get());
  EXPECT_EQ(6.5, tree.f.get());
  tree._set_locked(true);
  EXPECT_TRUE(tree.GG.is_locked());
  tree._set_throw_on_error(true);
  tree.GG._set_enabled(true);
  EXPECT_THROW(Answer(tree, "<L><d><GG>1</GG></d></L>"), Configurable::Error);
  tree._set_changed(false);
  EXPECT_FALSE(tree.GG.has_changed());
}

TEST(ConfigurableComposite, FindsTheChildrenOfOneName) {
  SampleTree tree;
  EXPECT_EQ(&tree.g1, tree.e.lookup("g"));
  EXPECT_EQ(nullptr, tree.e.lookup("gg"));
  const auto third = tree.e.lookup_next(tree.e.lookup_next(tree.e.lookup_first("g"), "g"), "g");
  EXPECT_EQ(&tree.g3, *third);
  EXPECT_EQ(tree.e.children().end(), tree.e.lookup_next(third, "g"));
  EXPECT_EQ(tree.e.children().end(), tree.e.lookup_next(tree.e.children().end(), "g"));
}

TEST(Configurable, WritesPrettyUnlessTheStreamIsMarkedCompact) {
  SampleTree tree;
  std::ostringstream compact;
  Configurable::set_compact(compact, true);
  tree.f.configuration_noparent(compact);
  tree.e.build_query(compact);
  tree.f.changed(compact);
  tree.f.doctype(compact);
  tree._set_changed(false);
  tree.f.changed(compact);
  Configurable::set_compact(compact, false);
  tree.f.configuration_noparent(compact);
  EXPECT_EQ(
      "<f>6.5</f><L><d><e>&query;</e></d></L><L><d><f>6.5</f></d></L><L><d><f>{float}</f></d></L>"
      "\n<f>6.5</f>",
      compact.str());
}

TEST(ConfigurableListener, HearsOfEachStepInOrder) {
  struct Recorder : ConfigurableListener {
    void Note(const char* what, const ConfigurableEvent& event) { log += what + event.source->get_name() + " "; }
    void changed(ConfigurableEvent& event) override { Note("changed:", event); }
    void read_start_tag(ConfigurableEvent& event) override { Note("start:", event); }
    void read_end_tag(ConfigurableEvent& event) override { Note("end:", event); }
    using ConfigurableListener::read_string;
    void read_string(ConfigurableEvent& event, const std::string& text) override { Note((text + ":").c_str(), event); }
    void wrote_start_tag(ConfigurableEvent& event) override { Note("wrote:", event); }
    void wrote_end_tag(ConfigurableEvent& event) override { Note("closed:", event); }
    std::string log;
  } recorder;
  SampleTree tree;
  tree.register_configurable_listener(recorder);
  tree.a.register_configurable_listener(recorder);
  Answer(tree, "<L><a>5</a></L>");
  EXPECT_EQ("start:L start:a 5:a changed:a changed:L end:a end:L ", recorder.log);
  recorder.log.clear();
  Answer(tree, "<L><a>&query;&query_doctype_item;</a></L> ");
  EXPECT_EQ("start:L start:a &query;&query_doctype_item;:a wrote:L wrote:a closed:a closed:L end:a end:L ",
            recorder.log);
  recorder.log.clear();
  Answer(tree, "&query_doctype_item;");
  EXPECT_EQ("", recorder.log) << "the one form that fires no events";
}

}  // namespace
