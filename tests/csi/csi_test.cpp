#include "csi/pullcsi.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz/pullbench.h"
#include "json/statefile.h"
#include "tests/support/captured_output.h"

// What days of troubles come to is held against a model in fuzz/csiweek_fuzz.cpp.

// Disks take their time: what is synced is noted, in order, and left to the system.
std::vector<std::string> synced;
extern "C" int __wrap_fsync(int fd) {
  synced.push_back(std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename());
  return 0;
}

namespace {

struct CSITest : testing::Test, PullBench {
  CSITest() { synced.clear(); }
  ~CSITest() noexcept override = default;
};

TEST_F(CSITest, AsksForWhatIsDue) {
  _pull->SetElevation(-12.5);
  _pull->SetLatitude(1e20);
  _pull->SetLongitude(-0.0000004);
  _pull->SetCSITable("Other");
  Start();
  EXPECT_EQ(Asked(), Lines());
  Tick();
  EXPECT_EQ(_logger.Received(), "GET " + kPublic + " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: Heathlink\r\n\r\n");
  EXPECT_EQ(_logger.Connections(), 1);
  Ticks(10);
  EXPECT_EQ(Asked(), Lines(11, kPublic));
  Tick();
  const Lines group = {Set("Elevation", "-12.500000"), Set("Latitude", "100000000000000000000.000000"),
                       Set("Longitude", "-0.000000")};
  EXPECT_EQ(Lines(_logger.Requests().begin(), _logger.Requests().end() - 1), group);
  EXPECT_TRUE(Asked().back().starts_with("/?command=DataQuery&uri=dl:Other&"));
  EXPECT_EQ(_logger.Connections(), 12) << "one connection for all four";

  _pull->SetCSIHostname("");
  EXPECT_FALSE(_pull->IsActive());
  PassTo(_tick + 60'000);
  EXPECT_EQ(Asked(), Lines());
  // Below two ticks each one is for the table.
  for (const int seconds : {9, 4, -5}) {
    Renew(seconds);
    Start();
    Ticks(2);
    EXPECT_EQ(Asked().back(), kTable) << seconds;
  }
}

TEST_F(CSITest, WhatIsQueuedWaits) {
  Renew(5);
  _pull->SetCSITable("Public");
  Start();
  _logger.Misbehave(CampbellLogger::kSilence, 2);
  Ticks(2);
  const Lines group = {Set("Elevation", "0.000000"), Set("Latitude", "0.000000"), Set("Longitude", "0.000000"),
                       kPublic};
  EXPECT_EQ(Asked(), Lines(group.begin(), group.begin() + 2)) << "one on each connection";
  _on_data = [this] { _pull->SetCSIHostname(""); };
  Tick();
  EXPECT_EQ(Asked(), Lines(group.begin() + 2, group.end()));
  _on_data = [] { throw std::runtime_error("not now"); };
  const CapturedOutput output;
  Start();
  _pending = [this] { return _logger.Requests().size() < 12; };
  Ticks(2);
  Lines expected;
  for (int i = 0; i < 4; ++i) expected.insert(expected.end(), group.begin(), group.end());
  EXPECT_EQ(Asked(), expected) << "the link comes back by itself, 2 s after each throw";
  EXPECT_EQ(output.Text().find("Head::Private::HandleRead(): Got exception not now\n"), 0);
}

TEST_F(CSITest, HasRoomForAThousand) {
  Renew(5);
  Start();
  Refuse();
  const CapturedOutput output;  // the link tells of each refusal
  Ticks(240);
  Enter(kZones[1]);  // the clock is due behind 4 * 240: it keeps its place, and gets the time of the last tick
  Ticks(9);
  Enter(kZones[0]);  // due again, for the last two places
  Ticks(1);
  Enter(kZones[1]);  // and without room
  Ticks(20);
  ComeBack();
  Tick();
  const std::string now = SetClock(time(nullptr) - 4);
  Lines asked = Asked();
  ASSERT_EQ(asked.size(), 1'000U);
  EXPECT_EQ(Lines({asked[960], asked[961], asked[998], asked[999]}),
            (Lines{now, Set("UTCOffset", "0"), now, Set("UTCOffset", "60")}));
  Tick();
  EXPECT_EQ(Asked(), (Lines{SetClock(time(nullptr) - 4), Set("UTCOffset", "0"), Set("Elevation", "0.000000"),
                            Set("Latitude", "0.000000"), Set("Longitude", "0.000000"), kTable}));
}

TEST_F(CSITest, TellsWhatItSeesAndWhatItCannotKeep) {
  Renew(5, true);
  std::filesystem::remove(_conf.Path());
  Start();
  _logger.SetFields({{"a", "xsd:string", "\"\\u00e4\""}});
  const CapturedOutput output;
  Tick();
  const std::string time = _logger.Rows().at(0).time;
  const std::string document = _rows.Read("ws-2024-03-01T010000.0.json");
  EXPECT_NE(document.find("\"timezone\":\"Europe/Berlin\""), std::string::npos);
  const std::string text = output.Text();
  const size_t header = text.rfind("Content-Length: ");
  EXPECT_EQ(text.substr(text.find('\n', header)),
            "\nServer: logger\ncontent-type: application/json\n\ntable=MoorcloudData timestamp=" + time +
                " json=" + document + "\n");
  EXPECT_EQ(ReadStateFile(_conf / "PullCSI.conf")["last_timestamp"], time);
  EXPECT_EQ(synced.at(0), "ws-2024-03-01T010000.0.json") << "the row is on the disk first";
  EXPECT_EQ(synced.at(2), "PullCSI.conf.new");

  // Without directories neither is written, and the row doesn't come again when there are some.
  std::filesystem::remove_all(_conf.Path());
  std::ofstream(_conf.Path()) << "a file";
  std::filesystem::remove_all(_rows.Path());
  _logger.SetClockError(3'600);
  Tick();
  EXPECT_TRUE(output.Text().ends_with("}\n\nPullCSI: Unable to write conf file\n"));
  std::filesystem::create_directory(_rows.Path());
  Tick();
  EXPECT_EQ(_rows.Names().size(), 0U);
}

TEST_F(CSITest, LetsNoReplyFillTheMemory) {
  Start();
  _logger.SetFields({{"long", "xsd:string", '"' + std::string(5 << 20, 'x') + '"'}});
  const CapturedOutput output;
  Tick();
  EXPECT_TRUE(output.Text().starts_with("Head::Private::HandleRead(): Got exception PullCSI: reply is too long\n"));
  _logger.SetFields({{"long", "xsd:string", '"' + std::string(4'000'000, 'x') + '"'}});
  Ticks(2);
  EXPECT_EQ(_lines.size(), 3U);
}

}  // namespace
