// The logger's copy of the analyser's settings, over a real socket: the dialogues of docs/configuration.md as they
// stand there, and an hour of them between data lines.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "analyser/datahandler.h"
#include "analyser/head.h"
#include "emulators/analyser.h"
#include "logging/includecols.h"
#include "runtime/datachecksum.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

constexpr int kGrace = 100;  // milliseconds of real time, for what is on its way through the system

std::string Document(const std::string& settings) {
  return "<tarno><tn5500>" + settings + "</tn5500></tarno>\n";
}

std::string Configuration(const Doc5500& document) {
  std::ostringstream out;
  document.configuration(out);
  return out.str();
}

struct Station : Head::Listener, DataHandler::Listener {
  explicit Station(const Analyser& analyser) : head(this, analyser.Port(), false) {
    handler.RegisterListener(this);
    head.Connect(analyser.Host());
  }
  ~Station() noexcept override {}

  void HeadGotLine(std::string line) override {
    heard += line;
    handler.DispatchLine(line);
  }
  void DataHandler_GotXMLLine(std::string) override { ++documents; }
  // What the analyser is to put on its disk is what is wanted here.
  void DataHandler_GotXMLDoc(const Doc5500& document) override {
    std::set<std::string> names;
    document.tn5500.box.usb.data.GetTrueSet(names);
    header = filter.ColsToInclude(names);
  }
  void DataHandler_GotDATAHColumns(std::vector<std::string> columns) override {
    header = filter.ApplyFilterToDATAH(columns);
  }
  void DataHandler_GotDATAColumns(std::vector<std::string> columns) override {
    const std::string line = filter.ApplyFilterToDATA(columns);
    EXPECT_TRUE(CheckSumAgrees(line)) << line;
    EXPECT_EQ(std::count(header.begin(), header.end(), '\t'), std::count(line.begin(), line.end(), '\t'));
    ++lines;
  }
  void DataHandler_GotUnknownLine(std::string line) override { ADD_FAILURE() << line; }
  void DataHandler_GotBadChecksum(std::string line) override { ADD_FAILURE() << line; }

  Head head;
  DataHandler handler;
  IncludeCols filter;
  std::string header, heard;
  int lines = 0, documents = 0;
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
}

TEST(AnalyserLink, AnHourOfSettingsLosesNoDocument) {
  VirtualTime time;
  Analyser analyser;
  Station station(analyser);
  const auto pass = [&](int duration) {
    const auto adjust = [&] {
      const bool behind = station.lines != analyser.LinesSent() || station.documents != analyser.DocumentsSent();
      time.SetGrace(!station.head.IsConnected() ? 1 : behind ? kGrace : 0);
      return false;
    };
    PollUntil(adjust, duration);
  };
  pass(1'050);
  station.head.Send(Document("&query;<output><rate>2</rate></output>"));
  for (int turn = 0; turn < 719; ++turn) {
    const std::string number = std::to_string(turn), wanted = turn % 8 == 2 ? "false" : "true";
    switch (turn % 4) {
      case 0:
        station.head.Send(Document("<cfg><aux3><a1>" + number + "</a1></aux3></cfg>"));
        break;
      case 1:
        analyser.Turn("<name>turn " + number + "</name><cmd><ch4zero>true</ch4zero></cmd>");
        break;
      case 2:
        station.head.Send(Document("<box><output><data><temp>" + wanted + "</temp><msec>" + wanted +
                                   "</msec></data></output><usb><data><aux7>" + wanted + "</aux7></data></usb></box>"));
        break;
      default:
        analyser.Turn("<cal><ch4span>1." + number + "</ch4span></cal><cmd><ch4span>true</ch4span></cmd>");
        station.head.Send(Document("<output><rate>none</rate></output>&query_junk;"));
    }
    pass(5'000);
    station.heard.clear();
  }
  EXPECT_EQ(analyser.LinesSent(), station.lines);
  EXPECT_LT(7'150, station.lines);
  EXPECT_EQ(analyser.DocumentsSent(), station.documents);
  EXPECT_LT(1'000, station.documents);
  EXPECT_EQ(Configuration(analyser.Document()), Configuration(station.handler.GetDocument()));
  EXPECT_EQ("turn 717", station.handler.GetDocument().tn5500.name.get());
  EXPECT_EQ(2U, station.handler.GetDocument().tn5500.cal.history.children().size());
}

}  // namespace
