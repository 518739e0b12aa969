// Rounds of discovery against real Avahi daemons, and what they leave behind.
//
// "Browse", one round: a client is made on one host, browses, resolves a service of the other host over IPv4 and IPv6,
// and is destroyed. The peer does the same on the library's own loop, avahi_simple_poll; the two take turns, and
// "ratio" is own time divided by peer time.
//
// "Withdraw", a hundred rounds at once: services are registered, found, resolved, withdrawn and lost again.
//
// Both tell by how much the process's descriptors, heap bytes, watches and timeouts have grown from the end of a first
// round to that of the last. They need the right to make namespaces; --benchmark_min_time=25 makes it a thousand.

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/simple-watch.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <string>

#include "emulators/avahi_hosts.h"
#include "net/avahipoll.h"
#include "net/bonjourclient.h"

namespace {

constexpr int kBatch = 100;
constexpr const char* kType = "_moorlog-bench._tcp";

struct Held {
  double descriptors, bytes, watches, timeouts;

  static Held Now() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return {static_cast<double>(std::distance(begin(open), end(open))), static_cast<double>(mallinfo2().uordblks),
            static_cast<double>(_avahi_watch_count()), static_cast<double>(_avahi_timeout_count())};
  }

  void ReportGrowth(benchmark::State& state) const {
    const Held now = Now();
    state.counters["grown_descriptors"] = now.descriptors - descriptors;
    state.counters["grown_bytes"] = now.bytes - bytes;
    state.counters["grown_watches"] = now.watches - watches;
    state.counters["grown_timeouts"] = now.timeouts - timeouts;
  }
};

template <typename Job>
double Seconds(Job job) {
  const auto start = std::chrono::steady_clock::now();
  job();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

template <typename Done>
void PollUntil(Done done) {
  while (!done()) PollProcessor::Instance().Poll(-1);
}

// Both sides of "Browse" end when the service has two addresses.

void Own() {
  BonjourResolver found;
  BonjourClient client(&found);
  client.Browse(kType);
  PollUntil([&found] { return !found.Hosts().empty() && found.Hosts().front()->addresses.size() == 2; });
}

struct Peer {
  AvahiSimplePoll* loop = avahi_simple_poll_new();
  AvahiClient* client = nullptr;
  int found = 0;

  static void Changed(AvahiClient*, AvahiClientState, void*) {}
  static void Browsed(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                      const char* name, const char* type, const char* domain, AvahiLookupResultFlags, void* self) {
    if (event == AVAHI_BROWSER_NEW)
      avahi_service_resolver_new(static_cast<Peer*>(self)->client, interface, protocol, name, type, domain, protocol,
                                 AvahiLookupFlags{}, Resolved, self);
  }
  static void Resolved(AvahiServiceResolver* resolver, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent, const char*,
                       const char*, const char*, const char*, const AvahiAddress*, uint16_t, AvahiStringList*,
                       AvahiLookupResultFlags, void* self) {
    ++static_cast<Peer*>(self)->found;
    avahi_service_resolver_free(resolver);
  }

  void Run() {
    client = avahi_client_new(avahi_simple_poll_get(loop), AvahiClientFlags{}, Changed, this, nullptr);
    avahi_service_browser_new(client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, kType, "local", AvahiLookupFlags{}, Browsed,
                              this);
    while (found != 2) avahi_simple_poll_iterate(loop, -1);
    avahi_client_free(client);
    avahi_simple_poll_free(loop);
  }
};

void Browse(benchmark::State& state) {
  const AvahiHosts hosts;
  hosts.Publish(1, "head-1", kType, 5500, {"serial=313233"});
  Own();
  Peer().Run();
  const Held before = Held::Now();
  double own = 0;
  double peer = 0;
  for ([[maybe_unused]] auto _ : state) {
    own += Seconds(Own);
    peer += Seconds([] { Peer().Run(); });
  }
  before.ReportGrowth(state);
  state.counters["own_ms"] = 1e3 * own / static_cast<double>(state.iterations());
  state.counters["ratio"] = own / peer;
}

void WithdrawBatch() {
  BonjourResolver found;
  BonjourClient browsing(&found);
  BonjourClient offering(&found);
  browsing.Browse(kType);
  for (int i = 0; i < kBatch; ++i)
    offering.Register("head-" + std::to_string(i), kType, "", 5500, {{"serial", std::to_string(i)}}, i == kBatch - 1);
  PollUntil([&found] { return found.Hosts().size() == kBatch; });
  offering.Clear();
  PollUntil([&found] { return found.Hosts().empty(); });
}

void Withdraw(benchmark::State& state) {
  const AvahiHosts hosts;
  WithdrawBatch();
  const Held before = Held::Now();
  for ([[maybe_unused]] auto _ : state) WithdrawBatch();
  before.ReportGrowth(state);
}

BENCHMARK(Browse)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(Withdraw)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  // The allocator counts what it keeps at hand for the next request as held: it shall keep nothing.
  if (std::getenv("GLIBC_TUNABLES") == nullptr) {
    setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0:glibc.malloc.mxfast=0", 1);
    execv("/proc/self/exe", argv);
  }
  if (const std::string why = AvahiHosts::Missing(); !why.empty()) {
    std::puts(why.c_str());
    return 0;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
