#include "config/configurable.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

constexpr char kWhole[] =
    "<L><a>1234</a><b>0.1234</b><c>43.21</c><d><e><g>0.11</g><g>0.22</g><g>0.33</g></e><f>6.5</f></d>"
    "<lunch>apple</lunch><dyn/></L>";
constexpr char kDoctype[] =
    "<L><a>{float}</a><b>{float}</b><c>{float}</c><d><e><g>{float}</g><g>{float}</g><g>{float}</g></e><f>{float}</f>"
    "</d><lunch>{apple|banana|orange|grapes|tire|translate&lt;&gt;&amp;&apos;&quot;}</lunch><dyn/></L>";

TEST(Configurable, AnswersInPlaceAndAppliesWhatItCan) {
  SampleTree tree;
  tree._set_changed(false);
  const Exchange exchanges[] = {
      {"  \n", ""},
      {"&query_item;", kWhole},
      {"&query_changes_item;", ""},
      {"&query_doctype_item; <L/>", kDoctype},
      {"<L><a>&query_item;</a><b>&query_item;</b></L>", "1234 0.1234"},
      {"<L><b>1.0</b></L>", ""},
      {"&query_changes_item;", "<L><b>1</b></L>"},
      {"<L><c> &query_item; 9 &query_item; </c></L>", "43.21 9"},
      {"&query_changes_item;", "<L><b>1</b><c>9</c></L>"},
      {"<L><c>&query_changes_context;</c><a>&query_changes;&query_changes_item;</a></L>", "<L><c>9</c></L>"},
      {"<L><a> &query_item; </a></L> this is some junk the configurable should throw away", "1234"},
      {"<L><a>qwerty</a><b>2.1</b><a> &query_item; </a><b> &query_item; </b></L>",
       "<Error Param=\"a\">unable to read float</Error>1234 2.1"},
      {"<L><b>&query_illegal;</b></L>", "<Error Param=\"b\">Invalid query: &query_illegal;</Error>"},
      {"<L><attic>&query_item;</attic></L>", ""},
      {"<L><attic>&query_item;<a>5</a></attic><a>&query_item;</a></L>", "1234"},
      {"<attic>&query_item;</attic>", "<Error Param=\"L\">Invalid start element: attic</Error>(failed)"},
      {"<L><lunch>abc tire</lunch><lunch>&query_item;</lunch></L>",
       "<Error Param=\"lunch\">invalid option: abc tire\n</Error>apple"},
      {"<L><d><GG>&query_item;</GG></d></L>", ""},
      {"<L>&query_doctype_context;</L>", kDoctype},
      {"<L><lunch>translate&lt;&gt;&amp;&apos;&quot;</lunch><lunch>&query;</lunch></L>",
       "<L><lunch>translate&lt;&gt;&amp;&apos;&quot;</lunch></L>"},
      {"<L>text for a composite<lunch>{words}</lunch>&query_changes_item;</L>",
       "<b>2.1</b><c>9</c><lunch>translate&lt;&gt;&amp;&apos;&quot;</lunch>"},
  };
  for (const auto& row : exchanges) EXPECT_EQ(row.answer, Answer(tree, row.document)) << row.document;
  tree.lunch._set_raw(true);
  EXPECT_EQ("<L><lunch>translate<>&'\"</lunch></L>", Answer(tree, "<L><lunch>&query;</lunch></L>"));
}

TEST(Configurable, AFailedChildLosesTheRestOfItsOwnElementOnly) {
  const Exchange rows[] = {
      {"<L><a><x><y/></x>7</a><b>5</b><a>&query_item;</a><b>&query_item;</b></L>",
       "<Error Param=\"a\">Invalid configuration tag: x</Error>1234 5"},
      {"<L><a x>7</a><b>5</b><a>&query_item;</a></L>", "<Error Param=\"a\">This item has no attributes</Error>1234"},
      {"<L><a x=\"1\">7</a><b>&query_item;</b></L>", "<Error Param=\"a\">This item has no attributes</Error>0.1234"},
      {"<L><a>7< x</a><b>5</b><a>&query_item;</a><b>&query_item;</b></L>", "7 5"},
      {"<L><a>5</x>7</a><a>&query_item;</a></L>", "<Error Param=\"a\">Invalid End Element: x</Error>5"},
      {"<L><d><e><g>1</g></e>&query_item;</d></L>", "<e><g>1</g><g>1</g><g>1</g></e><f>6.5</f>"},
      {"<L><d><f><x/></f><f>3</f>&query_item;</d></L>",
       "<Error Param=\"f\">Invalid configuration tag: x</Error>"
       "<e><g>0.11</g><g>0.22</g><g>0.33</g></e><f>3</f>"},
      {"<L><a>5</L>", "<Error Param=\"a\">Invalid End Element: L</Error>"},
      {"<L>< a>5</a></L>", "(failed)"},
      {"<L></X>", "<Error Param=\"L\">Invalid End Element: X</Error>(failed)"},
  };
  for (const auto& row : rows) {
    SampleTree tree;
    EXPECT_EQ(row.answer, Answer(tree, row.document)) << row.document;
  }
}

// Composites of one name, the middle one disabled, each marking positions of its own; and an error that all replay.
TEST(ConfigurableComposite, AllChildrenOfOneNameReceiveTheSameTokens) {
  struct Group : ConfigurableComposite {
    Group() : ConfigurableComposite("m") { add(x), add(y); }
    ConfigurableComposite x{"x"};
    Number y{"y", 0};
  };
  ConfigurableComposite root("R");
  Group groups[3];
  Number after("z", 0);
  for (Group& group : groups) root.add(group);
  root.add(after);
  groups[1]._set_enabled(false);
  root._set_changed(false);
  EXPECT_EQ("", Answer(root, "<R><m><x><w/></x><y>4</y></m><z>5</z></R>"));
  EXPECT_EQ("<R><m><y>4</y></m><m><y>4</y></m><z>5</z></R>", Answer(root, "&query_changes;"));
  EXPECT_EQ(0, groups[1].y.get());
  EXPECT_EQ("", Answer(root, "<R><m><x>< w/></x><y>6</y></m><z>7</z></R>"));
  EXPECT_EQ(6, groups[0].y.get());
  EXPECT_EQ(6, groups[2].y.get());
  EXPECT_EQ(7, after.get());
  EXPECT_EQ(&groups[2], *root.lookup_next(root.lookup_next(root.lookup_first("m"), "m"), "m"));
  EXPECT_EQ(root.children().end(), root.lookup_next(root.lookup_first("z"), "z"));
  EXPECT_EQ(nullptr, root.lookup("w"));
}

TEST(Configurable, ADocumentNestedDeeplyIsSkippedLikeAnyUnknownContent) {
  constexpr int kDepth = 100'000;
  SampleTree tree;
  std::string document = "<L>";
  for (int i = 0; i < kDepth; ++i) document += "<L>";
  for (int i = 0; i < kDepth; ++i) document += "</L>";
  EXPECT_EQ("1234", Answer(tree, document + "<a>&query_item;</a></L>"));
}

TEST(Configurable, LockedReportsAndReadOnlyDropsInSilence) {
  SampleTree tree;
  tree._set_locked(true);
  tree.b._set_read_only(true);
  EXPECT_TRUE(tree.g2.is_locked());
  EXPECT_EQ("<Error Param=\"a\">Configuration is locked</Error>5", Answer(tree, "<L><a>5</a><a>&query_item;</a></L>"));
  tree._set_locked(false);
  EXPECT_EQ("0.1234", Answer(tree, "<L><b>5</b><b>&query_item;</b></L>"));
}

TEST(Configurable, ThrowsInsteadOfAnsweringWhenAskedTo) {
  SampleTree tree;
  tree._set_throw_on_error(true);
  tree._set_locked(true);
  const struct {
    const char* document;
    const char* text;
  } rows[] = {
      {"<X/>", "XML error in item \"L\": Invalid start element: X"},
      {"<L><a><b/></a></L>", "XML error in item \"a\": Invalid configuration tag: b"},
      {"<L><a>&query_x;</a></L>", "XML error in item \"a\": Invalid query: &query_x;"},
      {"<L><d><e><g>1</g></e></d></L>", "XML error in item \"g\": Configuration is locked"},
  };
  for (const auto& row : rows) {
    std::istringstream in(row.document);
    std::ostringstream out;
    try {
      tree.configure(in, out);
      ADD_FAILURE() << row.document;
    } catch (const Configurable::Error& error) {
      EXPECT_STREQ(row.text, error.what());
    }
    EXPECT_TRUE(in.fail());
    EXPECT_EQ("", out.str());
  }
  EXPECT_EQ(0.11F, tree.g1.get());
}

TEST(Configurable, ChangeMarksGoUpWhenSetAndDownWhenCleared) {
  SampleTree tree;
  tree._set_changed(false);
  tree.g1._set_changed(true);
  EXPECT_TRUE(tree.has_changed() && tree.d.has_changed() && tree.e.has_changed());
  EXPECT_FALSE(tree.g2.has_changed() || tree.f.has_changed() || tree.a.has_changed());
  EXPECT_EQ(1, tree.get_change_count());
  tree.g1._set_changed(true);
  EXPECT_EQ(2, tree.get_change_count());
  tree.g1._set_changed(false);
  EXPECT_TRUE(tree.has_changed() && tree.e.has_changed());
  tree._set_changed(false);
  EXPECT_FALSE(tree.e.has_changed());
  tree.a.set(1234);
  EXPECT_FALSE(tree.has_changed()) << "the value it had";
  tree.GG.set(5);
  tree.f.set(5);
  tree.set_to_default();
  EXPECT_EQ(5, tree.GG.get()) << "a disabled child keeps its value";
}

TEST(Configurable, WritesPrettyUnlessTheStreamIsMarkedCompact) {
  const SampleTree tree;
  std::ostringstream compact;
  Configurable::set_compact(compact, true);
  tree.f.configuration_noparent(compact);
  tree.e.build_query(compact);
  tree.f.changed(compact);
  tree.f.doctype(compact);
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
  std::ostringstream out;
  XMLWriter writer(out, false);
  tree.a._write_doctype_noparent(writer);
  EXPECT_EQ("", recorder.log);
}

}  // namespace
