// Addresses from and to text, each beside the inet_pton(3) or inet_ntop(3) call inside it.
//
// The time shown is that of a batch of a thousand.

#include <arpa/inet.h>

#include <string>

#include "bench/turns.h"
#include "net/socketaddress.h"

namespace {

void Parse(benchmark::State& state, const char* input) {
  std::string text = input;
  SocketAddress address(text);
  const int family = address._SockAddr()->sa_family;
  const auto own = [&] {
    benchmark::DoNotOptimize(text);
    address.Presentation(text);
    benchmark::DoNotOptimize(address);
  };
  const auto peer = [&] {
    in6_addr bytes;
    benchmark::DoNotOptimize(text);
    benchmark::DoNotOptimize(::inet_pton(family, text.c_str(), &bytes));
    benchmark::DoNotOptimize(bytes);
  };
  Turns({{"own", Batch(own)}, {"inet_pton", Batch(peer)}}).Measure(state);
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
  const auto peer = [&] {
    char text[INET6_ADDRSTRLEN];
    benchmark::DoNotOptimize(bytes);
    benchmark::DoNotOptimize(::inet_ntop(family, &bytes, text, sizeof text));
    benchmark::DoNotOptimize(text);
  };
  Turns({{"own", Batch(own)}, {"inet_ntop", Batch(peer)}}).Measure(state);
}

BENCHMARK_CAPTURE(Parse, ipv4, "192.168.101.254")->UseManualTime();
BENCHMARK_CAPTURE(Parse, ipv6_short, "fe80::1")->UseManualTime();
BENCHMARK_CAPTURE(Parse, ipv6_long, "2001:db8:1234:5678:9abc:def0:1234:5678")->UseManualTime();
BENCHMARK_CAPTURE(Present, ipv4, "192.168.101.254")->UseManualTime();
BENCHMARK_CAPTURE(Present, ipv6_short, "fe80::1")->UseManualTime();
BENCHMARK_CAPTURE(Present, ipv6_long, "2001:db8:1234:5678:9abc:def0:1234:5678")->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
