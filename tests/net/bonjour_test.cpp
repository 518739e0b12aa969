#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>

#include "net/avahipoll.h"
#include "net/bonjourclient.h"
#include "tests/support/avahi_hosts.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

constexpr const char* kType = "_moorlog-test._tcp";
using Txt = std::map<std::string, std::string>;

// The table, and in `on_event` what the test wants to happen in each call.
class Listener : public BonjourResolver {
 public:
  void AddService(std::string name, std::string type, std::string domain, unsigned int interface, std::string host,
                  const SocketAddress& address, const Txt& txt) override {
    ++added;
    BonjourResolver::AddService(name, type, domain, interface, host, address, txt);
    if (on_event) on_event();
  }
  void RemoveService(std::string name, std::string type, std::string domain) override {
    ++removed;
    BonjourResolver::RemoveService(name, type, domain);
    if (on_event) on_event();
  }
  void ServiceError(std::string message) override {
    errors.push_back(message);
    if (on_event) on_event();
  }

  size_t AddressesOf(const std::string& name) const {
    const HostInfo* info = Lookup(name);
    return info == nullptr ? 0 : info->addresses.size();
  }

  int added = 0;
  int removed = 0;
  std::vector<std::string> errors;
  std::function<void()> on_event;
};

// Callbacks for the adapters, as the library would give them: `userdata` is a Probe.
struct Probe {
  int calls = 0;
  int events = 0;
  AvahiWatchEvent seen_inside{};
  std::function<void()> inside = [] {};

  static void Watch(AvahiWatch* watch, int, AvahiWatchEvent event, void* self) {
    auto& probe = *static_cast<Probe*>(self);
    probe.events |= event;
    probe.seen_inside = _avahi_poll_get()->watch_get_events(watch);
    Timeout(nullptr, self);
  }
  static void Timeout(AvahiTimeout*, void* self) {
    ++static_cast<Probe*>(self)->calls;
    AvahiCall::Guard(static_cast<Probe*>(self)->inside);
  }
};

class AvahiPollTest : public testing::Test {
 protected:
  AvahiPollTest() {
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends));
    EXPECT_EQ(1, write(ends[1], "x", 1));  // so that ends[0] is readable and writable
  }
  ~AvahiPollTest() override {
    for (int end : ends) close(end);
    EXPECT_EQ(0U, _avahi_watch_count());
    EXPECT_EQ(0U, _avahi_timeout_count());
  }

  const AvahiPoll& api = *_avahi_poll_get();
  int ends[2];
};

TEST_F(AvahiPollTest, EachWatchOfADescriptorGetsItsOwnEvents) {
  Probe reader;
  Probe writer;
  AvahiWatch* read = api.watch_new(&api, ends[0], AVAHI_WATCH_IN, Probe::Watch, &reader);
  AvahiWatch* write = api.watch_new(&api, ends[0], AVAHI_WATCH_OUT, Probe::Watch, &writer);
  EXPECT_EQ(ends[0], write->Fileno());
  PollPasses(1);
  EXPECT_EQ(AVAHI_WATCH_IN, reader.events);
  EXPECT_EQ(AVAHI_WATCH_OUT, writer.events);
  EXPECT_EQ(1, writer.calls);
  EXPECT_EQ(0, reader.seen_inside);
  EXPECT_EQ(AVAHI_WATCH_IN, api.watch_get_events(read));
  EXPECT_EQ(AVAHI_WATCH_OUT, api.watch_get_events(write));

  api.watch_update(read, AVAHI_WATCH_ERR);
  api.watch_update(write, static_cast<AvahiWatchEvent>(AVAHI_WATCH_OUT | AVAHI_WATCH_HUP));
  PollPasses(1);
  EXPECT_EQ(1, reader.calls);
  EXPECT_EQ(2, writer.calls);
  EXPECT_EQ(POLLOUT, write->RequestedEvents());

  // The first of the two goes away in the callback of the second.
  writer.inside = [&] { api.watch_free(std::exchange(read, nullptr)); };
  PollPasses(2);
  EXPECT_EQ(4, writer.calls);
  EXPECT_EQ(1, reader.calls);
  api.watch_free(write);
}

TEST_F(AvahiPollTest, FreesInTheirOwnCallback) {
  Probe probe;
  const timeval now{};
  AvahiWatch* watch = api.watch_new(&api, ends[0], AVAHI_WATCH_IN, Probe::Watch, &probe);
  probe.inside = [&] { api.watch_free(watch); };
  PollPasses(3);
  EXPECT_EQ(1, probe.calls);
  AvahiTimeout* timeout = api.timeout_new(&api, &now, Probe::Timeout, &probe);
  probe.inside = [&] { api.timeout_free(timeout); };
  PollPasses(3);
  EXPECT_EQ(2, probe.calls);
}

TEST_F(AvahiPollTest, TimeoutsAreArmedByTheWallClockAndDisarmedByNull) {
  Probe probe;
  const timeval past{1, 0};
  AvahiTimeout* timeout = api.timeout_new(&api, nullptr, Probe::Timeout, &probe);
  PollPasses(1);
  EXPECT_EQ(0, probe.calls);
  api.timeout_update(timeout, &past);
  PollPasses(2);
  EXPECT_EQ(1, probe.calls);
  api.timeout_update(timeout, &past);
  api.timeout_update(timeout, nullptr);
  PollPasses(1);
  EXPECT_EQ(1, probe.calls);
  EXPECT_TRUE(timeout->IsRegistered());
  api.timeout_free(timeout);

  api.watch_update(nullptr, AVAHI_WATCH_IN);
  EXPECT_EQ(0, api.watch_get_events(nullptr));
  api.watch_free(nullptr);
  api.timeout_update(nullptr, &past);
  api.timeout_free(nullptr);
}

TEST_F(AvahiPollTest, ThrowsOnOnceTheLibraryHasReturned) {
  Probe probe;
  probe.inside = [] { throw std::runtime_error("from the listener"); };
  AvahiWatch* watch = api.watch_new(&api, ends[0], AVAHI_WATCH_IN, Probe::Watch, &probe);
  EXPECT_EQ("from the listener", ErrorText([] { PollPasses(1); }));
  probe.inside = [] {};
  EXPECT_EQ("nothing thrown", ErrorText([] { PollPasses(1); }));
  api.watch_free(watch);
}

TEST(BonjourResolver, KeepsATableByName) {
  BonjourResolver table;
  const SocketAddress ipv4("10.77.0.2");
  const SocketAddress ipv6("fe80::2");
  table.RemoveService("head-1", "_a._tcp", "local");
  EXPECT_FALSE(table.Changed());

  table.AddService("head-1", "_a._tcp", "local", 3, "one.local", ipv6, {{"k", "v"}});
  table.AddService("HEAD-1", "_a._tcp", "local", 3, "other.local", ipv6, {});
  table.AddService("head-1", "_b._tcp", "local", 4, "two.local", ipv4, {{"k", "w"}});
  EXPECT_TRUE(table.Changed());
  EXPECT_EQ(2U, table.Hosts().size());
  const BonjourResolver::HostInfo* found = table.Lookup("Head-1");
  ASSERT_NE(nullptr, found);
  EXPECT_EQ("head-1", found->name);
  EXPECT_EQ("_a._tcp", found->type);
  EXPECT_EQ(3U, found->interface);
  EXPECT_EQ("one.local", found->host);
  EXPECT_THAT(found->addresses, ElementsAre(ipv4, ipv6));
  EXPECT_THAT(found->txt, ElementsAre(Pair("k", "v")));

  table.RemoveService("head-1", "_c._tcp", "elsewhere");
  EXPECT_EQ("HEAD-1", table.Lookup("head-1")->name);

  // A type that is left out takes the name with it, now and later.
  table.ExcludeType("_x._tcp");
  table.AddService("HEAD-1", "_x._tcp", "local", 3, "one.local", ipv6, {});
  table.AddService("HEAD-1", "_a._tcp", "local", 3, "one.local", ipv6, {});
  EXPECT_EQ(nullptr, table.Lookup("head-1"));
}

// Every operation on a client that has no daemon, or no listener to tell.
TEST(BonjourClient, IsAShellWithoutADaemon) {
  AvahiHosts::UseNone();
  Listener listener;
  for (BonjourClientListener* told : {static_cast<BonjourClientListener*>(&listener), {}}) {
    BonjourClient client(told);
    client.Browse(kType);
    client.Register("name", kType, "", 1, {}, true);
    client.Commit();
    client.Clear();
    client.Confirm("name", SocketAddress("::1"));
    client.Debug();
  }
  const std::string error = "Unable to create Avahi client\n";
  EXPECT_THAT(listener.errors, ElementsAre(error, error));

  auto client = std::make_unique<BonjourClient>(&listener);
  listener.on_event = [&client] { client.reset(); };
  client->Clear();
  EXPECT_EQ(nullptr, client);
  EXPECT_EQ(0U, _avahi_watch_count() + _avahi_timeout_count());
}

class Discovery : public testing::Test {
 protected:
  ~Discovery() noexcept override = default;
  void SetUp() override {
    if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
    hosts = std::make_unique<AvahiHosts>();
  }
  void TearDown() override { EXPECT_EQ(0U, _avahi_watch_count() + _avahi_timeout_count()); }

  // A client that the given host's daemon serves.
  std::unique_ptr<BonjourClient> On(int host) {
    hosts->Use(host);
    return std::make_unique<BonjourClient>(&(host == 0 ? finder : announcer));
  }

  // Whether the finder gets to know so many addresses of that service.
  bool Finds(const std::string& name, size_t addresses) {
    return PollUntil([&] { return finder.AddressesOf(name) == addresses; });
  }

  std::unique_ptr<AvahiHosts> hosts;
  Listener finder;     // on host 0
  Listener announcer;  // on host 1
};

TEST_F(Discovery, FindsResolvesAndLosesAServiceOfAnotherHost) {
  const auto browsing = On(0);
  const auto offering = On(1);
  const auto waiting = On(1);
  const Txt txt = {{"a", "b=c"}, {"bytes", std::string("\0\x01\xFF=", 4)}, {"", "no key"}, {"empty", ""}};
  browsing->Browse(kType);
  waiting->Register("later", kType, "", 1, {}, false);
  offering->Register("head-1", kType, "ignored", 5500, txt, false);
  offering->Register("head-2", kType, "ignored", 5501, {}, true);
  ASSERT_TRUE(Finds("head-1", 2));
  ASSERT_TRUE(Finds("head-2", 2));

  const BonjourResolver::HostInfo& found = *finder.Lookup("HEAD-1");
  SocketAddress ipv4(AvahiHosts::IPv4(1));
  SocketAddress ipv6(AvahiHosts::LinkLocal(1));
  ipv4.Port(5500);
  ipv6.Port(5500);
  ipv6.Scope(hosts->Interface(0));
  EXPECT_THAT(found.addresses, ElementsAre(ipv4, ipv6));
  EXPECT_EQ(kType, found.type);
  EXPECT_EQ("local", found.domain);
  EXPECT_EQ(hosts->Interface(0), found.interface);
  EXPECT_EQ(AvahiHosts::Name(1) + ".local", found.host);
  EXPECT_EQ(txt, found.txt);
  EXPECT_THAT(finder.Lookup("head-2")->txt, IsEmpty());
  EXPECT_EQ(4, finder.added);  // nothing of "later"

  waiting->Commit();
  EXPECT_TRUE(Finds("later", 2));
  offering->Register("head-3", kType, "", 5502, {}, true);
  EXPECT_THAT(announcer.errors,
              ElementsAre("Unable to add service type: " + std::string(kType), "Unable to register services"));
  offering->Clear();
  EXPECT_TRUE(PollUntil([&] { return finder.removed == 4; }));
  EXPECT_EQ(1U, finder.Hosts().size());
  EXPECT_THAT(finder.errors, IsEmpty());
}

TEST_F(Discovery, TakesTxtRecordsAsTheyCome) {
  const auto browsing = On(0);
  browsing->Browse(kType);
  hosts->Publish(1, "strange", kType, 7,
                 {"novalue", "k=61", "k=62", "nul=00", "high=ff3d80", "long=" + std::string(400, '6')});
  ASSERT_TRUE(Finds("strange", 2));
  EXPECT_THAT(finder.Lookup("strange")->txt,
              ElementsAre(Pair("high", "\xFF=\x80"), Pair("k", "b"), Pair("long", std::string(200, 'f')),
                          Pair("nul", std::string(1, '\0'))));
  hosts->Withdraw(1, "strange");
  EXPECT_TRUE(Finds("strange", 0));
}

TEST_F(Discovery, TellsWhatTheDaemonCantTakeOrFind) {
  const auto client = On(0);
  client->Browse(kType);
  hosts->Publish(1, "nowhere", kType, 7, {}, "nowhere.local");
  const std::string long_text(300, 'x');
  for (const char* type : {"", "no type", "_xx\xFF._tcp", "_xx._tcp\xC3", "_\xE0\x80\x80x._tcp", "_\xED\xA0\x80x._tcp",
                           "_\xF4\x90\x80\x80x._tcp"}) {
    SCOPED_TRACE(type);
    finder.errors.clear();
    client->Browse(type);
    client->Register("name", type, "", 1, {}, false);
    EXPECT_THAT(finder.errors, ElementsAre("Unable to browse service type: " + std::string(type),
                                           "Unable to add service type: " + std::string(type)));
  }
  finder.errors.clear();
  for (const std::string& name : {std::string(), std::string("\xFF"), long_text})
    client->Register(name, kType, "", 1, {}, false);
  client->Register("name", kType, "", -1, {}, false);
  client->Register("name", kType, "", 65536, {}, false);
  client->Register("name", kType, "", 1, {{"key", long_text}}, false);
  EXPECT_EQ(6U, finder.errors.size());
  client->Commit();
  EXPECT_EQ("Unable to register services", finder.errors.back());

  finder.errors.clear();
  EXPECT_TRUE(PollUntil([&] { return finder.errors.size() == 2; }));
  EXPECT_EQ("Unable to resolve service: nowhere: Timeout reached\n", finder.errors.back());
}

TEST_F(Discovery, OutlivesDaemonAndBus) {
  const auto browsing = On(0);
  browsing->Browse(kType);
  hosts->Publish(1, "head-1", kType, 7, {});
  ASSERT_TRUE(Finds("head-1", 2));

  hosts->StopDaemon(0);
  PollFor(50);
  browsing->Browse(kType);
  browsing->Register("mine", kType, "", 1, {}, true);
  EXPECT_THAT(finder.errors, ElementsAre("Unable to browse service type: " + std::string(kType)));
  browsing->Clear();
  EXPECT_EQ("Unable to create Avahi client\n", finder.errors.back());

  hosts->StartDaemon(0);
  finder.added = 0;
  browsing->Clear();
  browsing->Browse(kType);
  EXPECT_TRUE(PollUntil([&] { return finder.added == 2; }));

  hosts->StopBus(0);
  EXPECT_TRUE(PollUntil([] { return _avahi_watch_count() == 0; }));
  browsing->Clear();
}

TEST_F(Discovery, LetsAListenerThrowClearAndDestroy) {
  auto browsing = On(0);
  browsing->Browse(kType);
  hosts->Publish(1, "head-1", kType, 7, {});
  finder.on_event = [] { throw std::runtime_error("enough"); };
  EXPECT_EQ("enough", ErrorText([&] { PollUntil([&] { return finder.added == 2; }); }));

  finder.on_event = [&] {
    browsing->Clear();
    browsing->Browse(kType);
  };
  const int before = finder.added;
  EXPECT_TRUE(PollUntil([&] { return finder.added == before + 3; }));

  finder.on_event = [&] { browsing.reset(); };
  EXPECT_TRUE(PollUntil([&] { return browsing == nullptr; }));
  EXPECT_EQ(0U, _avahi_watch_count() + _avahi_timeout_count());
}

}  // namespace
