#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <stdexcept>

#include "net/avahipoll.h"
#include "net/bonjourclient.h"
#include "tests/support/avahi_hosts.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"

using testing::ElementsAre;

namespace {

constexpr const char* kType = "_moorlog-test._tcp";
using Txt = std::map<std::string, std::string>;

bool Until(const std::function<bool()>& done) {
  return PollUntil(done, 30'000);
}

// The table, and in `on_event` what the test wants to happen in each call.
struct Listener : BonjourResolver {
  void AddService(std::string name, std::string type, std::string domain, unsigned int interface, std::string host,
                  const SocketAddress& address, const Txt& txt) override {
    ++added;
    BonjourResolver::AddService(name, type, domain, interface, host, address, txt);
    on_event();
  }
  void ServiceError(std::string message) override {
    errors.push_back(message);
    on_event();
  }
  bool Finds(const std::string& name, size_t addresses) const {
    return Until([&] { return Lookup(name) != nullptr && Lookup(name)->addresses.size() == addresses; });
  }

  int added = 0;
  std::vector<std::string> errors;
  std::function<void()> on_event = [] {};
};

// A callback of the library's kind.
void Watched(AvahiWatch*, int, AvahiWatchEvent event, void* action) {
  (*static_cast<std::function<void(int)>*>(action))(event);
}

const AvahiPoll& api = *_avahi_poll_get();

TEST(AvahiPoll, GivesEachWatchOfADescriptorItsOwnEvents) {
  const int fd = eventfd(1, EFD_CLOEXEC);  // readable and writable
  std::vector<int> got;
  std::function<void(int)> action = [&](int event) { got.push_back(event); };
  AvahiWatch* const read = api.watch_new(&api, fd, AVAHI_WATCH_IN, Watched, &action);
  AvahiWatch* const write = api.watch_new(&api, fd, AVAHI_WATCH_OUT, Watched, &action);
  PollPasses(1);
  EXPECT_THAT(got, ElementsAre(AVAHI_WATCH_IN, AVAHI_WATCH_OUT));
  // The first is freed in the callback of the second, and that one in its own.
  api.watch_update(read, AVAHI_WATCH_ERR);
  action = [&](int event) { got.push_back(event), api.watch_free(read), api.watch_free(write); };
  PollPasses(2);
  EXPECT_THAT(got, ElementsAre(AVAHI_WATCH_IN, AVAHI_WATCH_OUT, AVAHI_WATCH_OUT));
  close(fd);
}

TEST(BonjourResolver, KeepsATableByName) {
  BonjourResolver table;
  const SocketAddress ipv4("10.77.0.2"), ipv6("fe80::2");
  table.AddService("head-1", "_a._tcp", "local", 3, "one.local", ipv6, {{"k", "v"}});
  table.AddService("HEAD-1", "_a._tcp", "local", 3, "other.local", ipv6, {});
  table.AddService("head-1", "_b._tcp", "local", 4, "two.local", ipv4, {{"k", "w"}});
  EXPECT_TRUE(table.Changed());
  const BonjourResolver::HostInfo& found = *table.Lookup("Head-1");
  EXPECT_EQ("head-1 _a._tcp one.local", found.name + ' ' + found.type + ' ' + found.host);
  EXPECT_THAT(found.addresses, ElementsAre(ipv4, ipv6));
  EXPECT_EQ((Txt{{"k", "v"}}), found.txt);

  table.RemoveService("head-1", "_c._tcp", "elsewhere");
  EXPECT_EQ("HEAD-1", table.Lookup("head-1")->name);

  // A type that is left out takes the name with it, now and later.
  table.ExcludeType("_x._tcp");
  for (const char* type : {"_x._tcp", "_a._tcp"}) table.AddService("HEAD-1", type, "local", 3, "one.local", ipv6, {});
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
    client.Clear();
  }
  const std::string error = "Unable to create Avahi client\n";
  EXPECT_THAT(listener.errors, ElementsAre(error, error));
}

class Discovery : public testing::Test {
 protected:
  ~Discovery() noexcept override = default;
  void SetUp() override {
    if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
    hosts = std::make_unique<AvahiHosts>();
    client = std::make_unique<BonjourClient>(&finder);
    client->Browse(kType);
  }
  void TearDown() override {
    client.reset();
    EXPECT_EQ(0U, _avahi_watch_count() + _avahi_timeout_count());
  }

  std::unique_ptr<AvahiHosts> hosts;
  Listener finder;
  std::unique_ptr<BonjourClient> client;  // on host 0
};

TEST_F(Discovery, FindsResolvesAndLosesAServiceOfAnotherHost) {
  hosts->Use(1);
  BonjourClient offering(&finder), waiting(&finder);
  const Txt txt = {{"a", "b=c"}, {"bytes", std::string("\0\x01\xFF=", 4)}, {"", "no key"}, {"empty", ""}};
  waiting.Register("later", kType, "", 1, {}, false);
  offering.Register("head-1", kType, "ignored", 5500, txt, true);
  hosts->Publish(1, "strange", kType, 7, {"novalue", "k=61", "k=62", "nul=00", "long=" + std::string(400, '6')});
  ASSERT_TRUE(finder.Finds("head-1", 2) && finder.Finds("strange", 2));

  const BonjourResolver::HostInfo& found = *finder.Lookup("HEAD-1");
  SocketAddress ipv4(AvahiHosts::IPv4(1)), ipv6(AvahiHosts::LinkLocal(1));
  for (SocketAddress* address : {&ipv4, &ipv6}) address->Port(5500);
  ipv6.Scope(found.interface);
  EXPECT_THAT(found.addresses, ElementsAre(ipv4, ipv6));
  EXPECT_EQ("local moorlog-1.local", found.domain + ' ' + found.host);
  EXPECT_EQ(txt, found.txt);
  const Txt strange = {{"k", "b"}, {"long", std::string(200, 'f')}, {"nul", std::string(1, '\0')}};
  EXPECT_EQ(strange, finder.Lookup("strange")->txt);
  EXPECT_EQ(nullptr, finder.Lookup("later"));

  waiting.Commit();
  ASSERT_TRUE(finder.Finds("later", 2));
  hosts->Withdraw(1, "strange");
  offering.Clear();
  EXPECT_TRUE(Until([&] { return finder.Hosts().size() == 1; }));
  EXPECT_EQ(0U, finder.errors.size());
}

TEST_F(Discovery, TellsWhatTheDaemonCantTakeOrFind) {
  hosts->Publish(1, "nowhere", kType, 7, {}, "nowhere.local");
  for (const std::string type : {"", "_x\xFF._tcp", "_x._tcp\xC3", "_\xE0\x80\x80._tcp", "_\xF4\x90\x80\x80._tcp"}) {
    finder.errors.clear();
    client->Browse(type);
    client->Register("name", type, "", 1, {}, false);
    EXPECT_THAT(finder.errors,
                ElementsAre("Unable to browse service type: " + type, "Unable to add service type: " + type));
  }
  BonjourClient other(&finder);
  other.Register("taken", kType, "", 1, {}, true);
  finder.errors.clear();
  const std::string long_text(300, 'x');
  for (const std::string& name : {std::string(), std::string("\xFF"), long_text, std::string("taken")})
    client->Register(name, kType, "", 2, {}, false);
  for (const int port : {-1, 65536}) client->Register("name", kType, "", port, {}, false);
  client->Register("name", kType, "", 1, {{"key", long_text}}, false);
  EXPECT_EQ(7U, finder.errors.size());
  client->Commit();  // of nothing
  EXPECT_EQ("Unable to register services", finder.errors.back());

  finder.errors.clear();
  EXPECT_TRUE(Until([&] { return finder.errors.size() == 2; }));
  EXPECT_EQ("Unable to resolve service: nowhere: Timeout reached\n", finder.errors.back());
}

TEST_F(Discovery, OutlivesDaemonAndBus) {
  const auto disconnected = [] { return _avahi_watch_count() == 0; };
  hosts->Publish(1, "head-1", kType, 7, {});
  ASSERT_TRUE(finder.Finds("head-1", 2));
  hosts->StopDaemon(0);
  EXPECT_TRUE(Until(disconnected));
  client->Browse(kType);
  client->Register("mine", kType, "", 1, {}, true);
  client->Clear();
  EXPECT_THAT(finder.errors,
              ElementsAre("Unable to browse service type: " + std::string(kType), "Unable to create Avahi client\n"));

  hosts->StartDaemon(0);
  client->Clear();
  client->Browse(kType);
  EXPECT_TRUE(Until([&] { return finder.added == 4; }));
  hosts->StopBus(0);
  EXPECT_TRUE(Until(disconnected));
  client->Clear();
}

TEST_F(Discovery, LetsAListenerThrowClearAndDestroy) {
  hosts->Publish(1, "head-1", kType, 7, {});
  client->Register("mine", kType, "", 1, {}, true);
  finder.on_event = [] { throw std::runtime_error("enough"); };
  EXPECT_EQ("enough", ErrorText([&] { Until([&] { return finder.added == 2; }); }));

  finder.on_event = [&, port = 1]() mutable {
    if (!finder.errors.empty()) throw std::runtime_error(finder.errors.back());
    client->Clear();
    client->Browse(kType);
    client->Register("mine", kType, "", ++port, {}, true);
  };
  EXPECT_TRUE(Until([&] { return finder.added >= 4; }));
  EXPECT_EQ(0U, finder.errors.size());
  finder.on_event = [&] { client.reset(); };
  EXPECT_TRUE(Until([&] { return client == nullptr; }));
}

}  // namespace
