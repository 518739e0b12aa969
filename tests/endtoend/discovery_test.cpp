// An analyser is followed by its name, over two hosts with an Avahi daemon each.

#include <gtest/gtest.h>

#include "emulators/analyser.h"
#include "emulators/avahi_hosts.h"
#include "emulators/poll_runner.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "examples/recorder.h"

namespace {

constexpr int kGrace = 30;  // ms of real time for each wait, of which there are ten a second: for the daemons
constexpr int kAlmost = 298'500, kPatience = 300'000, kSoon = 60'000;  // ms

// The analyser gets another address without a word from its service: once it has ended the connection first, and once
// it hasn't and the daemon of the recorder's host has been started anew in the meantime.
TEST(Discovery, ARecorderFindsItsAnalyserAgainAfterFiveMinutes) {
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
  AvahiHosts hosts;
  VirtualTime time(::time(nullptr));
  time.SetGrace(kGrace);
  const TempDirectory disk;
  std::optional<Analyser> analyser;
  hosts.Use(1);
  hosts.InNetwork(1, [&] { analyser.emplace("::", 5500).Announce("TN-5500"); });
  hosts.Use(0);
  hosts.InNetwork(0, [&] {
    Recorder recorder({.directory = disk.Path()});
    recorder.ConnectToName("tn-5500");
    ASSERT_TRUE(PollUntil([&] { return recorder.Lines() > 0; }, kSoon));
    for (const bool ended : {true, false}) {
      if (ended) analyser->HangUp();
      hosts.Readdress(1, ended ? 8 : 9);
      if (!ended) hosts.StopDaemon(0), hosts.StartDaemon(0);
      PollFor(6'000);  // for what is under way, and the other host's cache
      const int lines = recorder.Lines();
      const int64_t since = time.Elapsed();
      // A cache that is slow costs five minutes more.
      for (int attempt = 0; attempt < 3 && recorder.Lines() == lines; ++attempt) {
        time.SetGrace(0);
        PollFor(kAlmost - 6'000);
        EXPECT_EQ(lines, recorder.Lines());
        time.SetGrace(kGrace);
        PollUntil([&] { return recorder.Lines() > lines; }, kSoon);
      }
      EXPECT_LT(lines, recorder.Lines());
      EXPECT_LE(kPatience - 8'000, time.Elapsed() - since);
    }
  });
}

// It says goodbye at one host, and is there at the other.
TEST(Discovery, ARecorderFollowsItsAnalyserToAnotherHost) {
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
  const AvahiHosts hosts;
  const TempDirectory disk;
  std::optional<Analyser> analyser;
  Recorder recorder({.directory = disk.Path()});
  recorder.ConnectToName("meadow");
  BonjourResolver known;
  BonjourClient browser(&known);
  browser.Browse(Analyser::kType);
  for (const int host : {1, 0}) {
    hosts.Use(host);
    hosts.InNetwork(host, [&] { analyser.emplace("::", 5500).Announce("meadow"); });
    const int lines = recorder.Lines();
    hosts.InNetwork(0, [&] { EXPECT_TRUE(PollUntil([&] { return recorder.Lines() >= lines + 3; }, kSoon)) << host; });
    analyser->Vanish();
    EXPECT_TRUE(PollUntil([&] { return known.Hosts().empty() && !recorder.GetHead().IsConnected(); }));
  }
}

}  // namespace
