#include "station/settings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "emulators/temp_directory.h"
#include "tests/support/error_text.h"

namespace {

Settings Read(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "moorlog-station");
  Settings settings;
  ReadSettings(static_cast<int>(arguments.size()), arguments.data(), settings);
  return settings;
}

TEST(Settings, AreTakenFromTheFileAndThenFromTheCommandLine) {
  const TempDirectory dir;
  const std::string file = dir / "station.toml";
  dir.Write("station.toml",
            "\xEF\xBB\xBFname = \"bog-1\"  # a comment\n\n[disk]\npath = \"/a#b\"  # 'one\nsplit = 010\nboard = "
            "true\n[analyser]\nrecord = \"some\"\n"
            "columns = [\"CH4\",  # [1]\n\"TEMP\"]\n[gps]\nrecord = false\n");
  const Settings settings = Read({"--config", file.c_str(), "--name", "bog-2"});
  EXPECT_EQ(settings.name, "bog-2");
  EXPECT_EQ(settings.disk.path, "/a#b");
  EXPECT_EQ(settings.disk.split, 10);
  EXPECT_TRUE(settings.disk.board && !settings.gps.record && settings.sonic.record);
  EXPECT_EQ(settings.analyser.columns, (std::vector<std::string>{"CH4", "TEMP"}));
}

// The file that is installed says what holds without it.
TEST(Settings, TheInstalledFileChangesNothing) {
  const auto values = [](const Settings& s) {
    return std::tuple(s.name, s.user, s.state, s.verbose, s.disk.path, s.disk.board, s.disk.split, s.disk.percent,
                      s.control.port, s.control.interface, s.analyser.port, s.analyser.record, s.analyser.columns,
                      s.gps.device, s.gps.pulse, s.gps.record, s.sonic.device, s.sonic.record, s.button.device,
                      s.soil.record, s.modules.record, s.campbell.port, s.campbell.directory, s.clock.mode,
                      s.clock.proportional, s.clock.integral, s.clock.rtc);
  };
  EXPECT_EQ(values(Read({})), values(Read({"--config", MOORLOG_SOURCE_DIR "/station/station.toml"})));
}

TEST(Settings, HaveTheRangesThatTheInstalledFileTells) {
  std::ifstream file(MOORLOG_SOURCE_DIR "/station/station.toml");
  const std::regex form(R"(\[(\w+)\]|(\w+) = .*\D(\d+) to (\d+).*)");
  std::string section;
  int ranges = 0;
  for (std::string line; std::getline(file, line);) {
    std::smatch found;
    if (!std::regex_match(line, found, form)) continue;
    if (found[1].matched) {
      section = found[1];
      continue;
    }
    const std::string key = "--" + section + '.' + found.str(2) + '=';
    const auto takes = [&](long value) {
      const std::string word = key + std::to_string(value);
      const char* const other = key == "--clock.proportional=" ? "--clock.integral=1000000" : "--clock.proportional=2";
      return ErrorText([&] { Read({word.c_str(), other}); }) == "nothing thrown";
    };
    const long least = std::stol(found[3]), most = std::stol(found[4]);
    EXPECT_TRUE(!takes(least - 1) && takes(least) && takes(most) && !takes(most + 1)) << line;
    ++ranges;
  }
  EXPECT_EQ(ranges, 7);
}

TEST(Settings, NameTheLineOfWhatCantBeTaken) {
  const TempDirectory dir;
  const std::string file = dir / "f";
  const std::pair<const char*, const char*> rows[] = {
      {"\nfoo = 1", "2: there is no key 'foo'"},
      {"[gps]\nfoo = 2", "2: there is no key 'gps.foo'"},
      {"\n[typo]\n[gps]", "2: there is no section 'typo'"},
      {"[analyser]\ncolumns = [\"A\",  # [1]\n\"B\"\n[gps]", "2: analyser.columns: the array doesn't end"},
      {"[analyser]\ncolumns = [\nrecord = \"some\"]", "2: analyser.columns: the array doesn't end"},
      {"check = true", "1: there is no key 'check'"},
      {"seconds = 5", "1: there is no key 'seconds'"},
      {"\nname", "2: name: '=' and a value are wanted"},
      {"[gps]\ndevice =  # none", "2: gps.device: '=' and a value are wanted"},
      {"[gps]\npulse = \"/p\"", "2: gps.pulse: nothing without gps.device, which names the pulses"},
      {"state = \"\"", "1: state: '' doesn't begin with '/'"},
      {"[clock]\nintegral=4\nproportional=5", "2: clock.integral: not below clock.proportional, or the clock swings"},
      {"[disk]\n\nsplit = 0", "3: disk.split: '0' is not a whole number from 1 to 604800"},
      {"[disk]\nsplit = [1,2]", "2: disk.split: one value is wanted"},
      {"[disk]\nsplit = []", "2: disk.split: one value is wanted"},
      {"[disk]\nsplit=60\n[gps]\n[disk]\nsplit = nonsense", "5: disk.split: stands in line 2 already"},
      {"user = \"\"", "1: user: a user's name is wanted"},
      {"[disk]\nboard = 2", "2: disk.board: 2 not in {true,false}"},
      {"[disk]\npath=\"media\"", "2: disk.path: 'media' doesn't begin with '/'"},
      {"[disk]\npath=\"/a b\"",
       "2: disk.path: '/a b' can't be part of a data file's name: no blanks, quotes and "
       "\\*?[], and no '-' in front"},
      {"name = \"a/b\"", "1: name: 'a/b' is a path, and no name"},
      {"name = \"-a\"",
       "1: name: '-a' can't be part of a data file's name: no blanks, quotes and \\*?[], and no '-' in front"},
      {"verbose=maybe", "1: verbose: maybe not in {true,false}"},
      {"[gps]\ndevice=\"/a\"\n[sonic]\ndevice=\"/a\"", "4: sonic.device: '/a' is gps.device already"},
      {"[analyser]\nrecord=\"x\"", "2: analyser.record: x not in {all,some,none}"},
  };
  for (const auto& [text, error] : rows) {
    dir.Write("f", text);
    EXPECT_EQ(ErrorText([&] { Read({"--config", file.c_str()}); }), file + ':' + error);
  }
  for (const std::string path : {"/nonexistent", "/"})
    EXPECT_EQ(ErrorText([&] { Read({"--config", path.c_str()}); }), path + ": can't be read");
  EXPECT_EQ(ErrorText([] {
              Read({"--clock.integral", "4", "--clock.proportional", "5"});
            }),
            "clock.integral: not below clock.proportional, or the clock swings");
  EXPECT_EQ(ErrorText([] { Read({"--analyser.record", "some"}); }), "analyser.columns: 'some' wants their names");
  EXPECT_NE(ErrorText([] { Read({"--nonsense"}); }), "nothing thrown");
}

}  // namespace
