// The parts of the station that stand between the instruments and the board, one by one.

#include <gtest/gtest.h>
#include <jsoncpp/json/value.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/timex.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include "daqm/daqm.h"
#include "emulators/daqmbus.h"
#include "emulators/poll_runner.h"
#include "emulators/push_button.h"
#include "emulators/temp_directory.h"
#include "emulators/virtual_time.h"
#include "station/board.h"
#include "station/button.h"
#include "station/controlport.h"
#include "station/disk.h"
#include "station/errands.h"
#include "station/hostlookup.h"
#include "station/instrument.h"
#include "station/mishaps.h"
#include "station/modules.h"
#include "station/recordfiles.h"
#include "station/rights.h"
#include "station/station.h"
#include "station/stationclock.h"
#include "tests/station/settable_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/mount_namespace.h"

namespace {

// How far the board's clock is ahead, in seconds, and what it is told.
struct {
  double ahead = 0, ppm = 0;
  int steps = 0, sets = 0;
  bool refuses = false;
} board;

}  // namespace

extern "C" int __wrap_adjtimex(timex* wanted) {
  if (board.refuses) return errno = EPERM, -1;
  board.ppm = static_cast<double>(wanted->freq) / 65536;
  return 0;
}
extern "C" int __wrap_settimeofday(const timeval* time, const struct timezone*) {
  if (board.refuses) return errno = EPERM, -1;
  timeval now;
  gettimeofday(&now, nullptr);
  const double by =
      static_cast<double>(time->tv_sec - now.tv_sec) + static_cast<double>(time->tv_usec - now.tv_usec) / 1e6;
  board.ahead += by;
  ++board.sets;
  board.steps += std::abs(by) > 1e-4 ? 1 : 0;
  if (settable_time != nullptr) settable_time->StepWall(std::llround(by * 1e9));
  return 0;
}

namespace {

// A tool at the control port.
struct Tool {
  explicit Tool(const ControlPort& port) : socket(Socket::FamilyIPv4, Socket::TypeStream, 0) {
    SocketAddress address("127.0.0.1");
    address.Port(port.Port());
    socket.Connect(address);
    socket.SetNonBlock();
  }
  bool Asks(const std::string& request) {
    socket.Write(request + '\n');
    std::string more;
    return PollUntil([&] {
      const bool open = recv(socket.Fileno(), nullptr, 0, MSG_PEEK | MSG_DONTWAIT) < 0;
      if (!open) socket.Read(more);
      return more == '<' + request + ">\n";
    });
  }
  bool Closed() const {
    std::vector<char> block(1 << 16);
    return PollUntil([&] {
      ssize_t size;
      while ((size = recv(socket.Fileno(), block.data(), block.size(), MSG_DONTWAIT)) > 0) continue;
      return size == 0 || errno == ECONNRESET;
    });
  }
  Socket socket;
};

// Connections that the kernel asks in silence whether they are there (proc_net_tcp of its documentation).
size_t KeptAlive(unsigned port) {
  size_t count = 0;
  std::ifstream sockets("/proc/net/tcp");
  for (std::string line; std::getline(sockets, line);) {
    unsigned local = 0, state = 0, timer = 0;
    count += std::sscanf(line.c_str(), "%*d: %*x:%x %*x:%*x %x %*x:%*x %x", &local, &state, &timer) == 3 &&
             local == port && state == 1 && timer == 2;
  }
  return count;
}

// What it answers is held against plain lines in fuzz/control_fuzz.cpp.
TEST(ControlPort, BearsEveryClient) {
  constexpr size_t kMuch = ControlPort::kLongestQueue / 2;
  const ControlPort port(0, "lo", [&](const std::string& request) {
    return '<' + request + (request == "long" ? std::string(kMuch, 'x') : "") + '>';
  });
  std::vector<std::unique_ptr<Tool>> many;
  for (size_t i = 0; i < ControlPort::kMostClients; ++i) {
    many.push_back(std::make_unique<Tool>(port));
    EXPECT_TRUE(many.back()->Asks("x"));
  }
  EXPECT_TRUE(Tool(port).Closed());
  EXPECT_TRUE(PollUntil([&] { return KeptAlive(static_cast<unsigned>(port.Port())) == ControlPort::kMostClients; }));
  // Leaves; asks for more than it reads; asks without an end.
  many[0]->socket.Shutdown(Socket::ShutdownWrite);
  EXPECT_TRUE(many[0]->Closed());
  for (int i = 0; i < 100; ++i) many[1]->socket.Write("long\n");
  PollPasses(100);
  EXPECT_TRUE(many[1]->Closed());
  std::string sent(ControlPort::kLongestRequest + 1, 'x');
  EXPECT_TRUE(PollUntil([&] {
    if (!sent.empty()) sent.erase(0, static_cast<size_t>(many[2]->socket.Write(sent)));
    return sent.empty();
  }));
  EXPECT_TRUE(many[2]->Closed());
  EXPECT_TRUE(PollUntil([&] { return Tool(port).Asks("y"); })) << "there is room again";
  EXPECT_EQ(ErrorText([] { ControlPort(0, "none", [](const std::string& text) { return text; }); }),
            "Unable to use the interface none: No such device");
}

TEST(HostLookup, GivesTheAddressOfTheHostThatIsAskedLast) {
  const CapturedOutput output(STDOUT_FILENO);
  std::string found;
  HostLookup lookup([&](const std::string& address) { found += address + ' '; });
  for (const char* host : {"10.1.2.3", "no.such.host.invalid", "192.168.1.95", "localhost"}) lookup.Ask(host);
  EXPECT_EQ(found, "10.1.2.3 ");
  EXPECT_TRUE(PollUntil([&] { return found == "10.1.2.3 127.0.0.1 "; }, 60'000)) << found;
  lookup.Ask("no.such.host.invalid");
  EXPECT_TRUE(
      PollUntil([&] { return output.Text() == "ERROR: no address is known of no.such.host.invalid\n"; }, 60'000));
}

TEST(Errands, AreDoneOneAfterTheOtherAndTheirFailuresTold) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  const TempDirectory dir;
  const CapturedOutput output;
  Errands errands;
  errands.Do("a", [] { prctl(PR_SET_PDEATHSIG, SIGKILL), pause(); });  // keeps no other one
  errands.Do("b", [&] { dir.Write("b", ""); });
  errands.Do("b", [&] { throw std::runtime_error(dir.Names().contains("b") ? "no" : "too early"); });
  errands.Do("b", [] { raise(SIGKILL); });
  const char* const told = "ERROR: b: no\nERROR: b: it was cut short\n";
  EXPECT_TRUE(PollUntil([&] { return output.Text() == told; }, 60'000)) << output.Text();
}

TEST(Instruments, OneThatFailsKeepsNothingFromOthers) {
  const CapturedOutput output;
  std::vector<InstrumentRow> table;
  for (const char* name : {"a", "b"})
    table.push_back({name, 0,
                     std::make_unique<StationButton>(
                         Settings{}, [] {}, [] {})});
  ForEach(table, [](Instrument&) { throw std::logic_error("no"); });
  EXPECT_EQ(output.Text(), "ERROR: a: no\nERROR: b: no\n");
}

TEST(Disk, FollowsWhatIsMountedThere) {
  const TempDirectory dir;
  ExpectInMountNamespace([&] {
    Disk disk(dir.Path(), false);
    RecordFiles files(disk, "x", "-y", 3'600);
    struct Log : Disk::Listener {
      void DiskCame() override { log += (files.LookAtDisk(), "came "); }
      void DiskWent() override { log += (files.LookAtDisk(), "went "); }
      explicit Log(RecordFiles& its) : files(its) {}
      RecordFiles& files;
      std::string log;
    } listener(files);
    disk.RegisterListener(&listener);
    const auto told = [&] {
      PollPasses(5);
      return std::exchange(listener.log, "");
    };
    EXPECT_FALSE(disk.IsThere());
    EXPECT_EQ(disk.Available(), 0U);
    mount(dir.Path().c_str(), dir.Path().c_str(), nullptr, MS_BIND, nullptr);
    EXPECT_EQ(told(), "came ");
    umount(dir.Path().c_str());
    EXPECT_TRUE(disk.IsThere() && !disk.IsStillThere());
    EXPECT_EQ(told(), "went ");
    MountEmpty(dir.Path(), "size=64k");
    EXPECT_EQ(told(), "came ");
    EXPECT_EQ(disk.Available(), 65'536U);
    dir.Write("half", std::string(32'768, ' '));
    EXPECT_EQ(disk.Used(), 50);
    files.Write("1\n");
    MountEmpty(dir.Path());
    EXPECT_EQ(told(), "went came ");
    EXPECT_EQ(files.File(), "") << "it is on the disk below";
    disk.Eject();
    EXPECT_EQ(told(), "went ");
    umount(dir.Path().c_str());
    EXPECT_EQ(told(), "");
    umount(dir.Path().c_str());
    EXPECT_EQ(told(), "");
    MountEmpty(dir.Path());
    EXPECT_EQ(told(), "came ");
    disk.Eject();
    disk.Use();
    EXPECT_EQ(told(), "went came ");
    umount(dir.Path().c_str());
    EXPECT_EQ(told(), "went ");
  });
}

TEST(RecordFiles, WriteWhileTheyMayAndFinishWhatACrashHasLeft) {
  const TempDirectory dir;
  VirtualTime time;
  dir.Write("x-y-2024-02-01T000000.txt.part", "a\nb");
  dir.Write("x-y-2024-02-01T000000.txt", "b\n");
  dir.Write("x-y-2024-02-02T000000.txt.part", "");
  dir.Write("renamed-y-2024-02-02T000000.txt.part", "c\n");
  dir.Write("x-z-2024-02-02T000000.txt.part", "c\n");
  const CapturedOutput output;
  Disk disk(dir.Path(), true);
  {
    RecordFiles files(disk, "x", "-y", 3'600);
    files.SetHeader("XH\tCHK\n");
    files.Write("1\n");
    time.Advance(5'000);
    files.Stop();
    files.Write("2\n");
    files.Start();
    files.Write("3\n");
    disk.Eject();
    files.Write("4\n");
    disk.Use();
    time.Advance(5'000);
    files.Write("5\n");
    files.Finish();
    files.Write("6\n");
    EXPECT_EQ(files.File(), dir / "x-y-2024-03-01T000011.txt.part");
    time.StepWall(-3'600'000'000'000);
    files.Write("7\n");
    time.StepWall(-1);
    files.Write("8\n");
    EXPECT_EQ(files.Written(), 6);
    EXPECT_EQ(files.Lost(), 1);
  }
  EXPECT_EQ(dir.Names(), (std::set<std::string>{"x-y-2024-02-01T000000.txt", "x-y-2024-02-01T000000-2.txt",
                                                "renamed-y-2024-02-02T000000.txt", "x-z-2024-02-02T000000.txt.part",
                                                "x-y-2024-03-01T000000.txt", "x-y-2024-03-01T000005.txt",
                                                "x-y-2024-03-01T000010.txt", "x-y-2024-03-01T000011.txt",
                                                "x-y-2024-02-29T230010.txt", "x-y-2024-02-29T230009.txt"}));
  EXPECT_EQ(dir.Read("x-y-2024-02-01T000000-2.txt"), "a\n");
  EXPECT_TRUE(dir.Read("x-y-2024-03-01T000005.txt").ends_with("Timezone:\tUTC\nXH\tCHK\n3\n"));
}

TEST(RecordFiles, AFullDiskTakesWholeLinesAndARefusingOneNone) {
  const TempDirectory dir;
  ExpectInMountNamespace([&] {
    const VirtualTime time;
    MountEmpty(dir.Path(), "size=64k");
    const Disk disk(dir.Path(), false);
    RecordFiles files(disk, "x", "-y", 3'600);
    const std::string head = "Timezone:\tUTC\n", line = std::string(999, '.') + '\n';
    files.Write(std::string(100'000, '.') + '\n');
    files.LookAtDisk();
    EXPECT_TRUE(dir.Read("x-y-2024-03-01T000000.txt").ends_with(head));
    for (int i = 0; i < 100; ++i) files.Write(line);
    files.LookAtDisk();
    const std::string kept = dir.Read("x-y-2024-03-01T000001.txt");
    EXPECT_EQ((kept.size() - kept.find(head) - head.size()) % line.size(), 0U);
    EXPECT_GT(kept.size(), 50'000U);
    std::filesystem::remove(dir / "x-y-2024-03-01T000001.txt");
    const int64_t written = files.Written(), lost = files.Lost();
    EXPECT_EQ(written + lost, 101);
    for (const bool refuses : {true, false}) {
      mount(nullptr, dir.Path().c_str(), nullptr, MS_REMOUNT | (refuses ? MS_RDONLY : 0), nullptr);
      files.LookAtDisk();
      files.Write(line);
    }
    EXPECT_EQ(files.Lost(), lost + 1);
    EXPECT_EQ(files.Written(), written + 1);
    files.Finish();
    umount(dir.Path().c_str());
    files.Write(line);  // before anybody is told
    EXPECT_TRUE(dir.Names().empty());
  });
}

// A clock that runs 20 ppm fast and begins 5 s ahead.
TEST(StationClock, IsSteppedOnceAndThenKept) {
  const TempDirectory dir;
  dir.Write("zones/UTC", "");
  dir.Write("rtc", "");
  const CapturedOutput output;
  for (const bool watch : {false, true}) {
    VirtualTime time;
    board = {};
    board.ahead = 5;
    LinuxClock linux_clock(dir / "zones", dir / "link", dir / "zone", dir / "rtc");
    StationClock clock(linux_clock, watch, {4, 8});
    for (int second = 1; second <= 1'200; ++second) {
      time.Advance(300);
      board.ahead += (20 + board.ppm) / 1e6;
      const double moment = second + board.ahead;
      clock.GotPulse({static_cast<int32_t>(moment), static_cast<int32_t>((moment - std::floor(moment)) * 1e9)});
      time.Advance(500);
      clock.GotFix(TimeVal(second));
      clock.GotFix(TimeVal(second, 100'000'000));
      time.Advance(200);
    }
    EXPECT_EQ(board.steps, watch ? 0 : 1);
    EXPECT_NEAR(board.ahead, watch ? 5.024 : 0, 1e-4);
    EXPECT_NEAR(clock.Offset().value_or(9), board.ahead, 1e-4);
  }
}

TEST(StationButton, IsNotListenedToWhenItHasGone) {
  VirtualTime time;
  std::optional<PushButton> button(std::in_place);
  Settings settings;
  settings.button.device = button->Path();
  int presses = 0;
  StationButton station(
      settings, [&] { ++presses; }, [] {});
  station.Look();
  EXPECT_TRUE(station.IsConnected());
  for (int i = 0; i < 3; ++i) button->Press(), button->Release();  // while the loop stands still
  EXPECT_TRUE(PollUntil([&] { return presses == 3; }, 1'000));
  for (int i = 0; i < 200'000; ++i)
    station.Show(i % 2 == 0 ? StationButton::On : StationButton::Off);  // it reads nothing
  button.reset();
  const CapturedOutput output;
  PollFor(5'000);
  EXPECT_LT(output.Text().size(), 200U);
  EXPECT_FALSE(station.IsConnected());
}

TEST(StationModules, WriteEachKindOfRowsWhileTheyMay) {
  const TempDirectory dir;
  ExpectInMountNamespace([&] {
    ASSERT_TRUE(EnterOwnNetwork());
    MountGpio(13);
    const VirtualTime time;
    const CapturedOutput output;
    std::optional<DAQMBus> bus;
    const auto attach = [&] { DAQM::port_to_dev.at(1).device = bus.emplace(DAQMBus::Settings{.interval = 10}).Path(); };
    attach();
    const Settings settings;
    Disk disk(dir.Path(), true, true);
    int power_cuts = 0;
    StationModules modules(settings, disk, [&] { ++power_cuts; });
    ConfigMoorlog document;
    document.cfg.daqm.port.set(1);
    modules.Apply(document);
    const auto growing = [&] {
      std::map<std::string, size_t> before, after;
      for (const std::string& name : dir.Names()) before[name.substr(name.rfind('-'))] += dir.Read(name).size();
      PollFor(60'000);
      for (const std::string& name : dir.Names()) after[name.substr(name.rfind('-'))] += dir.Read(name).size();
      std::string kinds;
      for (const auto& [kind, size] : after) kinds += size > before[kind] ? kind : "";
      return kinds;
    };
    EXPECT_EQ(growing(), "");
    disk.Use();
    modules.Look();
    EXPECT_EQ(growing(), "-backup.txt-modules.txt") << "what was kept waits for the disk";
    for (const std::string& name : dir.Names())
      EXPECT_NE(dir.Read(name).find('\t' + DAQMBus::NameOf(0, 1)), std::string::npos) << name;
    modules.Live(true);
    bus->Misbehave(DAQMBus::kBadSum, 0);
    for (int i = 0; i < 99; ++i) bus->SayAsIs("{}\n");
    EXPECT_EQ(growing(), "-live.txt-modules.txt");
    EXPECT_EQ(modules.Records().BadSums(), 100);
    EXPECT_GT(modules.WhatIsKept()->written, 20);
    const rlimit tight{std::filesystem::file_size(modules.WhatIsKept()->file) + 9, RLIM_INFINITY},
        any{RLIM_INFINITY, RLIM_INFINITY};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    EXPECT_EQ(growing(), "-modules.txt") << "the beginning of a row";
    setrlimit(RLIMIT_FSIZE, &any);
    std::cout.clear();
    modules.LookAtDisk();
    for (const std::string& name : dir.Names()) EXPECT_TRUE(dir.Read(name).ends_with('\n')) << name;
    EXPECT_EQ(growing(), "-live.txt-modules.txt");
    modules.Record(false);
    EXPECT_EQ(modules.WhatIsKept()->file, "");
    EXPECT_EQ(growing(), "");
    modules.Record(true);
    disk.Eject();
    modules.LookAtDisk();
    EXPECT_EQ(growing(), "");
    EXPECT_NEAR(static_cast<double>(modules.WhatIsKept()->lost), 132, 4) << "of both minutes";
    disk.Use();
    modules.Live(false);
    PollFor(2'000);  // the last row
    EXPECT_EQ(growing(), "-modules.txt");
    modules.Look();
    Json::Value status;
    modules.Tell(status);
    EXPECT_NE(status["serialnumbers"], "") << "the same session";
    bus->Misbehave(DAQMBus::kPowerOff, 0);
    PollFor(30'000);
    EXPECT_EQ(power_cuts, 1);
    EXPECT_TRUE(modules.IsConnected());
    bus.reset();
    PollFor(2'000);
    EXPECT_FALSE(modules.IsConnected());
    attach();
    bus->SetPower(false);
    modules.Look();
    PollFor(240'000);
    bus->SetPower(true);
    for (const char* kinds : {"", "-backup.txt-modules.txt"}) {
      modules.Look();
      EXPECT_EQ(growing(), kinds) << "nobody has heard the question";
    }
    std::filesystem::remove("/sys/class/gpio/gpio13/value");
    document.cfg.daqm.port.set(0);
    modules.Apply(document);
    EXPECT_FALSE(modules.IsConnected());
  });
}

// Fixes without pulses, which come 400 ms late, and then the first pulse; in the end the system refuses.
TEST(StationClock, IsSteppedAtTheFirstPulseWhateverFixesHaveSaid) {
  const TempDirectory dir;
  for (const char* name : {"zones/UTC", "rtc"}) dir.Write(name, "");
  VirtualTime time;
  settable_time = &time;
  board = {};
  LinuxClock linux_clock(dir / "zones", dir / "link", dir / "zone", dir / "rtc");
  StationClock clock(linux_clock, false, {4, 8});
  const CapturedOutput output;
  const auto truth = [&] { return TimeVal(static_cast<int32_t>(1'700'000'000 + time.Elapsed() / 1'000)); };
  time.Advance(400);
  clock.GotFix(truth() - TimeVal(7));  // nothing else says so
  for (int minute = 0; minute < 150; ++minute) {
    clock.GotFix(truth());
    time.Advance(60'000);
  }
  EXPECT_EQ(board.steps, 1);
  EXPECT_EQ(board.sets, 1);
  std::string told = output.Text();
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 4);  // with the step, and each hour, that the file is no clock
  time.Advance(600);
  clock.GotPulse(StationClock::Now());
  clock.GotFix(truth());
  EXPECT_EQ(board.steps, 2);
  EXPECT_EQ(StationClock::Now() - truth(), TimeVal());
  told = output.Text();
  for (const int late : {5, 4, 3, 1, 3}) clock.GotFix(truth() - TimeVal(late));  // that have waited
  clock.GotPulse(StationClock::Now());
  clock.GotFix(truth() - TimeVal(2));
  clock.GotPulse(StationClock::Now());
  clock.GotFix(truth());
  EXPECT_EQ(output.Text(), told);
  EXPECT_EQ(clock.Offset(), 0);
  board.refuses = true;
  for (int i = 0; i < 2; ++i) clock.GotFix(truth() - TimeVal(5));
  EXPECT_EQ(output.Text(), told + "ERROR: Unable to set system time: Operation not permitted\n");
  EXPECT_EQ(clock.Offset(), 5);
  settable_time = nullptr;
}

TEST(Board, HandsOnWhatTheSystemHasToDo) {
  const std::array tools = {"/usr/bin/systemctl", "/usr/bin/hostnamectl"};
  for (const char* tool : tools)
    if (access(tool, X_OK) != 0) GTEST_SKIP() << "needs systemd";
  const TempDirectory dir;
  dir.Write("tool", "#!/bin/sh\n: > \"" + dir / "${0##*/} $*\"" + "\n[ $1 != reboot ]\n");
  std::filesystem::permissions(dir / "tool", std::filesystem::perms::all);
  dir.Write("zones/UTC", "");
  ExpectInMountNamespace([&] {
    for (const char* tool : tools) mount((dir / "tool").c_str(), tool, nullptr, MS_BIND, nullptr);
    LinuxClock clock(dir / "zones", dir / "link", dir / "zone", dir / "rtc");
    const CapturedOutput output;
    Errands errands;
    const auto owner = [&] { return Board(clock, errands); };  // which goes at once
    ConfigMoorlog document;
    const ConfigMoorlog before;
    document._set_changed(false);
    for (const int choice : {2, 1}) {
      document.cfg.clock.ptp.set(choice);
      EXPECT_EQ(owner().Apply(document, before).size(), 0U);
    }
    document._set_changed(false);
    document.cfg.network.name.set("bog 1");
    EXPECT_EQ(owner().Apply(document, before).size(), 0U);
    owner().Reboot();
    const std::set<std::string> all = {"hostnamectl set-hostname -- bog 1",
                                       "systemctl reboot",
                                       "systemctl start ptpd",
                                       "systemctl start ptpd_slave",
                                       "tool",
                                       "zones"};
    EXPECT_TRUE(PollUntil([&] { return dir.Names() == all && output.Text() == "ERROR: reboot: the system refuses\n"; },
                          60'000));
  });
}

TEST(Board, KeepsWhatIsInForceWhereTheSystemRefuses) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ExpectInChild([] {
    const auto in_cfg = [](const std::string& what) {
      return "<tarno><moorlog><cfg>" + what + "</cfg></moorlog></tarno>";
    };
    WorkAs("nobody");
    const TempDirectory dir;
    for (const char* name : {"zones/UTC", "zones/Here", "disk/x", "rtc"}) dir.Write(name, "");
    dir.Write("state/moorlog.xml", in_cfg("<head>127.0.0.1</head><clock><zone>US/Gone</zone></clock>"));
    VirtualTime time;
    settable_time = &time;
    board = {};
    Settings settings;
    settings.state = dir / "state";
    settings.disk.path = dir / "disk";
    settings.control.port = 0;
    settings.clock.rtc = dir / "rtc";
    const CapturedOutput output;
    Station station(settings, {dir / "zones", dir / "link", dir / "zone"});
    EXPECT_NE(output.Text().find("US/Gone"), std::string::npos);
    station.Answer(in_cfg("<clock><time>12:00:00</time></clock>"));
    EXPECT_EQ(StationClock::Now().seconds, 1'709'294'400) << "today";
    settable_time = nullptr;
    EXPECT_EQ(setresuid(geteuid(), geteuid(), geteuid()), 0);
    const std::string in_force = station.Answer(in_cfg("&query;"));
    for (const char* text : {"<time>12:00:00</time><date>2024-03-01</date><zone>UTC</zone>", "<head>127.0.0.1</head>"})
      EXPECT_NE(in_force.find(text), std::string::npos) << in_force;
    for (const std::string what :
         {"<clock><zone>Here</zone></clock>", "<clock><time>13:00:00</time></clock>",
          "<clock><ptp>preferred</ptp></clock>", "<network><name>bog</name></network>", "<sonicbaud>12345</sonicbaud>",
          "<daqm><port>1</port></daqm>", "</cfg><cmd><startdaqmlivemeasure>true</startdaqmlivemeasure></cmd><cfg>"})
      for (int round = 0; round < 2; ++round) {
        EXPECT_NE(station.Answer(in_cfg(what)).find("<error>"), std::string::npos) << what << round;
        EXPECT_EQ(station.Answer(in_cfg("&query;")), in_force);
      }
  });
}

TEST(Rights, AreGivenBackWhateverAPartLeaves) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  ExpectInChild([] {
    EXPECT_EQ(ErrorText([] { WorkAs("nobody here"); }), "There is no user 'nobody here'");
    WorkAs("nobody");
    const uid_t user = geteuid();
    EXPECT_NE(user, 0U);
    EXPECT_NE(getegid(), 0U);
    {
      const EffectiveUser rights;
      EXPECT_EQ(seteuid(0), 0);
    }
    EXPECT_EQ(geteuid(), user);
  });
}

TEST(Mishaps, AreBorneButNotTheSameOneForEver) {
  VirtualTime time;
  const CapturedOutput output;
  Mishaps mishaps;
  const auto come = [&](int times) {
    for (int i = 0; i < times; ++i) EXPECT_TRUE(mishaps.Bear("a") && mishaps.Bear(i % 2 == 0 ? "b" : "c"));
  };
  come(60);
  time.Advance(30'000);
  come(39);
  time.Advance(31'000);  // the first sixty are forgotten
  come(60);
  EXPECT_FALSE(mishaps.Bear("a"));
  for (int other = 0; other < 100; ++other) EXPECT_TRUE(mishaps.Bear(std::to_string(other)));
  come(60);  // more than are kept
}

}  // namespace
