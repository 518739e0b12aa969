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

// It comes back at another address when the daemon has been started anew: nothing tells the link of it.
TEST(StationByName, FindsItsAnalyserBehindANewStartOfTheDaemon) {
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
  int sent = 0;
  const auto comes = [&](int host) {
    hosts.Use(host);
    hosts.InNetwork(host, [&] { analyser.emplace("::", 5500).Announce("meadow"); });
    analyser->SetRate(1);
    hosts.Use(0);
  };
  hosts.InNetwork(0, [&] {
    Station station(settings, ZonesIn(dir));
    station.Answer("<tarno><moorlog><cfg><head>meadow</head></cfg></moorlog></tarno>");
    // However long the daemons take.
    const auto has_all = [&](int earlier) {
      return PollUntil(
          [&] {
            const std::string all = "\"records\":" + std::to_string(earlier + analyser->LinesSent()) + ',';
            return analyser->LinesSent() >= 3 && station.Status().find(all) != std::string::npos;
          },
          3'600'000);
    };
    comes(1);
    EXPECT_TRUE(has_all(0)) << station.Status();
    sent = analyser->LinesSent();
    analyser->Vanish();
    hosts.StopDaemon(0);
    hosts.StartDaemon(0);
    comes(0);
    time.Advance(290'000);
    PollFor(5'000);
    EXPECT_FALSE(analyser->IsConnected());
    time.Advance(5'000);  // five minutes without a connection
    EXPECT_TRUE(has_all(sent)) << station.Status();
  });
  int found = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir / "disk")) {
    std::ifstream file(entry.path());
    for (std::string line; std::getline(file, line);) found += line.starts_with("DATA\t") ? 1 : 0;
  }
  EXPECT_EQ(found, sent + analyser->LinesSent());
}

}  // namespace
