// Addresses from and to text, each beside the inet_pton(3) or inet_ntop(3) call inside it.
//
// Peer and own code take turns within each measurement, so that the ratio doesn't depend on what else the machine
// does: "ratio" is own time divided by peer time, both in nanoseconds for one address.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "net/socketaddress.h"

namespace {

constexpr int kRound = 1000;

template <typename Job>
double Seconds(Job job) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kRound; ++i) job();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <typename Own, typename Peer>
void Compare(benchmark::State& state, Own own, Peer peer) {
  double own_time = 0;
  double peer_time = 0;
  for ([[maybe_unused]] auto _ : state) {
    peer_time += Seconds(peer);
    own_time += Seconds(own);
  }
  const double calls = 1e-9 * kRound * static_cast<double>(state.iterations());
  state.counters["own_ns"] = own_time / calls;
  state.counters["peer_ns"] = peer_time / calls;
  state.counters["ratio"] = own_time / peer_time;
}

void Parse(benchmark::State& state, const char* input) {
  std::string text = input;
  SocketAddress address(text);
  const int family = address._SockAddr()->sa_family;
  const auto own = [&] {
    benchmark::DoNotOptimize(text);
    address.Presentation(text);
    benchmark::DoNotOptimize(address);
  };
  Compare(state, own, [&] {
    in6_addr bytes;
    benchmark::DoNotOptimize(text);
    benchmark::DoNotOptimize(::inet_pton(family, text.c_str(), &bytes));
    benchmark::DoNotOptimize(bytes);
  });
}

void Present(benchmark::State& state, const char* input) {
  SocketAddress address{std::string(input)};
  const int family = address._SockAddr()->sa_family;
  in6_addr bytes;
  ::inet_pton(family, input, &bytes);
  const auto own = [&] {
    benchmark::DoNotOptimize(address);
    std::string text = address.Presentation();
    benchmark::DoNotOptimize(text);
  };
  Compare(state, own, [&] {
    char text[INET6_ADDRSTRLEN];
    benchmark::DoNotOptimize(bytes);
    benchmark::DoNotOptimize(::inet_ntop(family, &bytes, text, sizeof text));
    benchmark::DoNotOptimize(text);
  });
}

BENCHMARK_CAPTURE(Parse, ipv4, "192.168.101.254");
BENCHMARK_CAPTURE(Parse, ipv6_short, "fe80::1");
BENCHMARK_CAPTURE(Parse, ipv6_long, "2001:db8:1234:5678:9abc:def0:1234:5678");
BENCHMARK_CAPTURE(Present, ipv4, "192.168.101.254");
BENCHMARK_CAPTURE(Present, ipv6_short, "fe80::1");
BENCHMARK_CAPTURE(Present, ipv6_long, "2001:db8:1234:5678:9abc:def0:1234:5678");

}  // namespace

BENCHMARK_MAIN();
