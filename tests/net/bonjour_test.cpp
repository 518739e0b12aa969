#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <stdexcept>

#include "emulators/avahi_hosts.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "net/avahipoll.h"
#include "net/bonjourclient.h"
#include "net/bonjourclientimpl.h"
#include "tests/support/error_text.h"

using testing::ElementsAre;

namespace {
bool no_resolver = false;  // the library has none to give
}

extern "C" decltype(avahi_service_resolver_new) __real_avahi_service_resolver_new, __wrap_avahi_service_resolver_new;
AvahiServiceResolver* __wrap_avahi_service_resolver_new(AvahiClient* client, AvahiIfIndex interface,
                                                        AvahiProtocol protocol, const char* name, const char* type,
                                                        const char* domain, AvahiProtocol wanted,
                                                        AvahiLookupFlags flags, AvahiServiceResolverCallback callback,
                                                        void* data) {
  if (no_resolver) return nullptr;
  return __real_avahi_service_resolver_new(client, interface, protocol, name, type, domain, wanted, flags, callback,
                                           data);
}

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
  AvahiWatch *read = nullptr, *write = nullptr;
  std::function<void(int)> action = [&](int event) {
    got.push_back(event);
    got.push_back(api.watch_get_events(event == AVAHI_WATCH_IN ? read : write));  // 0 in the callback, on purpose
  };
  read = api.watch_new(&api, fd, AVAHI_WATCH_IN, Watched, &action);
  write = api.watch_new(&api, fd, AVAHI_WATCH_OUT, Watched, &action);
  EXPECT_EQ(fd, read->Fileno());
  PollPasses(1);
  EXPECT_THAT(got, ElementsAre(AVAHI_WATCH_IN, 0, AVAHI_WATCH_OUT, 0));
  EXPECT_EQ(AVAHI_WATCH_IN, api.watch_get_events(read));
  EXPECT_EQ(AVAHI_WATCH_OUT, api.watch_get_events(write));
  action = [](int) { AvahiCall::Guard([] { throw std::runtime_error("enough"); }); };
  EXPECT_EQ("enough", ErrorText([] { PollPasses(1); }));
  // The first is freed in the callback of the second, and that one in its own.
  api.watch_update(read, AVAHI_WATCH_ERR);
  action = [&](int event) { got = {event}, api.watch_free(read), api.watch_free(write); };
  PollPasses(2);
  EXPECT_THAT(got, ElementsAre(AVAHI_WATCH_OUT));
  close(fd);
}

TEST(AvahiPoll, FiresADeadlineOnceAndBearsNull) {
  VirtualTime time;
  int fired = 0;
  const auto count = [](AvahiTimeout*, void* counter) { ++*static_cast<int*>(counter); };
  AvahiTimeout* const timeout = api.timeout_new(&api, nullptr, count, &fired);
  for (const auto& [seconds, expected] : {std::pair(-5, 1), {1, 2}, {3, 2}}) {  // from now; what is past is due
    const timeval deadline = {::time(nullptr) + seconds, 0};
    api.timeout_update(timeout, &deadline);
    PollFor(1'000);
    api.timeout_update(timeout, nullptr);
    EXPECT_TRUE(timeout->IsRegistered() && !timeout->IsActive());
    PollFor(4'000);
    EXPECT_EQ(expected, fired);
  }
  for (AvahiTimeout* each : {timeout, static_cast<AvahiTimeout*>(nullptr)}) api.timeout_free(each);
  api.timeout_update(nullptr, nullptr);
  api.watch_update(nullptr, AVAHI_WATCH_IN);
  api.watch_free(nullptr);
  EXPECT_EQ(0U, api.watch_get_events(nullptr) + _avahi_watch_count() + _avahi_timeout_count());
}

TEST(AvahiCall, KeepsTheFirstOfWhatIsThrown) {
  for (const char* text : {"first", "second"}) AvahiCall::Guard([=] { throw std::runtime_error(text); });
  EXPECT_EQ("first", ErrorText(AvahiCall::ThrowKept));
  EXPECT_EQ("nothing thrown", ErrorText(AvahiCall::ThrowKept));
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
  }
  _AvahiStringList list;
  list.AddString("");
  EXPECT_EQ(nullptr, list.Get());
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

  // Each service is resolved once, when it appears.
  hosts->Readdress(1, 8);
  waiting.Commit();
  ASSERT_TRUE(finder.Finds("later", 2));
  EXPECT_EQ(2U, finder.Lookup("head-1")->addresses.size());
  hosts->Withdraw(1, "strange");
  offering.Clear();
  EXPECT_TRUE(Until([&] { return finder.Hosts().size() == 1; }));
  EXPECT_EQ(6, finder.added);
  EXPECT_EQ(0U, finder.errors.size());
}

TEST_F(Discovery, TellsWhatTheDaemonCantTakeOrFind) {
  hosts->Publish(1, "far", kType, 7, {}, AvahiHosts::kFarName);
  for (const std::string type : {"", "_x\xFF._tcp"}) {
    finder.errors.clear();
    client->Browse(type);
    client->Register("name", type, "", 1, {}, false);
    EXPECT_THAT(finder.errors,
                ElementsAre("Unable to browse service type: " + type, "Unable to add service type: " + type));
  }
  const std::string error = "Unable to add service type: " + std::string(kType), long_text(300, 'x');
  BonjourClient other(&finder);
  other.Register("taken", kType, "", 1, {}, true);
  // Text is UTF-8, and no longer than a label of the domain name system.
  const std::pair<std::vector<std::string>, bool> names[] = {
      {{"\xC2\x80\xDF\xBF", "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBD", "\x7F"}, true},
      {{"", long_text, "taken", std::string("a\0b", 3), "\x80", "\xBF", "\xC3", "\xC3 ", "\xC3\xC3", "\xC1\xBF"},
       false},
      {{"\xE2\x82", "\xE0\x9F\xBF", "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80",
        "\xF8\x88\x80\x80\x80"},
       false}};
  const auto errors = [&](const std::string& name, int port, const Txt& txt) {
    finder.errors.clear();
    client->Register(name, kType, "", port, txt, false);
    return finder.errors;
  };
  for (const auto& [texts, good] : names)
    for (const std::string& name : texts)
      EXPECT_EQ(std::vector<std::string>(good ? 0 : 1, error), errors(name, 2, {})) << testing::PrintToString(name);
  for (const int port : {-1, 65536}) EXPECT_THAT(errors("port", port, {}), ElementsAre(error));
  for (const int port : {0, 65535}) EXPECT_THAT(errors(std::to_string(port), port, {}), ElementsAre());
  EXPECT_THAT(errors("name", 1, {{"key", long_text}}), ElementsAre(error));
  client->Commit();
  EXPECT_THAT(finder.errors, ElementsAre(error));
  client->Commit();  // of what is published already
  EXPECT_EQ("Unable to register services", finder.errors.back());

  // It has no IPv4 address, and an address of the whole world, which belongs to no interface.
  finder.errors.clear();
  EXPECT_TRUE(Until([&] { return !finder.errors.empty(); }));
  EXPECT_EQ("Unable to resolve service: far: Timeout reached\n", finder.errors.back());
  SocketAddress far(AvahiHosts::kFarAddress);
  far.Port(7);
  ASSERT_NE(nullptr, finder.Lookup("far"));
  EXPECT_THAT(finder.Lookup("far")->addresses, ElementsAre(far));
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
  no_resolver = true;
  EXPECT_TRUE(Until([&] { return !finder.errors.empty(); }));
  EXPECT_EQ("Unable to resolve service: head-1", finder.errors[0]);
  no_resolver = false;
  client->Clear();
  client->Browse(kType);
  finder.errors.clear();
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
