#include "config/doc5500.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <limits>

#include "fuzz/doc5500_recorder.h"

namespace {

class Doc5500Events : public testing::Test {
 protected:
  Doc5500Events() {
    setenv("TZ", "UTC0", 1);
    document.RegisterListener(&recorder);
  }
  ~Doc5500Events() noexcept override {}
  // What the listener hears of a document; the marks are cleared in front of it.
  std::string Hear(const std::string& text) {
    document._set_changed(false);
    return HearAll(text);
  }
  std::string HearAll(const std::string& text) { return HearDocument("<tarno><tn5500>" + text + "</tn5500></tarno>"); }
  std::string HearDocument(const std::string& text) {
    std::istringstream in(text);
    recorder.log.str("");
    document.configure_and_send_events(in, answers);
    return recorder.log.str();
  }

  Doc5500 document;
  Doc5500Recorder recorder;
  std::ostringstream answers;
};

// A new document is marked all over, and the fuzzer's first seed sets what it can.
TEST_F(Doc5500Events, ADocumentThatChangesEverythingIsToldInOrder) {
  std::ifstream seed(MOORLOG_SOURCE_DIR "/fuzz/corpus/doc5500/everything");
  std::string document_text;
  std::getline(seed, document_text, '\f');
  EXPECT_EQ(
      "GotCalChanged\nGotOutputRate 20\nGotTempRange 0\nGotBottomHeaterConfig 11 2 41 3660 7320\n"
      "GotTopHeaterConfig 10 1 -2.5 60 86340\nGotSpinMotorConfig 1 42 120 180 31 240\n"
      "GotLineLockConfig 1 20.5 65535 2 21.5 7\nGotClockSetting 1719835200\nGotTimezoneSetting UTC\nGotPTPSetting 2\n"
      "GotNetworkSetting head7 0 10.0.0.7 255.0.0.0 10.0.0.1\nGotAuxConfig 1 2 0.5 1.5 2.5 3.5\n"
      "GotAuxConfig 2 0 0 1 0 0\nGotAuxConfig 3 0 0 1 0 0\nGotAuxConfig 4 0 0 1 0 0\nGotAuxConfig 5 0 0 1 0 0\n"
      "GotAuxConfig 6 0 0 1 0 0\nGotAuxConfig 7 0 0 1 0 0\nGotAuxConfig 8 1 0 1 0 0\nGotFactoryCommitCmd\n"
      "GotFactoryRollbackCmd\nGotFactoryChanged\nStaticConfigChanged\nGotLineLockCmd\nGotPollCmd\nGotPollTestCmd\n"
      "GotCalCH4ZeroCmd\nGotCalCH4SpanCmd 2.5\nGotCalCommitCmd\nGotCalRollbackCmd\nGotCalAbortCmd\nGotLogUSBStartCmd\n"
      "GotLogUSBStopCmd\nGotRebootCmd\n",
      HearDocument(document_text.substr(1)));
}

TEST_F(Doc5500Events, ListenersMayBeReplacedAndTimesAreAnything) {
  Doc5500Recorder other;
  recorder.then = [&](const std::string& name) {
    if (name == "GotCalChanged") {
      EXPECT_EQ(&recorder, document.RegisterListener(&other));
    }
  };
  other.then = [&](const std::string& name) {
    if (name == "GotSpinMotorConfig") document.RegisterListener(nullptr);
  };
  document._set_changed(false);
  document.tn5500.cal._set_changed(true);
  auto& mirror = document.tn5500.cfg.spinmirror;
  mirror.ontime.set(1e300), mirror.offtime.set(-1e10),
      mirror.repeatinterval.set(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ("GotCalChanged\n", HearAll("<cmd><poll>true</poll></cmd>"));
  EXPECT_EQ("GotSpinMotorConfig 0 40 2147483647 -2147483648 30 0\n", other.log.str());

  const std::string bad_date = "<cfg><clock><date>x</date></clock></cfg><cmd><poll>true</poll></cmd>";
  EXPECT_EQ("", Hear(bad_date)) << "nobody is there to ask for it";
  document.RegisterListener(&recorder);
  EXPECT_THROW(HearAll(bad_date), std::runtime_error);
  EXPECT_THROW(document.tn5500.cfg.Auxiliary(0), std::runtime_error);
  EXPECT_THROW(document.tn5500.cfg.Auxiliary(9), std::runtime_error);
}

// Marks are what the oracle goes by.
TEST_F(Doc5500Events, RangesAndCommandsMarkAsTheyAreMeantTo) {
  const std::string high = "<cfg><temprange>high</temprange></cfg>";
  for (int i = 0; i < 2; ++i) EXPECT_EQ("GotTempRange 1\nStaticConfigChanged\n", Hear(high)) << i;
  EXPECT_EQ("GotCalCH4SpanCmd 2\n", Hear("<cmd><ch4span>true</ch4span></cmd>"));
  EXPECT_EQ("", Hear(""));
  const std::string commit = "<factory><cmd><commit>true</commit></cmd></factory>";
  EXPECT_EQ("GotFactoryCommitCmd\nGotFactoryChanged\n", Hear(commit));
  EXPECT_EQ("GotFactoryChanged\n", Hear(""));
  EXPECT_EQ("", Hear(""));
}

TEST_F(Doc5500Events, AnswersByItsHiddenItems) {
  Configurable::set_compact(answers, true);
  document.Ack(answers);
  document._set_changed(false);
  static_cast<const Doc5500&>(document).Error(answers, "a < b");
  EXPECT_TRUE(document.has_changed() && document.tn5500.has_changed());
  EXPECT_FALSE(document.tn5500.IsConfigChanged());
  Hear("<ack>&query_item;</ack>");
  EXPECT_EQ("<tarno><tn5500><ack>true</ack></tn5500></tarno><tarno><tn5500><error>a &lt; b</error></tn5500></tarno>",
            answers.str());
}

}  // namespace
