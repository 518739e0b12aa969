// moorlog-station as systemd runs it: told by signals, heard on its notification socket.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "emulators/poll_runner.h"
#include "emulators/sonic_anemometer.h"
#include "emulators/temp_directory.h"

namespace {

constexpr int kBound = 60'000;  // milliseconds, for a busy machine

// What systemd would hear.
class Manager {
 public:
  explicit Manager(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (bind(_socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) throw std::runtime_error(path);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }
  Manager(const Manager&) = delete;
  Manager& operator=(const Manager&) = delete;
  ~Manager() {
    close(_socket);
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
  }
  bool Hears(const std::string& text) {
    return PollUntil(
        [&] {
          char bytes[512];
          for (ssize_t size; (size = recv(_socket, bytes, sizeof bytes, MSG_DONTWAIT)) > 0;)
            _heard.append(bytes, static_cast<size_t>(size)) += '\n';
          const size_t at = _heard.find(text);
          if (at != std::string::npos) _heard.erase(0, at + text.size());
          return at != std::string::npos;
        },
        kBound);
  }

 private:
  const int _socket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::string _heard;
};

TEST(Program, FollowsItsSettingsAndEndsWithAllFilesFinished) {
  const TempDirectory dir;
  SonicAnemometer sonic(57'600);
  Manager manager(dir / "notify");
  const auto set = [&](const std::string& settings) {
    dir.Write("station.toml", "user = \"" + std::string(getpwuid(geteuid())->pw_name) + "\"\nstate = \"" + dir.Path() +
                                  "/state\"\n" + settings + "\n[disk]\nboard = true\npath = \"" + dir.Path() +
                                  "/disk\"\n[sonic]\ndevice = \"" + sonic.Path() + "\"\n");
  };
  const auto has = [&](const std::string& begin, const std::string& end) {
    for (const auto& entry : std::filesystem::directory_iterator(dir / "disk")) {
      const std::string name = entry.path().filename();
      if (name.starts_with(begin) && name.ends_with(end)) return true;
    }
    return false;
  };
  const auto opens = [&](const std::string& begin) { return PollUntil([&] { return has(begin, ".part"); }, kBound); };
  dir.Write("disk/x-sonic-2024-01-01T000000.txt.part", "a line\n");
  set("name = \"x\"\ncontrol.port = 0");
  setenv("WATCHDOG_USEC", "1000000", 1);
  const std::string settings = dir / "station.toml", log = dir / "log";
  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (freopen(log.c_str(), "w", stdout) == nullptr) _exit(126);
    execl(MOORLOG_STATION, MOORLOG_STATION, "--config", settings.c_str(), nullptr);
    _exit(127);
  }
  EXPECT_TRUE(manager.Hears("READY=1\nSTATUS=control port "));
  EXPECT_TRUE(has("x-sonic-2024-01-01T000000", ".txt"));
  EXPECT_TRUE(manager.Hears("WATCHDOG=1"));
  EXPECT_TRUE(opens("x-sonic-"));

  const std::pair<const char*, const char*> rows[] = {
      {"name = \"y\"\nnonsense = 1", "station.toml:4: there is no key 'nonsense'\n"},
      {"name = \"y\"\ncontrol.port = 0\ncontrol.interface = \"none\"", "Unable to use the interface none: No such "},
  };
  for (const auto& [bad, error] : rows) {
    set(bad);
    kill(child, SIGHUP);
    EXPECT_TRUE(manager.Hears("RELOADING=1") && manager.Hears("READY=1") && manager.Hears("WATCHDOG=1"));
    EXPECT_NE(dir.Read("log").find(error), std::string::npos) << dir.Read("log");
    EXPECT_TRUE(opens("x-sonic-"));
    EXPECT_FALSE(has("y-", ""));
  }
  set("name = \"y\"\ncontrol.port = 0");
  kill(child, SIGHUP);
  EXPECT_TRUE(manager.Hears("READY=1"));
  EXPECT_TRUE(opens("y-sonic-"));
  EXPECT_FALSE(has("x-sonic-", ".part"));

  kill(child, SIGTERM);
  EXPECT_TRUE(manager.Hears("STOPPING=1"));
  int status = -1;
  EXPECT_TRUE(PollUntil([&] { return waitpid(child, &status, WNOHANG) == child; }, kBound));
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(has("", ".part"));
  EXPECT_TRUE(has("y-sonic-", ".txt"));
}

}  // namespace
