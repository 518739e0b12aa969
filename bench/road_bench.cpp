// The road of a data line: from the bytes of a socket over the link and the decoder into the logger's file, beside mawk
// doing the check of the sum and the copy alone, from file to file. Files are in memory (/dev/shm).
//
// Times are those of all lines of a run.
//   lines/s     of ours
//   cpu_us      CPU time of ours for one line in microseconds, system calls and the sender's part included
//   news        allocations a line
//   own/mawk    our time divided by mawk's; 0.5 and below is twice as fast

#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "analyser/ch4device.h"
#include "bench/news.h"
#include "bench/silence.h"
#include "bench/turns.h"
#include "emulators/analyser.h"
#include "emulators/temp_directory.h"
#include "logging/logger.h"
#include "net/socket.h"
#include "runtime/datachecksum.h"

namespace {

constexpr int kLines = 20'000;
constexpr size_t kChunk = 65'536;  // bytes, what the sender writes at once

constexpr const char* kScript = R"awk(
BEGIN { for (i = 1; i < 256; i++) code[sprintf("%c", i)] = i }
$1 == "DATA" {
  end = length($0) - 3
  sum = 0
  for (i = 1; i <= end; i++) sum += code[substr($0, i, 1)]
  if (sum % 256 == substr($0, end + 1) + 0) print
}
)awk";

double CPUSeconds() {
  rusage usage;
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class Road : public Head::Listener, public CH4Device::Listener {
 public:
  // Without decoding it only checks and copies.
  explicit Road(bool decodes) : _decodes(decodes) {
    for (int i = 0; i < kLines; ++i) _bytes += Analyser::DataLine(1'700'000'000 + i / 10, i % 10 * 100'000'000, i);
    std::ofstream(_folder + "/in") << _bytes;
    std::ofstream(_folder + "/script") << kScript;
    _device.RegisterListener(this);
    const std::string headers = Analyser::Headers();
    _device.HeadGotLine(headers.substr(0, headers.find('\n') + 1));
    _device.HeadGotLine(headers.substr(headers.find('\n') + 1));
    _logger.SetMountPath(_folder);
    _logger.SetHostname("bench");
    _logger.SetDateTime("2024-03-01", "000000");
    _Connect();
  }
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;
  ~Road() noexcept override {}

  void HeadGotLine(std::string line) override {
    if (!_decodes && !CheckSumAgrees(line)) return;
    _logger.WriteDATA(line, 0);
    if (_decodes) _device.HeadGotLine(std::move(line));
  }
  void GotCH4Data(const CH4Data& data) override { _total += data.values[1]; }

  void HeadGotRaw(std::string data) override { _received += data.size(); }

  void Run() {
    const Silence silence;
    const double start = CPUSeconds();
    const int64_t news_before = news;
    _logger.StartLogging();
    _received = 0;
    for (size_t sent = 0; sent < _bytes.size();) {
      sent += _peer.Write(_bytes.data() + sent, static_cast<unsigned int>(std::min(kChunk, _bytes.size() - sent)));
      while (_received < sent) PollProcessor::Instance().Poll(-1);
    }
    _logger.StopLogging();
    cpu_seconds += CPUSeconds() - start;
    allocations += news - news_before;
    ++runs;
    benchmark::DoNotOptimize(_total);
  }

  void Mawk() const {
    const std::string command = "LC_ALL=C mawk -f " + _folder + "/script " + _folder + "/in > " + _folder + "/out";
    if (std::system(command.c_str()) != 0) std::abort();
  }

  // Both have copied every line.
  bool Agrees() const {
    const auto size = [this](const char* name) { return std::filesystem::file_size(_folder + name); };
    return size("/out") == _bytes.size() && size("/bench-2024-03-01T000000.txt") > _bytes.size();
  }

  double cpu_seconds = 0;
  int64_t allocations = 0;
  int runs = 0;

 private:
  void _Connect() {
    Socket door(Socket::FamilyIPv4, Socket::TypeStream, 0);
    SocketAddress address("127.0.0.1");
    door.Bind(address);
    door.Listen(1);
    door.GetSockName(&address);
    _head.emplace(this, address.Port(), false);
    _head->Connect("127.0.0.1");
    while (!_head->IsConnected()) PollProcessor::Instance().Poll(-1);
    _peer = door.Accept(nullptr);
  }

  const bool _decodes;
  const TempDirectory _memory{TempDirectory::Memory()};
  const std::string _folder = _memory.Path();
  std::string _bytes;
  CH4Device _device{false};
  Logger _logger{"", "UTC", false};
  std::optional<Head> _head;
  Socket _peer;
  size_t _received = 0;
  double _total = 0;
};

void BM_Road(benchmark::State& state, bool decodes) {
  Road road(decodes);
  Turns turns({{"own", [&] { road.Run(); }}, {"mawk", [&] { road.Mawk(); }}});
  turns.Measure(state);
  if (!road.Agrees()) state.SkipWithError("lines were lost");
  state.counters["lines/s"] = kLines / turns.Median(0);
  state.counters["cpu_us"] = road.cpu_seconds * 1e6 / road.runs / kLines;
  state.counters["news"] = double(road.allocations) / road.runs / kLines;
}

BENCHMARK_CAPTURE(BM_Road, check_and_copy, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Road, whole_road, true)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
