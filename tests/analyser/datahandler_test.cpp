#include "analyser/datahandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "net/socketaddress.h"
#include "runtime/datachecksum.h"
#include "tests/support/error_text.h"

namespace {

using testing::ElementsAre;

struct Ear : DataHandler::Listener {
  void DataHandler_GotDATA(std::string) override {
    if (then) then();
  }
  void DataHandler_GotDATAColumns(std::vector<std::string> columns) override { heard.push_back(columns.at(0)); }
  void DataHandler_GotXMLDoc(const Doc5500& document) override {
    const Config5500& tn5500 = document.tn5500;
    heard.push_back(std::string(tn5500.ver.has_changed() ? "ver " : "") + (tn5500.name.has_changed() ? "name " : "") +
                    (tn5500.cmd.poll.get() ? "poll " : "") + (tn5500.factory.cmd.commit.get() ? "commit" : ""));
  }
  std::vector<std::string> heard;
  std::function<void()> then;
};

TEST(DataHandler, KeepsTheDocumentAndClearsBehindEachOne) {
  DataHandler handler;
  Ear ear;
  const auto send = [&handler](const std::string& body) {
    return ErrorText([&] { handler.DispatchLine("<tarno><tn5500>" + body + "</tn5500></tarno>\n"); });
  };
  send("<name>unheard</name>");
  EXPECT_EQ("unheard", handler.GetDocument().tn5500.name.get());
  EXPECT_FALSE(handler.GetDocument().has_changed());
  handler.RegisterListener(&ear);
  send("<cmd><poll>true</poll></cmd><factory><cmd><commit>true</commit></cmd></factory>");
  send("<name>n</name>");
  EXPECT_EQ("SocketAddress: illegal address x",
            send("<ver>2</ver><cmd><poll>true</poll></cmd><cfg><network><gateway>x</gateway></network></cfg>"));
  send("");
  send("");
  EXPECT_THAT(ear.heard, ElementsAre("poll commit", "name commit", "ver poll commit", "commit"));
  EXPECT_EQ("2", handler.GetDocument().tn5500.ver.get());
}

TEST(DataHandler, ListenersMayRegisterOthersMeanwhile) {
  DataHandler handler;
  Ear first, last;
  std::vector<std::unique_ptr<Ear>> others;
  last.then = [&] {
    for (int i = 0; i < 20; ++i) handler.RegisterListener(others.emplace_back(std::make_unique<Ear>()).get());
  };
  for (Ear* ear : {&first, &last, &first}) handler.RegisterListener(ear);
  std::string line = "DATA\ta\t";
  AppendCheckSum(line);
  handler.DispatchLine(line);
  handler.DispatchLine(line);
  EXPECT_THAT(first.heard, ElementsAre("a", "a", "a", "a"));
  EXPECT_THAT(last.heard, ElementsAre("a", "a"));
  EXPECT_THAT(others.front()->heard, ElementsAre("a"));
}

}  // namespace
