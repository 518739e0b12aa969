// The dialogues of docs/configuration.md as they stand there, over a real socket, and the logger's copy of the
// analyser's settings behind them.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "analyser/datahandler.h"
#include "analyser/head.h"
#include "emulators/analyser.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "examples/recorder.h"

namespace {

constexpr int kGrace = 100;  // milliseconds of real time, for what is on its way through the system

std::string Configuration(const Doc5500& document) {
  std::ostringstream out;
  document.configuration(out);
  return out.str();
}

struct Station : Head::Listener {
  explicit Station(const Analyser& analyser) : head(this, analyser.Port(), false) { head.Connect(analyser.Host()); }
  ~Station() noexcept override {}

  void HeadGotLine(std::string line) override {
    heard += line;
    handler.DispatchLine(line);
  }

  Head head;
  DataHandler handler;
  std::string heard;
};

TEST(AnalyserLink, TheDialoguesOfTheDocumentationAreTrue) {
  VirtualTime time;
  Analyser analyser;
  Station station(analyser);
  time.SetGrace(kGrace);
  ASSERT_TRUE(PollUntil([&] { return station.heard.find("DATADIAGH") != std::string::npos; }));
  analyser.SetRate(0);
  PollFor(1'000);
  std::ifstream page(MOORLOG_SOURCE_DIR "/docs/configuration.md");
  int dialogues = 0;
  for (std::string line; std::getline(page, line);) {
    if (line != "```to-analyser" && line != "```from-analyser") continue;
    const bool is_answer = line == "```from-analyser";
    std::string block;
    while (std::getline(page, line) && line != "```") block += line + '\n';
    if (is_answer) {
      EXPECT_EQ(block, station.heard);
      ++dialogues;
    } else {
      station.heard.clear();
      station.head.Send(block);
      PollFor(1'000);
    }
  }
  EXPECT_LE(3, dialogues);
  station.head.Send("<tarno><tn5500>&query;</tn5500></tarno>\n");
  PollFor(1'000);
  EXPECT_EQ(Configuration(analyser.Document()), Configuration(station.handler.GetDocument()));
}

TEST(AnalyserLink, ARecorderBuildsItAnewWhenNothingHasComeForFiveMinutes) {
  VirtualTime time;
  const TempDirectory disk;
  Analyser analyser;
  Recorder recorder({.directory = disk.Path()});
  recorder.ConnectToAddress(analyser.Host(), analyser.Port());
  EXPECT_TRUE(PollUntil([&] { return recorder.Lines() > 100; }, 60'000));
  analyser.Stall(true);
  PollFor(298'000);
  EXPECT_EQ(analyser.Connections(), 1);
  EXPECT_TRUE(PollUntil([&] { return analyser.Connections() == 2; }, 4'000));
}

}  // namespace
