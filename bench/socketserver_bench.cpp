// The socket server beside libevent's bufferevent on its poll backend: both echo records of 100 bytes over loopback, on
// one thread with the peers. The jobs take turns.
//
//   Echo/raw/N/B   B records at once on each of N connections, echoed as they came
//   Echo/lines/N/B cut at line ends and echoed line by line; the peer uses evbuffer_readln
//     records/s    of ours
//     own/bufferevent
//                  our time divided by the peer's; below 1 we are faster
//   Queue          10 MB, written in records of 100 bytes, to a peer that reads 64 KiB at a time; and 20 MB
//     2n/n         time for twice the length divided by time for once
//     peak/queue   the most resident memory that it took, divided by its length
//   File           1 GB by WriteFile
//     peak         the most resident memory that it took, in bytes
//   Endless        64 MB without a delimiter: what becomes of memory, as peak/queue
//   Idle/N         a pass of the loop with N clients to which nothing happens
//     bytes        of heap for each of them
//     news         allocations a pass
//     own/poll     our time divided by that of poll(2) on the same sockets

#include <benchmark/benchmark.h>
#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <malloc.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/news.h"
#include "bench/turns.h"
#include "net/socketserver.h"

namespace {

const std::string kRecord = std::string(99, 'r') + '\n';

void Pass() {
  PollProcessor::Instance().Poll(-1);
}

SocketAddress Local(int port) {
  SocketAddress address("127.0.0.1");
  address.Port(port);
  return address;
}

// The other ends.
class Peers {
 public:
  Peers(int port, int count) : _sockets(count) {
    for (Socket& socket : _sockets) {
      socket.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
      socket.Connect(Local(port));
    }
  }
  // Sends these records on each, and gives `pass` the time that it takes until all are back.
  template <typename Pass>
  void Echo(const std::string& records, Pass pass) {
    for (Socket& socket : _sockets) socket.Write(records);
    std::array<char, 4096> data;
    size_t back = 0;
    for (const size_t all = _sockets.size() * records.size(); back < all;) {
      pass();
      for (const Socket& socket : _sockets)
        back += std::max<ssize_t>(recv(socket.Fileno(), data.data(), data.size(), MSG_DONTWAIT), 0);
    }
  }
  Socket& Front() { return _sockets.front(); }

 private:
  std::vector<Socket> _sockets;
};

class Own : private SocketServerListener {
 public:
  Own(const std::string& delimiter, int count)
      : _server(delimiter, Socket::FamilyIPv4), _port(Listen()), _peers(_port, count) {
    while (_server.Clients().size() < static_cast<size_t>(count)) Pass();
  }
  void Echo(const std::string& records) { _peers.Echo(records, Pass); }
  SocketClient& Front() { return *_server.Clients().front(); }
  // What the loop asks the system about them.
  std::vector<pollfd> Asked() const {
    std::vector<pollfd> asked = {{_server.Fileno(), _server.RequestedEvents(), 0}};
    for (const auto& client : _server.Clients()) asked.push_back({client->Fileno(), client->RequestedEvents(), 0});
    return asked;
  }
  Socket& Peer() { return _peers.Front(); }

 private:
  int Listen() {
    _server.RegisterListener(*this);
    _server.Listen(0);
    return _server.Port();
  }
  void GotRequest(SocketClient& client, const std::string& data) override { client.Write(data); }

  SocketServer _server;
  const int _port;
  Peers _peers;
};

class BufferEvents {
 public:
  BufferEvents(bool lines, int count) {
    event_config* config = event_config_new();
    for (const char* other : {"epoll", "select"}) event_config_avoid_method(config, other);
    _base = event_base_new_with_config(config);
    event_config_free(config);
    Socket door(Socket::FamilyIPv4, Socket::TypeStream, 0);
    door.Bind(Local(0));
    door.Listen(1024);
    SocketAddress address("::");
    door.GetSockName(&address);
    _peers = std::make_unique<Peers>(address.Port(), count);
    for (int i = 0; i < count; ++i) {
      const int fileno = accept(door.Fileno(), nullptr, nullptr);
      evutil_make_socket_nonblocking(fileno);
      _events.push_back(bufferevent_socket_new(_base, fileno, BEV_OPT_CLOSE_ON_FREE));
      bufferevent_setcb(_events.back(), lines ? EchoLines : EchoRaw, nullptr, nullptr, nullptr);
      bufferevent_enable(_events.back(), EV_READ | EV_WRITE);
    }
  }
  BufferEvents(const BufferEvents&) = delete;
  BufferEvents& operator=(const BufferEvents&) = delete;
  ~BufferEvents() {
    for (bufferevent* one : _events) bufferevent_free(one);
    event_base_free(_base);
  }
  void Echo(const std::string& records) {
    _peers->Echo(records, [this] { event_base_loop(_base, EVLOOP_ONCE); });
  }

 private:
  static void EchoRaw(bufferevent* one, void*) { bufferevent_write_buffer(one, bufferevent_get_input(one)); }
  static void EchoLines(bufferevent* one, void*) {
    evbuffer* const input = bufferevent_get_input(one);
    size_t size = 0;
    while (char* line = evbuffer_readln(input, &size, EVBUFFER_EOL_LF)) {
      bufferevent_write(one, line, size);
      bufferevent_write(one, "\n", 1);
      free(line);
    }
  }

  event_base* _base;
  std::unique_ptr<Peers> _peers;
  std::vector<bufferevent*> _events;
};

void Echo(benchmark::State& state, const char* delimiter) {
  const int count = static_cast<int>(state.range(0));
  const auto burst = static_cast<int>(state.range(1));
  std::string records;
  for (int i = 0; i < burst; ++i) records += kRecord;
  Own own(delimiter, count);
  BufferEvents peer(*delimiter != 0, count);
  Turns turns({{"own", [&] { own.Echo(records); }}, {"bufferevent", [&] { peer.Echo(records); }}});
  turns.Measure(state, std::max(100 / count, 1));
  state.counters["records/s"] = count * burst / turns.Median(0);
}
BENCHMARK_CAPTURE(Echo, raw, "")->ArgsProduct({{1, 50}, {1, 40}})->UseManualTime()->Iterations(1000);
BENCHMARK_CAPTURE(Echo, lines, "\n")->ArgsProduct({{1, 50}, {1, 40}})->UseManualTime()->Iterations(1000);

// The growth of the resident memory at its highest, in bytes, since the object was built.
class Peak {
 public:
  double Bytes() const { return HighWater() - _before; }

 private:
  // From here on the highest is what there is now.
  static double Start() {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;
    return HighWater();
  }
  static double HighWater() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
      if (word == "VmHWM:" && status >> word) return std::stod(word) * 1024;
    return 0;
  }
  const double _before = Start();
};

// Until the peer has read so many bytes.
void Drain(Own& own, size_t left) {
  std::vector<char> data(65'536);
  while (left > 0) {
    const ssize_t count = recv(own.Peer().Fileno(), data.data(), data.size(), MSG_DONTWAIT);
    left -= std::max<ssize_t>(count, 0);
    PollProcessor::Instance().Poll(0);
  }
}

constexpr size_t kQueue = 10'000'000;  // bytes

void Queue(benchmark::State& state) {
  Own own("", 1);
  double peak = 0;
  const auto send = [&own](size_t size) {
    for (size_t queued = 0; queued < size; queued += kRecord.size()) own.Front().Write(kRecord);
    Drain(own, size);
  };
  {
    const Peak now;
    send(kQueue);
    peak = now.Bytes();
  }
  Turns turns({{"once", [&] { send(kQueue); }}, {"twice", [&] { send(2 * kQueue); }}});
  for ([[maybe_unused]] auto _ : state) state.SetIterationTime(turns.Round());
  state.counters["2n/n"] = turns.Median(1) / turns.Median(0);
  state.counters["MB/s"] = kQueue / 1e6 / turns.Median(0);
  state.counters["peak/queue"] = peak / kQueue;
}
BENCHMARK(Queue)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

void File(benchmark::State& state) {
  constexpr size_t kSize = 1'000'000'000;
  std::string path = "/tmp/moorlog-bench-XXXXXX";
  const int fileno = mkstemp(path.data());
  if (fileno < 0 || ftruncate(fileno, kSize) != 0) std::abort();  // all holes: what counts is the way out
  close(fileno);
  Own own("", 1);
  for ([[maybe_unused]] auto _ : state) {
    const Peak peak;
    own.Front().WriteFile(path);
    Drain(own, kSize);
    state.counters["peak"] = peak.Bytes();
  }
  state.SetBytesProcessed(static_cast<int64_t>(kSize) * state.iterations());
  unlink(path.c_str());
}
BENCHMARK(File)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void Endless(benchmark::State& state) {
  constexpr size_t kSize = 64'000'000;
  Own own("\n", 1);
  const std::string chunk(64'000, 'x');
  for ([[maybe_unused]] auto _ : state) {
    const Peak peak;
    for (size_t sent = 0; sent < kSize; sent += chunk.size()) {
      own.Peer().Write(chunk);
      for (int passes = 0; passes < 40; ++passes) PollProcessor::Instance().Poll(0);
    }
    state.counters["peak/queue"] = peak.Bytes() / kSize;
  }
}
BENCHMARK(Endless)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

void Idle(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  rlimit files;
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
  const size_t before = mallinfo2().uordblks;
  Own own("\n", count);
  state.counters["bytes"] = static_cast<double>(mallinfo2().uordblks - before) / count;
  std::vector<pollfd> bare = own.Asked();
  const auto pass = [] { PollProcessor::Instance().Poll(0); };
  for (int quiet = 0; quiet < 10; ++quiet) pass();
  int64_t passed = 0;
  int64_t own_news = 0;
  Turns turns({{"own",
                [&] {
                  const int64_t news_before = news;
                  pass();
                  own_news += news - news_before;
                  ++passed;
                }},
               {"poll", [&] { benchmark::DoNotOptimize(poll(bare.data(), bare.size(), 0)); }}});
  turns.Measure(state, 100);
  state.counters["news"] = static_cast<double>(own_news) / static_cast<double>(passed);
}
BENCHMARK(Idle)->Arg(200)->Arg(1000)->UseManualTime()->Iterations(1000);

}  // namespace

BENCHMARK_MAIN();
