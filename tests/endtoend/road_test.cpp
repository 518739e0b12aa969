// The whole road: an emulated analyser, the link, the decoder, files on a disk of its own, zip, and the reclaimer.

#include <gtest/gtest.h>
#include <malloc.h>
#include <sched.h>
#include <sys/wait.h>
#include <utime.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sstream>

#include "emulators/analyser.h"
#include "emulators/temp_directory.h"
#include "examples/recorder.h"
#include "runtime/filesystem.h"
#include "runtime/runprogram.h"
#include "tests/support/avahi_hosts.h"
#include "tests/support/mount_namespace.h"
#include "tests/support/poll_runner.h"
#include "tests/support/setting.h"
#include "tests/support/virtual_time.h"

// What C++ holds of the heap. The C library's own count takes the memory in its caches for memory in use.
namespace {
std::atomic<int64_t> heap_bytes = 0;
}

void* operator new(size_t size) {
  void* const memory = std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  heap_bytes += static_cast<int64_t>(malloc_usable_size(memory));
  return memory;
}

void operator delete(void* memory) noexcept {
  heap_bytes -= static_cast<int64_t>(malloc_usable_size(memory));
  std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
  operator delete(memory);
}

namespace {

constexpr int kPort = 5500;
constexpr int kPercent = 40;        // of the disk
constexpr int64_t kGrowth = 4'096;  // bytes
constexpr int kSecond = 1'000;      // milliseconds, as all of these
constexpr int kMinute = 60 * kSecond;
constexpr int kFirstTrouble = 210 * kSecond + 50;  // between two lines; none of them lasts over the full hour
constexpr int kNextTrouble = 7 * kMinute;
constexpr int kTrouble = 5 * kSecond;
constexpr int kConnectGrace = 1;  // of real time
constexpr int kLineGrace = 100;

// script/soak asks for more days, and for lines at the instrument's own rate.
const int hours = 24 * Setting("MOORLOG_ROAD_DAYS", 1);
const int rate = Setting("MOORLOG_ROAD_RATE", 1);           // lines a second
const int64_t disk_bytes = rate * (int64_t{12} << 20) / 5;  // for some hours

// Hours from the start of the time to that of a file's name.
int HourOf(const std::string& name) {
  tm parts = {};
  if (strptime(name.c_str(), "head-%Y-%m-%dT%H", &parts) == nullptr) return -1;
  return static_cast<int>((timegm(&parts) - VirtualTime::kDefaultWall) / 3'600);
}

struct Counter : CH4Device::Listener {
  void GotCH4Data(const CH4Data& data) override {
    ++records;
    next = static_cast<int>(data.values[6]) + 1;
  }
  int records = 0;
  int next = 0;  // number of the line that comes next
};

// Lines are told apart by their number: the emulator counts those that it writes into a connection.
class Day {
 public:
  explicit Day(const TempDirectory& disk) : _disk(disk) {
    _recorder.RegisterListener(&_counter);
    _recorder.ConnectToAddress(_analyser.Host(), kPort);
    _time.Schedule(kFirstTrouble, [this] { _MakeTrouble(0); });
  }

  void Run() {
    _Pass(kSecond);
    _PassAnHour();
    const auto descriptors = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    const int64_t bytes_held = heap_bytes;
    const auto descriptors_held = descriptors();
    for (int hour = 1; hour < hours; ++hour) _PassAnHour();
    EXPECT_GT(bytes_held + kGrowth, heap_bytes);
    EXPECT_EQ(descriptors_held, descriptors());
    EXPECT_LT(hours * 3'540 * rate, _next);
    EXPECT_LT(hours * 4, _analyser.Connections());
    EXPECT_LE(_counter.next, _next + rate + 1) << "the new day's first second is in its first file";
    EXPECT_EQ(_counter.records, _counter.next - _lost);
    const std::set<std::string> left = _disk.Names();
    const int oldest = HourOf(*left.begin());
    EXPECT_LT(0, oldest) << "nothing was reclaimed";
    EXPECT_EQ(hours + 1, oldest + static_cast<int>(left.size())) << "not the oldest ones";
  }

 private:
  // One of them now and the next one a while later. What lasts is ended by a second action.
  void _MakeTrouble(size_t index) {
    const struct {
      std::function<void()> begin, end;
    } troubles[] = {
        {[this] { _analyser.Refuse(), _analyser.HangUp(); }, [this] { _analyser.Listen(); }},
        {[this] { _analyser.Stall(true); }, [this] { _analyser.Stall(false); }},
        {[this] { _analyser.CutLine(); }, {}},
        {[this] { _analyser.SendGarbage(5'000); }, {}},
        {[this] { _analyser.Send("DATA\t1\t2\t  0\n"); }, {}},
        {[this] { _resets.insert(_analyser.LinesSent()), _analyser.Reset(); }, {}},
        {[this] { _analyser.Vanish(); },
         [this] { _MoveTo(_analyser.Host() == "127.0.0.1" ? "127.0.0.2" : "127.0.0.1"); }},
    };
    const auto& trouble = troubles[index % std::size(troubles)];
    trouble.begin();
    if (trouble.end) _time.Schedule(kTrouble, trouble.end);
    _time.Schedule(kNextTrouble, [this, index] { _MakeTrouble(index + 1); });
  }

  void _MoveTo(const std::string& host) {
    _analyser.MoveTo(host);
    _recorder.GetHead().Connect(host);
  }

  // With real time for what is on its way through the system, which is hardly any where it is a line.
  void _Pass(int duration) {
    const auto adjust = [this] {
      // With each new connection the link asks for its own rate.
      if (!_analyser.Commands().empty()) _analyser.SetRate(rate);
      _analyser.ForgetCommands();
      const bool behind = _counter.next != _analyser.LinesSent();
      _time.SetGrace(!_analyser.IsConnected() ? kConnectGrace : behind ? kLineGrace : 0);
      return false;
    };
    PollUntil(adjust, duration);
  }

  void _PassAnHour() {
    for (int minute = 0; minute < 60; ++minute) {
      _Pass(kMinute);
      int64_t all = 0;
      for (const std::string& name : _disk.Names()) all += FileSize(_disk / name);
      EXPECT_LE(all, disk_bytes / 100 * (kPercent + 1) + _largest) << "a share is cut to whole percent";
    }
    _CheckNewestPacked();
  }

  // It is dated by the day's time, as the system's has hardly gone on.
  void _CheckNewestPacked() {
    for (int status = 0; wait(&status) > 0;) EXPECT_EQ(0, status) << "zip";
    std::string zip, text;
    for (const std::string& name : _disk.Names())
      if (name.ends_with(".zip")) zip = _disk / name;
    const utimbuf now = {time(nullptr), time(nullptr)};
    EXPECT_EQ(0, utime(zip.c_str(), &now));
    EXPECT_EQ(0, RunProgramCaptureStdout("/usr/bin/unzip -p " + zip, text));
    _largest = std::max<int64_t>(text.size(), _largest);
    _CheckLines(text);
  }

  // No line is missing but those that a reset has taken along, and each one is what was sent.
  void _CheckLines(const std::string& text) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line) && !line.starts_with("DATAH\t")) continue;
    while (std::getline(lines, line)) {
      line += '\n';
      int seconds = 0, nanoseconds = 0, number = 0;
      std::sscanf(line.c_str(), "DATA %d %d %*s %*s %*s %*s %*s %*s %*s %d", &seconds, &nanoseconds, &number);
      if (line != Analyser::DataLine(seconds, nanoseconds, number)) ADD_FAILURE() << line;
      if (number != _next && (number < _next || _resets.count(number) == 0)) ADD_FAILURE() << _next << " is missing";
      _lost += number - _next;
      _next = number + 1;
    }
  }

  const TempDirectory& _disk;
  VirtualTime _time;
  Analyser _analyser{"127.0.0.1", kPort};
  Counter _counter;
  Recorder _recorder{{_disk.Path(), "head", 3'600, kPercent, false}};
  std::set<int> _resets;  // how many lines had been sent
  int _next = 0;          // number of the line that a file has next
  int _lost = 0;
  int64_t _largest = 0;  // bytes, of a file's text
};

TEST(Road, ADayOfTroubles) {
  if (!AdoptOrphans()) GTEST_SKIP() << "the zip programs couldn't be waited for";
  const TempDirectory disk;
  ExpectInMountNamespace([&disk] {
    // A network of its own for the fixed port: on one of the system's choice a link may meet itself.
    ASSERT_EQ(0, unshare(CLONE_NEWNET));
    ASSERT_EQ(0, RunProgram("/bin/sh -c 'ip link set lo up'"));
    MountEmpty(disk.Path(), "size=" + std::to_string(disk_bytes));
    AvahiHosts::UseNone();
    AdoptOrphans();  // the zip programs
    Day(disk).Run();
  });
}

TEST(Road, TheAnalyserIsFoundAgainAtAnotherAddress) {
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
  const AvahiHosts hosts;
  const TempDirectory disk;
  std::optional<Analyser> analyser;
  Counter counter;
  Recorder recorder({disk.Path()});
  recorder.RegisterListener(&counter);
  recorder.ConnectToName("meadow");
  BonjourResolver known;
  BonjourClient browser(&known);
  browser.Browse(Analyser::kType);
  for (const int host : {1, 0}) {
    hosts.Use(host);
    hosts.InNetwork(host, [&] { analyser.emplace("::", kPort).Announce("meadow"); });
    counter.records = 0;
    hosts.InNetwork(0, [&] { EXPECT_TRUE(PollUntil([&] { return counter.records >= 3; }, kMinute)) << host; });
    analyser->Vanish();
    EXPECT_TRUE(PollUntil([&] { return known.Hosts().empty() && !recorder.GetHead().IsConnected(); }));
  }
  EXPECT_EQ(1U, disk.Names().size());
}

}  // namespace
