// A station that knows its analyser by name only, over two hosts with a real Avahi daemon each.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "emulators/avahi_hosts.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "tests/station/site_settings.h"

namespace {

constexpr int kPatience = 290'000;  // ms; after five minutes without a connection the link is built anew
constexpr int kLong = 3'600'000;    // ms, however long the daemons take

// It comes back at another host twice: after a goodbye, and after the daemon has been started anew, of which nothing
// tells the link.
TEST(StationByName, FollowsItsAnalyserFromHostToHost) {
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
  AvahiHosts hosts;
  VirtualTime time;
  time.SetGrace(100);  // for the daemons, whose answers take real time
  const TempDirectory dir;
  for (const char* name : {"zones/UTC", "disk/x"}) dir.Write(name, "");
  Settings settings;
  settings.name = "bog";
  settings.state = dir / "state";
  settings.disk.path = dir / "disk";
  settings.disk.board = true;
  settings.control.port = 0;
  std::optional<Analyser> analyser;
  BonjourResolver known;
  BonjourClient browser(&known);
  browser.Browse(Analyser::kType);
  int earlier = 0;  // lines
  const auto comes = [&](int host) {
    hosts.Use(host);
    hosts.InNetwork(host, [&] { analyser.emplace("::", 5500).Announce("meadow"); });
    analyser->SetRate(1);
    hosts.Use(0);
  };
  const auto goes = [&] {
    earlier += analyser->LinesSent();
    analyser->Vanish();
    EXPECT_TRUE(PollUntil([&] { return known.Hosts().empty() && !analyser->IsConnected(); }, kLong));
  };
  hosts.InNetwork(0, [&] {
    Station station(settings, ZonesIn(dir));
    station.Answer("<tarno><moorlog><cfg><head>meadow</head></cfg></moorlog></tarno>");
    const auto has_all = [&](int within) {
      return PollUntil(
          [&] {
            const std::string all = "\"records\":" + std::to_string(earlier + analyser->LinesSent()) + ',';
            return analyser->LinesSent() >= 3 && station.Status().find(all) != std::string::npos;
          },
          within);
    };
    comes(1);
    EXPECT_TRUE(has_all(kLong)) << station.Status();
    goes();
    comes(0);
    EXPECT_TRUE(has_all(kPatience)) << station.Status();
    goes();
    hosts.StopDaemon(0);
    hosts.StartDaemon(0);
    comes(1);
    time.Advance(kPatience);
    PollFor(5'000);
    EXPECT_FALSE(analyser->IsConnected());
    time.Advance(5'000);
    EXPECT_TRUE(has_all(kLong)) << station.Status();
  });
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir / "disk")) {
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) found += line.starts_with("DATA\t") ? 1 : 0;
  }
  EXPECT_EQ(found, earlier + analyser->LinesSent());
}

}  // namespace
