// A whole station on emulated instruments.

#include "station/station.h"

#include <gtest/gtest.h>
#include <jsoncpp/json/json.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "emulators/analyser.h"
#include "emulators/campbelllogger.h"
#include "emulators/gps_receiver.h"
#include "emulators/pulse_source.h"
#include "emulators/push_button.h"
#include "emulators/soilinstrument.h"
#include "emulators/sonic_anemometer.h"
#include "station/verify.h"
#include "tests/support/captured_output.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

namespace {

struct World {
  World() {
    dir.Write("zones/UTC", "");
    dir.Write("disk/leftover.txt", "");
    settings.name = "bog";
    settings.state = dir / "state";
    settings.disk.path = dir / "disk";
    settings.disk.board = true;
    settings.disk.split = 60;
    settings.control.port = 0;
    settings.analyser.port = analyser.Port();
    settings.gps.device = gps.Path();
    settings.gps.pulse = pulse.Path();
    settings.sonic.device = sonic.Path();
    settings.button.device = button.Path();
    settings.campbell.port = campbell.Port();
    settings.clock.mode = "watch";
  }
  Json::Value Status() const {
    Json::Value status;
    std::istringstream(station->Status()) >> status;
    return status;
  }

  const TempDirectory dir;
  VirtualTime time;
  const CapturedOutput output{STDERR_FILENO};
  Analyser analyser;
  GPSReceiver gps{GPSReceiver::Garmin, 38'400};
  PulseSource pulse;
  SonicAnemometer sonic{57'600};
  PushButton button;
  SoilInstrument soil{"127.5.1.7", {}};
  CampbellLogger campbell;
  Settings settings;
  std::optional<Station> station;
};

TEST(Station, RecordsWhatAllItsInstrumentsSend) {
  World world;
  const ZonePlaces zones = {world.dir / "zones", world.dir / "link", world.dir / "zone"};
  world.station.emplace(world.settings, zones);
  EXPECT_EQ(world.station->Answer("<tarno><moorlog><cfg><head>127.0.0.1</head><soil>127.5.1.7</soil><logger>"
                                  "<loggeraddress>127.0.0.1</loggeraddress></logger></cfg></moorlog></tarno>"),
            "<tarno><moorlog><ack>true</ack></moorlog></tarno>");
  for (const char* name : {"analyser", "sonic", "gps", "campbell"}) {
    EXPECT_TRUE(PollUntil(
        [&] {
          const Json::Value line = world.Status()["instruments"][name];
          return line["connected"].asBool() && line["written"].asInt() > 20 && !line["silent"].asBool();
        },
        300'000))
        << name << world.station->Status() << world.output.Text();
  }
  EXPECT_TRUE(PollUntil([&] { return world.Status()["clock"].isMember("offset"); }, 60'000));
  EXPECT_NEAR(world.Status()["clock"]["offset"].asDouble(), 0, 0.1);
  EXPECT_EQ(world.button.LED(), 'Y');

  world.button.Press();
  world.button.Release();
  EXPECT_TRUE(PollUntil([&] { return world.button.LED() == 'N'; }, 60'000));
  EXPECT_FALSE(world.Status()["recording"].asBool());
  world.station->Answer("<tarno><moorlog><cmd><logusbstart>true</logusbstart></cmd></moorlog></tarno>");
  world.button.Hold();
  EXPECT_TRUE(PollUntil([&] { return world.button.LED() == 'E'; }, 60'000));
  EXPECT_FALSE(world.Status()["disk"]["there"].asBool());
  EXPECT_TRUE(PollUntil([&] { return world.Status()["instruments"]["sonic"]["lost"].asInt() > 5; }, 60'000));

  // Started again it is as it was told to be.
  world.station.reset();
  world.station.emplace(world.settings, zones);
  EXPECT_TRUE(PollUntil([&] { return world.Status()["instruments"]["analyser"]["written"].asInt() > 5; }, 60'000));
  world.station.reset();

  std::set<std::string> families;
  std::string found;
  for (const auto& entry : std::filesystem::directory_iterator(world.settings.disk.path)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("bog-") || name.find("-soil-") != std::string::npos || !name.ends_with(".txt")) continue;
    families.insert(name.substr(4, name.find('-', 4) - 4));
    std::ifstream file(entry.path());
    Verifier verifier(0, [&](int64_t line, const std::string& what) {
      found += name + ':' + std::to_string(line) + ": " + what + '\n';
    });
    verifier.Feed(std::string(std::istreambuf_iterator<char>(file), {}));
    verifier.End();
  }
  EXPECT_EQ(found, "");
  EXPECT_EQ(families, (std::set<std::string>{"analyser", "campbell", "gps", "sonic"}));
}

}  // namespace
