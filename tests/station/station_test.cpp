// A whole station on emulated instruments.

#include "station/station.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <jsoncpp/json/json.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>

#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "runtime/streamfile.h"
#include "tests/station/site_settings.h"
#include "tests/support/captured_output.h"
#include "tests/support/mount_namespace.h"

namespace {

// Of this process alone: the soil chamber's port is a fixed one.
std::string OwnAddress() {
  const int pid = getpid();
  return "127." + std::to_string(128 + (pid >> 16)) + '.' + std::to_string(pid >> 8 & 255) + '.' +
         std::to_string(pid & 255);
}

struct World {
  World() {
    dir.Write("disk/leftover.txt", "");
    settings.disk.board = true;
    settings.disk.split = 60;
    settings.clock.mode = "watch";
    site.analyser.SetRate(2);
    site.analyser.Turn("<factory><serialnumber>ch4-0042</serialnumber></factory>");
  }
  // Looked at once a second.
  template <class Condition>
  static bool Becomes(Condition condition, int seconds) {
    for (; seconds > 0 && !condition(); --seconds) PollFor(1'000);
    return condition();
  }
  Json::Value Status() const {
    Json::Value status;
    std::istringstream(station->Status()) >> status;
    return status;
  }
  // What stands in the station's files, by their names.
  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(settings.disk.path)) {
      const std::string name = entry.path().filename();
      if (name.starts_with("bog-") && name.ends_with(".txt")) files[name] = dir.Read("disk/" + name);
    }
    return files;
  }

  const TempDirectory dir;
  VirtualTime time;
  const CapturedOutput output{STDERR_FILENO};
  Site site{{.sonic_rate = 2, .soil = OwnAddress(), .chamber = {.purge = 5, .observation = 20}, .modules = false}};
  Settings settings = SettingsFor(site, dir);
  std::optional<Station> station;
};

TEST(Station, RecordsWhatAllItsInstrumentsSend) {
  World world;
  world.station.emplace(world.settings, ZonesIn(world.dir));
  EXPECT_EQ(world.station->Answer(world.site.Document()), "<tarno><moorlog><ack>true</ack></moorlog></tarno>");
  for (const char* name : {"analyser", "sonic", "gps", "campbell"}) {
    EXPECT_TRUE(World::Becomes(
        [&] {
          const Json::Value line = world.Status()["instruments"][name];
          return line["connected"].asBool() && line["written"].asInt() > 20 && !line["silent"].asBool();
        },
        300))
        << name << world.station->Status() << world.output.Text();
  }
  EXPECT_TRUE(World::Becomes([&] { return world.Status()["clock"].isMember("offset"); }, 60));
  EXPECT_NEAR(world.Status()["clock"]["offset"].asDouble(), 0, 0.1);
  EXPECT_TRUE(world.Status()["clock"]["age"].isInt() && world.Status()["clock"]["age"].asInt() <= 1);
  EXPECT_EQ(world.site.button.LED(), 'Y');
  const Json::Value status = world.Status(), sonic = status["instruments"]["sonic"];
  EXPECT_NEAR(sonic["rate"].asDouble(), 2, 0.2);
  EXPECT_NEAR(sonic["interval"]["mean"].asDouble(), 500, 1);
  EXPECT_TRUE(sonic["interval"].isMember("range") && sonic["interval"]["deviation"].asDouble() < 5) << sonic;
  EXPECT_TRUE(status["instruments"]["gps"]["fix"].asBool());
  EXPECT_EQ(status["instruments"]["analyser"]["serialnumber"], "ch4-0042");
  EXPECT_NEAR(sonic["last"].asDouble(), static_cast<double>(time(nullptr)), 2);
  EXPECT_EQ(sonic["bad_sums"], 0);
  EXPECT_FALSE(status["instruments"]["modules"].isMember("last"));
  EXPECT_TRUE(std::filesystem::exists(sonic["file"].asString()));
  EXPECT_TRUE(status["recording"].asBool() && status["disk"]["there"].asBool() && status["clock"]["watching"].asBool());
  EXPECT_EQ(status["disk"]["path"], world.settings.disk.path);
  EXPECT_GT(status["disk"]["available"].asUInt64(), 0U);
  EXPECT_EQ(status["clock"]["steps"], 0);
  EXPECT_GT(status["memory"].asInt(), 1'000);
  EXPECT_NEAR(status["uptime"].asDouble(), static_cast<double>(world.time.Elapsed()) / 1'000, 2);
  EXPECT_EQ(status["version"], MOORLOG_VERSION);
  for (const char* date : {"2024-02-30", "2024-13-45"})
    EXPECT_NE(world.station
                  ->Answer(std::string("<tarno><moorlog><cfg><clock><date>") + date +
                           "</date></clock></cfg></moorlog></tarno>")
                  .find(std::string("time: There is no ") + date),
              std::string::npos);
  std::string queries;
  while (queries.size() < 70'000) queries += "&query;";
  EXPECT_EQ(world.station->Answer("<tarno>" + queries + "</tarno>"),
            "<tarno><moorlog><error>the answer would be too long</error></moorlog></tarno>");

  world.site.sonic.Set({.rate = 2, .bad_sums = true});
  world.site.gps.SetBadSums(true);
  for (const char* name : {"sonic", "gps"})
    EXPECT_TRUE(World::Becomes([&] { return world.Status()["instruments"][name]["bad_sums"].asInt() > 0; }, 60));
  world.site.sonic.Set({.rate = 2});
  world.site.gps.SetBadSums(false);

  // A disk that takes nothing; a document that can't be kept, whose command is obeyed.
  std::filesystem::rename(world.dir / "disk", world.dir / "away");
  PollFor(60'000);
  EXPECT_EQ(world.site.button.LED(), 'E');
  std::filesystem::rename(world.dir / "away", world.dir / "disk");
  EXPECT_TRUE(World::Becomes([&] { return world.site.button.LED() == 'Y'; }, 60));
  std::filesystem::remove_all(world.dir / "state");
  EXPECT_NE(world.station
                ->Answer("<tarno><moorlog><cfg><head>x</head></cfg><cmd><logusbstop>true</logusbstop></cmd></moorlog>"
                         "</tarno>")
                .find("<error>Unable to open: " + world.dir.Path()),
            std::string::npos);
  EXPECT_FALSE(world.Status()["recording"].asBool());
  std::filesystem::create_directory(world.dir / "state");
  EXPECT_TRUE(World::Becomes([&] { return std::filesystem::exists(world.dir / "state/moorlog.xml"); }, 61));
  world.station->Answer(world.site.Document());
  struct stat kept, after;
  stat((world.dir / "state/moorlog.xml").c_str(), &kept);
  world.station->Answer("<tarno><moorlog><cmd><logusbstart>true</logusbstart></cmd></moorlog></tarno>");
  stat((world.dir / "state/moorlog.xml").c_str(), &after);
  EXPECT_EQ(after.st_ino, kept.st_ino) << "it is written when something has changed";

  world.site.button.Press();
  world.site.button.Release();
  EXPECT_TRUE(
      World::Becomes([&] { return world.site.button.LED() == 'N' && !world.Status()["recording"].asBool(); }, 60));
  const auto campbell = [&] { return world.Status()["instruments"]["campbell"]["connected"].asBool(); };
  EXPECT_FALSE(campbell()) << "its rows would go to the disk";
  world.station->Answer("<tarno><moorlog><cmd><logusbstart>true</logusbstart></cmd></moorlog></tarno>");
  EXPECT_TRUE(World::Becomes(campbell, 60));
  world.site.button.Hold();
  EXPECT_TRUE(World::Becomes([&] { return world.site.button.LED() == 'E'; }, 60));
  EXPECT_FALSE(world.Status()["disk"]["there"].asBool());
  EXPECT_TRUE(World::Becomes([&] { return world.Status()["instruments"]["sonic"]["lost"].asInt() > 5; }, 60));
  const auto reports = [&] { return world.Status()["instruments"]["soil"]["records"].asInt(); };
  const int before = reports();
  EXPECT_TRUE(World::Becomes([&] { return reports() > before; }, 900));
  world.station->Answer("<tarno><moorlog><cmd><logusbstart>true</logusbstart></cmd></moorlog></tarno>");
  const int first_life = reports();

  // Started again it is as it was told to be.
  world.station.reset();
  world.station.emplace(world.settings, ZonesIn(world.dir));
  EXPECT_TRUE(World::Becomes([&] { return world.Status()["instruments"]["analyser"]["written"].asInt() > 5; }, 60));
  const int second_life = reports();
  world.station.reset();

  EXPECT_TRUE(std::filesystem::exists(world.settings.disk.path + "/ws-2024-03-01T000000.0.json"));
  int soil_files = 0;
  std::set<std::string> families;
  for (const auto& [name, text] : world.Files()) {
    if (name.starts_with("bog-soil-")) {
      ++soil_files;
      continue;
    }
    families.insert(name.substr(4, name.find('-', 4) - 4));
    for (const std::string key : {"\nGPS\t", "\nSONIC\t"}) {
      const size_t at = text.rfind(key);
      if (at == std::string::npos) continue;
      EXPECT_NEAR(std::atof(text.c_str() + at + key.size()), static_cast<double>(time(nullptr)), 3'600);
    }
  }
  EXPECT_EQ(soil_files, first_life + second_life);  // those that had to wait for the disk as well
  EXPECT_EQ(families, (std::set<std::string>{"analyser", "campbell", "gps", "sonic"}));
}

TEST(Station, RecordsNoMoreThanItIsToldTo) {
  for (const std::string what : {"some", "none"}) {
    World world;
    Settings& settings = world.settings;
    settings.analyser.record = what;
    settings.analyser.columns = {"CH4"};
    settings.gps.record = settings.sonic.record = settings.soil.record = false;
    settings.gps.pulse = settings.button.device = "";
    settings.campbell.directory = world.dir.Path();
    world.station.emplace(settings, ZonesIn(world.dir));
    world.station->Answer(world.site.Document());
    for (const char* name : {"analyser", "sonic", "gps", "campbell"})
      EXPECT_TRUE(PollUntil([&] { return world.Status()["instruments"][name]["records"].asInt() > 0; }, 300'000))
          << name;
    world.time.StepWall(3'600'000'000'000);
    EXPECT_FALSE(world.Status()["instruments"]["sonic"]["silent"].asBool());
    EXPECT_LT(world.Status()["uptime"].asInt(), 3'600);
    world.station.reset();
    std::string told;
    for (const auto& [name, text] : world.Files()) {
      if (name.starts_with("bog-analyser-"))
        told = text.substr(text.find("DATAH"), text.find("DATA\t") - text.find("DATAH"));
      else
        EXPECT_TRUE(name.starts_with("bog-campbell-")) << name;
    }
    EXPECT_EQ(told, what == "none" ? "" : "DATAH\tSECONDS\tNANOSECONDS\tCH4\tCHK\n");
  }
}

TEST(Station, TakesInstrumentsThatComeLateGoAwayAndComeBack) {
  struct Ports {
    SonicAnemometer sonic{57'600, {.rate = 2}};
    GPSReceiver gps{GPSReceiver::Garmin, 38'400};
    PulseSource pulse;
    PushButton button;
  };
  World world;
  std::optional<CapturedOutput> output(std::in_place);
  Settings& settings = world.settings;
  const std::array devices = {&settings.sonic.device, &settings.gps.device, &settings.gps.pulse,
                              &settings.button.device};
  for (size_t i = 0; i < devices.size(); ++i) *devices[i] = world.dir / std::to_string(i);
  world.station.emplace(settings, ZonesIn(world.dir));
  world.station->Answer(world.site.Document());
  const auto connected = [&] {
    std::string names;
    for (const char* name : {"sonic", "gps", "button"})
      names += world.Status()["instruments"][name]["connected"].asBool() ? name : "";
    return names;
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(World::Becomes([&] { return connected().empty(); }, 60));
    PollFor(30'000);
    Ports ports;
    const std::array paths = {ports.sonic.Path(), ports.gps.Path(), ports.pulse.Path(), ports.button.Path()};
    for (size_t i = 0; i < devices.size(); ++i) {
      std::filesystem::remove(*devices[i]);
      std::filesystem::create_symlink(paths[i], *devices[i]);
    }
    EXPECT_TRUE(World::Becomes([&] { return connected() == "sonicgpsbutton"; }, 60));
    PollFor(20'000);
    int unread = 0;
    ioctl(StreamFile(ports.pulse.Path(), O_RDONLY | O_NONBLOCK).Fileno(), FIONREAD, &unread);
    EXPECT_LT(unread, 20) << "bytes of pulses that nobody listens to";
    EXPECT_EQ(ports.button.LED(), 'Y');
    const auto records = [&] { return world.Status()["instruments"]["gps"]["records"].asInt(); };
    ports.gps.LosePower(40, 4'800);  // longer than it is searched for
    PollFor(50'000);
    EXPECT_TRUE(World::Becomes([&, before = records()] { return records() > before; }, 60));
  }
  const std::string told = output->Text();
  output.reset();
  for (const std::string* device : devices) {
    const std::regex absence("ERROR: .*" + *device + ": No such file");
    EXPECT_EQ(std::distance(std::sregex_iterator(told.begin(), told.end(), absence), {}), 2) << told;
  }
  const auto chamber = [&] { return world.Status()["instruments"]["soil"]["connected"].asBool(); };
  EXPECT_TRUE(World::Becomes(chamber, 60));
  world.site.soil.Interrupt();
  EXPECT_TRUE(World::Becomes([&] { return !chamber(); }, 60));
  PollFor(590'000);
  EXPECT_FALSE(chamber()) << "it wants ten minutes";
  EXPECT_TRUE(World::Becomes(chamber, 60));
}

TEST(Station, KeepsToItsShareOfTheDisk) {
  const TempDirectory place;
  ExpectInMountNamespace([&] {
    MountEmpty(place.Path(), "size=1m");
    World world;
    Settings& settings = world.settings;
    settings.disk.path = place.Path();
    settings.disk.board = false;
    settings.disk.percent = 40;
    settings.gps.device = settings.sonic.device = "";  // nothing comes besides
    for (const auto& [name, hours] : {std::pair("b", 3), {"a", 2}, {"c", 1}}) {
      place.Write(name, std::string(200'000, ' '));
      last_write_time(std::filesystem::path(place / name),
                      std::filesystem::file_time_type::clock::now() - std::chrono::hours(hours));
    }
    world.station.emplace(settings, ZonesIn(world.dir));
    EXPECT_TRUE(World::Becomes([&] { return !std::filesystem::exists(place / "b"); }, 3'600));
    PollFor(120'000);
    EXPECT_EQ(place.Names(), (std::set<std::string>{"a", "c"}));
    place.Write("else/others", std::string(650'000, ' '));  // the share isn't taken, and yet there is no room
    EXPECT_TRUE(World::Becomes([&] { return !std::filesystem::exists(place / "a"); }, 3'600));
    PollFor(120'000);
    EXPECT_EQ(place.Names(), (std::set<std::string>{"else", "c"}));
  });
}

}  // namespace
