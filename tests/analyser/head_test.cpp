#include "analyser/head.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <memory>

#include "emulators/avahi_hosts.h"
#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "net/bonjourclient.h"
#include "net/socket.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"

// What a link does, step by step, is held against a model in fuzz/head_fuzz.cpp. Here is what that can't see.

namespace {

using Action = std::function<void()>;

constexpr const char* kHere = "127.0.0.1";
constexpr int kGrace = 100;          // ms of real time for the loopback interface
constexpr size_t kMuch = 8'000'000;  // more than the buffers of a connection hold

class HeadTest : public testing::Test, public Head::Listener {
 protected:
  HeadTest() {
    AvahiHosts::UseNone();
    time.SetGrace(kGrace);
    SocketAddress address(kHere);
    door.Bind(address);
    door.GetSockName(&address);
    port = address.Port();
  }
  ~HeadTest() noexcept override {}  // what it holds could throw

  void HeadConnected(std::string) override { Note("connected"); }
  void HeadClosed() override { Note("closed"); }
  void HeadGotLine(std::string line) override { Note(line); }
  void Note(const std::string& event) {
    events += event + ' ';
    if (throws_at.find(event) != std::string::npos) throw std::runtime_error("no more");
  }

  // What is told by a new link while `body` runs.
  std::string Told(const Action& body) {
    const CapturedOutput output;
    head = std::make_unique<Head>(this, port, true);
    body();
    return output.Text();
  }
  // The connection stands when it returns.
  void Connect() {
    door.Listen(4);
    head->Connect(kHere);
    ASSERT_TRUE(PollUntil([this] { return head->IsConnected(); }));
    Await(door.Fileno());
    peer = door.Accept(nullptr);
  }
  // In real time, until what is under way has come: on a busy machine the loopback interface is late.
  static bool Await(int fd) {
    pollfd waiting = {fd, POLLIN, 0};
    const timespec bound = {5, 0};
    return ppoll(&waiting, 1, &bound, nullptr) > 0;
  }
  // The link, as the loop sees it.
  static PollItem& Item() {
    for (int fd = 0;; ++fd)
      if (PollItem* item = PollProcessor::Instance().FindItem(fd); item != nullptr) return *item;
  }

  VirtualTime time;
  Socket door{Socket::FamilyIPv4, Socket::TypeStream, 0}, peer;
  int port = 0;
  std::string events, throws_at;
  std::unique_ptr<Head> head;
};

TEST_F(HeadTest, TellsItsProgress) {
  // clang-format off
  const std::pair<std::string, std::string> rows[] = {
      {"::1", "Unable to connect to ::1: SocketAddress: ::1 not found: Address family for hostname not supported\n"
              "No IP address\n"},
      {"255.255.255.255", "Connecting to: 255.255.255.255\nUnable to connect\n"},
      {kHere, "Connecting to: 127.0.0.1\nHead::Private::HandleRead(): Got exception Socket: unable to connect: "
              "Connection refused\n"}};
  // clang-format on
  for (const auto& [target, text] : rows)
    EXPECT_EQ("Attempting to connect to: " + target + '\n' + text, Told([this, &target = target] {
                head->Connect(target);
                PollUntil([this] { return !events.empty(); }, 1'900);
              }));
  EXPECT_EQ(
      "Attempting to connect to: 127.0.0.1\nConnecting to: 127.0.0.1\n"
      "Head::Private::HandleRead(): socket closed.\n",
      Told([this] { Connect(), peer.Close(), PollUntil([this] { return events.ends_with("closed "); }); }));
  EXPECT_EQ("Invalid listener in Head::Private::Private", ErrorText([] { Head(nullptr, 1, false); }));
}

// The addresses of a service and the one that is tried. Nobody is there, or connecting fails.
TEST_F(HeadTest, ChoosesAmongTheAddressesOfAService) {
  const std::pair<std::vector<const char*>, std::string> rows[] = {
      {{}, "No host info\n"},
      {{"2001:db8::1"}, "Got address: 2001:db8::1\nNo IP address\n"},
      {{"/run/x"}, "Got address: /run/x\nNo IP address\n"},
      {{"127.0.0.1", "127.0.0.2", "2001:db8::1"},
       "Got address: 127.0.0.1\nGot address: 127.0.0.2\nGot address: 2001:db8::1\nConnecting to: 127.0.0.2\n"},
      {{"127.0.0.1", "fe80::1", "fe80::2"},
       "Got address: 127.0.0.1\nGot address: fe80::1\nGot address: fe80::2\nConnecting to: fe80::2\n"
       "Unable to connect\n"},
      {{"fe80::1"}, "Got address: fe80::1\nConnecting to: fe80::1\nUnable to connect\n"}};
  for (const auto& [addresses, text] : rows) {
    const CapturedOutput output;
    head = std::make_unique<Head>(this, "_none._tcp", true);
    for (const char* address : addresses)
      head->Resolver().AddService("Name", "", "", 1, "", SocketAddress(std::string(address)), {});
    head->Connect("name");
    EXPECT_EQ("Attempting to connect to: name\n" + text, output.Text());
    if (text.find("Connecting") == std::string::npos) {
      PollFor(2'000);  // and once more
      EXPECT_EQ("Attempting to connect to: name\n" + text + "Attempting to connect to: name\n" + text, output.Text());
    }
  }
  // Its port, or the one that is asked for.
  door.Listen(4);
  for (const int service_port : {port, 1}) {
    if (service_port == port)
      head = std::make_unique<Head>(this, "_none._tcp", false);
    else
      head = std::make_unique<Head>(this, "_none._tcp", port, false);
    SocketAddress address(kHere);
    address.Port(service_port);
    head->Resolver().AddService("Name", "", "", 1, "", address, {});
    head->Connect("NAME");
    EXPECT_TRUE(PollUntil([this] { return head->IsConnected(); }));
  }
}

TEST_F(HeadTest, WritesMuchInPiecesAndDrainsItsQueueWhenThePeerHasEnded) {
  time.SetGrace(2'000);  // the connection's windows are full
  std::string got;
  const std::string text = std::string(kMuch, 'm') + "last";
  const auto drain = [&] {
    char data[65536];
    ssize_t size;
    while ((size = recv(peer.Fileno(), data, sizeof data, MSG_DONTWAIT)) > 0) got.append(data, size);
    return size < 0;  // there is more to come
  };
  const std::string told = Told([&] {
    Connect();
    Head copy(*head);  // both are the same link
    head.reset();
    copy.Send(text);
    peer.Shutdown(Socket::ShutdownWrite);
    Await(Item().Fileno());
    PollPasses(10);
    copy.Send("dropped");
    PollUntil([&] { return drain(), events.ends_with("closed "); });
    while (drain() && Await(peer.Fileno())) {
    }
  });
  EXPECT_TRUE(got == text) << got.size();
  EXPECT_TRUE(
      told.ends_with("Head::Private::HandleRead(): socket closing...\n"
                     "Head::Private::HandleWrite(): socket closed.\n"))
      << told;
}

// Whatever has closed the socket, and whatever the listener throws then, the owner goes on.
TEST_F(HeadTest, WhatAListenerThrowsIsToldAndEndsTheConnection) {
  const struct {
    const char* throws_at;
    Action end;
    std::string told, events;
  } rows[] = {
      {"x\n", [] {}, "HandleRead(): Got exception no more", "x\n closed "},
      {"x\n closed", [] {}, "HandleRead(): Got exception no more*HandleRead(): Got exception no more", "x\n closed "},
      {"closed", [this] { peer.Close(); }, "HandleRead(): Got exception no more*HandleRead(): socket closed.",
       "x\n closed "},
      {"closed", [] { Item().HandleError(); }, "HandleError()*HandleError(): Got exception no more", "x\n closed "},
      {"closed", [] { Item().HandleHangUp(); }, "HandleHangUp()*HandleHangUp(): Got exception no more", "x\n closed "},
      {"closed", [] { Item().HandleInvalid(); }, "HandleInvalid()*HandleInvalid(): Got exception no more",
       "x\n closed "},
      {"closed", [this] { head->Disconnect(); }, "Disconnect(): Got exception no more", "x\n closed "},
      {"closed", [this] { head->Connect(""); }, "Connect(): Got exception no more", "x\n closed "}};
  for (const auto& row : rows) {
    throws_at.clear();
    const std::string told = Told([&] {
      Connect();
      events.clear();
      throws_at = row.throws_at;
      peer.Write("x\n");
      PollUntil([this] { return !events.empty(); });
      row.end();
      PollUntil([&] { return events == row.events; });
    });
    std::string expected = "Attempting to connect to: 127.0.0.1\nConnecting to: 127.0.0.1\nHead::Private::";
    for (const char c : row.told) expected += c == '*' ? std::string("\nHead::Private::") : std::string(1, c);
    EXPECT_EQ(expected + '\n', told);
    EXPECT_EQ(row.events, events);
    EXPECT_FALSE(head->IsConnected());
  }
  EXPECT_EQ("", head->ConnectedTo());
}

// An event may be of a socket that had the same descriptor: the loop matches them by that.
TEST_F(HeadTest, BelievesNoEventThatIsNotItsOwn) {
  head = std::make_unique<Head>(this, port, false);
  Connect();
  EXPECT_EQ("Head", std::string(Item().Description()));
  events.clear();
  Item().HandleEvents(POLLIN);  // reading would fail
  EXPECT_EQ("", events);
  // A queue of two that is full makes a peer that doesn't answer.
  door.Listen(0);
  SocketAddress address(kHere);
  address.Port(port);
  Socket filling(Socket::FamilyIPv4, Socket::TypeStream, 0);
  filling.Connect(address);
  head->Connect(kHere);
  Item().HandleEvents(POLLIN | POLLOUT | POLLERR | POLLHUP | POLLNVAL);
  PollFor(500);
  EXPECT_EQ("closed ", events);
  PollItem& item = Item();
  head->Disconnect();
  item.HandleRead();
  EXPECT_EQ("closed closed ", events);
}

}  // namespace
