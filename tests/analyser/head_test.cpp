#include "analyser/head.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "net/socket.h"
#include "tests/support/avahi_hosts.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"
#include "tests/support/virtual_time.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using Action = std::function<void()>;
using Events = std::vector<std::string>;

constexpr const char* kHere = "127.0.0.1";
constexpr const char* kThere = "127.0.0.2";
constexpr const char* kNoRoute = "255.255.255.255";  // a connect fails at once
const std::string kConnectedHere = "connected 127.0.0.1";
const std::string kConnectedThere = "connected 127.0.0.2";
constexpr int kGrace = 20;           // ms of real time for the loopback interface
constexpr int kLongGrace = 2'000;    // for one whose windows are full
constexpr size_t kMuch = 8'000'000;  // more than the buffers of a connection hold

// The other end of the link, and nothing but it.
struct Server {
  explicit Server(const char* host = kHere, int port = 0, int backlog = 4) {
    SocketAddress address(host);
    address.Port(port);
    door.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
    door.Bind(address);
    if (backlog >= 0) door.Listen(backlog);
  }

  int Port() {
    SocketAddress address(kHere);
    door.GetSockName(&address);
    return address.Port();
  }
  bool Accept() {
    pollfd waiting = {door.Fileno(), POLLIN, 0};
    if (::poll(&waiting, 1, 0) <= 0) return false;
    peer = door.Accept(nullptr);
    return true;
  }
  // What has come so far.
  std::string Read() {
    std::string all;
    char data[65536];
    for (ssize_t got; (got = recv(peer.Fileno(), data, sizeof data, MSG_DONTWAIT)) > 0;) all.append(data, got);
    return all;
  }

  Socket door;
  Socket peer;
};

// Notes each event, and does then what `on` has for its first word.
struct Notes : Head::Listener {
  void HeadOpened() override { Note("opened"); }
  void HeadClosed() override { Note("closed"); }
  void HeadConnected(std::string target) override { Note("connected", ' ' + target); }
  void HeadGotLine(std::string line) override { Note("line", ' ' + line); }
  void HeadGotBLOB(std::string blob) override { Note("blob", ' ' + blob); }
  void HeadGotRaw(std::string data) override {
    if (raw) Note("raw", ' ' + data);
  }

  void Note(const std::string& word, const std::string& text = {}) {
    events.push_back(word + text);
    if (const auto found = on.find(word); found != on.end()) {
      const Action action = found->second;  // it may change `on`
      action();
    }
  }
  Events Take() { return std::exchange(events, {}); }

  bool raw = false;
  Events events;
  std::map<std::string, Action> on;
};

std::string Told(const Action& body) {
  const CapturedOutput output;
  body();
  return output.Text();
}

class HeadTest : public testing::Test {
 protected:
  HeadTest() {
    AvahiHosts::UseNone();
    time.SetGrace(kGrace);
  }
  ~HeadTest() noexcept override {}  // what it holds could throw

  void Open(bool verbose = false) { head = std::make_unique<Head>(&notes, server.Port(), verbose); }
  void Connect() {
    if (!head) Open();
    head->Connect(kHere);
    ASSERT_TRUE(PollUntil([this] { return head->IsConnected(); }));
    ASSERT_TRUE(server.Accept());
    notes.Take();
  }
  // Nothing new is under way when it begins.
  void QuietMinute() {
    time.SetGrace(0);
    PollFor(60'000);
    time.SetGrace(kGrace);
  }
  bool Await(const std::string& event) {
    return PollUntil([&] { return std::count(notes.events.begin(), notes.events.end(), event) > 0; });
  }

  VirtualTime time;
  Server server;
  Notes notes;
  std::unique_ptr<Head> head;
};

TEST_F(HeadTest, CutsLinesAndBlobs) {
  notes.raw = true;
  notes.on["line"] = [this] {
    if (notes.events.back() == "line blob\n") head->ExpectBLOB(4);
  };
  Connect();
  server.peer.Write("one\r\nblob\n\n\n12three");
  ASSERT_TRUE(Await("blob \n\n12"));
  EXPECT_THAT(notes.Take(), ElementsAre("raw one\r\nblob\n\n\n12three", "line one\r\n", "line blob\n", "blob \n\n12"));
  head->ExpectBLOB(9);
  server.peer.Write("\n45");
  ASSERT_TRUE(Await("raw \n45"));
  server.peer.Write("\n\nlast\n");
  ASSERT_TRUE(Await("line last\n"));
  EXPECT_THAT(notes.Take(), ElementsAre("raw \n45", "raw \n\nlast\n", "blob three\n45\n", "line \n", "line last\n"));
}

TEST_F(HeadTest, QueuesWhatIsSentAndDropsItWithoutASocket) {
  const std::string much = std::string(kMuch, 'm') + "last";
  time.SetGrace(kLongGrace);
  Open();
  Head copy(*head);  // both are the same link
  copy.Send("lost");
  head->Connect(kHere);
  copy.Send("while connecting\n");
  copy.Send(much);
  head.reset();
  EXPECT_FALSE(copy.IsConnected());
  ASSERT_TRUE(Await(kConnectedHere));
  ASSERT_TRUE(server.Accept());
  std::string got;
  ASSERT_TRUE(PollUntil([&] { return (got += server.Read()).ends_with("last"); }));
  EXPECT_TRUE(got == "while connecting\n" + much);
}

TEST_F(HeadTest, DrainsItsQueueWhenThePeerHasEnded) {
  time.SetGrace(kLongGrace);
  size_t got = 0;
  const std::string told = Told([&] {
    Open(true);
    Connect();
    head->Send(std::string(kMuch, 'm'));
    server.peer.Shutdown(Socket::ShutdownWrite);
    PollPasses(10);
    head->Send("dropped");
    PollUntil([&] { return (got += server.Read().size()) >= kMuch && !notes.events.empty(); });
  });
  EXPECT_EQ(kMuch, got);
  EXPECT_THAT(notes.events, ElementsAre("closed"));
  EXPECT_THAT(told, testing::EndsWith("Head::Private::HandleRead(): socket closing...\n"
                                      "Head::Private::HandleWrite(): socket closed.\n"));
}

TEST_F(HeadTest, CarriesTheQueueAndAPartialLineOverToTheNextConnection) {
  Connect();
  server.peer.Write("whole\npar");
  ASSERT_TRUE(Await("line whole\n"));
  notes.on["closed"] = [this] { head->Send("dropped"); };
  head->Send("kept");
  Connect();
  server.peer.Write("tial\n");
  ASSERT_TRUE(Await("line partial\n"));
  EXPECT_EQ("kept", server.Read());
}

TEST_F(HeadTest, RetriesEveryTwoSecondsUntilItIsToldToStop) {
  Open();
  Server refusing(kThere, server.Port(), -1);
  head->Connect(kThere);
  for (const int64_t moment : {0, 2'000, 4'000}) {
    ASSERT_TRUE(Await("closed"));
    EXPECT_THAT(notes.Take(), ElementsAre("opened", "closed"));
    EXPECT_EQ(moment, time.Elapsed());
  }
  refusing.door.Listen(1);
  ASSERT_TRUE(Await(kConnectedThere));
  for (const Action& stop : {Action([this] { head->Disconnect(); }), Action([this] { head->Connect(""); })}) {
    head->Connect(kNoRoute);
    stop();
    notes.Take();
    PollFor(10'000);
    EXPECT_THAT(notes.events, IsEmpty());
  }
  EXPECT_EQ("", head->ConnectedTo());
}

TEST_F(HeadTest, SilenceBreaksNothing) {
  notes.raw = true;
  Connect();
  const auto sleeps_in_an_hour = [&] {
    time.SetGrace(kGrace);
    server.peer.Write("x");
    EXPECT_TRUE(Await("raw x"));
    notes.Take();
    time.SetGrace(0);
    const int before = time.Sleeps();
    PollFor(3'600'000);
    return time.Sleeps() - before;
  };
  EXPECT_EQ(3, sleeps_in_an_hour());  // until 5 s, 20 s and the end
  EXPECT_EQ(1, sleeps_in_an_hour());  // nobody watches any more
  EXPECT_THAT(notes.events, IsEmpty());
  EXPECT_TRUE(head->IsConnected());
}

TEST_F(HeadTest, TellsItsProgressWhenVerbose) {
  // clang-format off
  const std::pair<std::string, std::string> rows[] = {
      {"::1", "Unable to connect to ::1: SocketAddress: ::1 not found: Address family for hostname not supported\n"
              "No IP address\n"},
      {kNoRoute, "Connecting to: 255.255.255.255\nUnable to connect\n"},
      {kThere, "Connecting to: 127.0.0.2\nHead::Private::HandleRead(): Got exception Socket: unable to connect: "
               "Connection refused\n"},
      {kHere, "Connecting to: 127.0.0.1\nHead::Private::HandleRead(): socket closed.\n"}};
  // clang-format on
  for (const auto& [target, text] : rows)
    EXPECT_EQ("Attempting to connect to: " + target + '\n' + text, Told([this, &target = target] {
                Open(true);
                head->Connect(target);
                PollFor(1'000);
                if (server.Accept()) server.peer.Close();
                PollFor(900);
              }));
  EXPECT_EQ("Invalid listener in Head::Private::Private", ErrorText([] { Head(nullptr, 1, false); }));
}

TEST_F(HeadTest, WhatAListenerThrowsIsToldAndEndsTheConnection) {
  const Action fail = [] { throw std::runtime_error("no more"); };
  const std::string on_read = "Head::Private::HandleRead(): Got exception no more\n";
  const std::string on_write = "Head::Private::HandleWrite(): Got exception no more\n";
  const std::pair<std::map<std::string, Action>, std::string> rows[] = {
      {{{"line", fail}}, on_read},
      {{{"connected", fail}}, on_write},
      {{{"closed", fail}}, on_read},
      {{{"line", fail}, {"closed", fail}}, on_read + on_read}};
  for (const auto& [on, text] : rows) {
    Open();
    notes.on = on;
    EXPECT_EQ(text, Told([this] {
                head->Connect(kHere);
                PollFor(100);
                if (server.Accept() && head->IsConnected()) server.peer.Write("x\n");
                PollFor(100);
                server.peer.Close();
                PollFor(100);
              }));
    EXPECT_FALSE(head->IsConnected());
    notes.on.clear();
    notes.Take();
    EXPECT_TRUE(Await(kConnectedHere));
    EXPECT_TRUE(server.Accept());
  }
}

// What a listener does in one of its calls, and all events of the next virtual minute. The server sends two lines and
// ends the connection.
TEST_F(HeadTest, ListenersMayDoAnythingFromAnyCall) {
  const Events calls = {"opened", kConnectedHere, "raw 1\n2\n", "line 1\n", "line 2\n", "closed"};
  const std::pair<std::string, size_t> rows[] = {
      {"opened", 1}, {"connected", 2}, {"raw", 3}, {"line", 4}, {"closed", 6}};
  const std::pair<Action, Events> actions[] = {
      {[this] { head->Disconnect(); }, {"closed"}},
      {[this] { notes.on.clear(), head->Connect(kThere); }, {"closed", "opened", kConnectedThere}},
      {[this] { head.reset(); }, {}}};
  notes.raw = true;
  const int port = server.Port();
  for (const auto& [event, count] : rows)
    for (const auto& [action, after] : actions) {
      server.door._close();
      server = Server(kHere, port);
      const Server other(kThere, port);
      Open();
      notes.on = {{event, action}};
      head->Connect(kHere);
      PollFor(100);
      if (server.Accept()) ErrorText([this] { server.peer.Write("1\n2\n"); });  // it may have closed already
      PollFor(100);
      server.peer._close();
      PollFor(100);
      QuietMinute();
      Events expected(calls.begin(), calls.begin() + static_cast<long>(count));
      expected.insert(expected.end(), after.begin() + (event == "closed" && !after.empty() ? 1 : 0), after.end());
      EXPECT_EQ(expected, notes.Take()) << event << ", action " << &action - &actions[0].first;
      notes.on.clear();
      head.reset();
    }
}

TEST_F(HeadTest, WhatIsBegunWhenOpenedGoesOn) {
  notes.on["opened"] = [this] { head->Connect(kNoRoute); };
  Open(true);
  const std::string attempt =
      "Attempting to connect to: 255.255.255.255\nConnecting to: 255.255.255.255\nUnable to connect\n";
  EXPECT_THAT(Told([this] { head->Connect(kHere), PollFor(2'500); }), testing::EndsWith(attempt + attempt));
}

TEST_F(HeadTest, MayBeDestroyedWhenTheTimerHasOpenedIt) {
  Server refusing(kThere, server.Port(), -1);
  Open();
  head->Connect(kThere);
  ASSERT_TRUE(Await("closed"));
  notes.on["opened"] = [this] { head.reset(); };
  QuietMinute();
  EXPECT_THAT(notes.events, ElementsAre("opened", "closed", "opened"));
}

TEST_F(HeadTest, ConnectAndDisconnectHaveTheLastWord) {
  Server other(kThere, server.Port());
  Connect();
  notes.on["closed"] = [this] { head->Connect(kThere); };
  head->Connect(kHere);
  EXPECT_THAT(notes.events, ElementsAre("closed", "opened", "closed", "opened"));
  ASSERT_TRUE(Await(kConnectedHere));
  notes.Take();
  head->Disconnect();
  EXPECT_THAT(notes.events, ElementsAre("closed", "opened", "closed"));
  QuietMinute();
  EXPECT_THAT(notes.events, testing::SizeIs(3));
}

struct Trigger : PollItem {
  explicit Trigger(int descriptor) : PollItem(0, true), fd(descriptor) {}
  int Fileno() const override { return fd; }
  void HandleWrite() override {
    UnRegister();
    action();
  }
  int fd;
  Action action;
};

// The new socket has the descriptor of the old one, for which the pass still holds events; its peer doesn't answer.
TEST_F(HeadTest, EventsOfAClosedSocketDoNotReachTheNext) {
  Server mute(kThere, server.Port(), 0);
  SocketAddress address(kThere);
  address.Port(server.Port());
  Socket filling(Socket::FamilyIPv4, Socket::TypeStream, 0);
  filling.Connect(address);
  const Action reconnect = [this] { head->Connect(kThere); };
  for (const bool by_itself : {true, false}) {
    Trigger trigger(filling.Fileno());  // comes before the link in each pass
    notes.on.clear();
    Connect();
    head->Send("has the socket wait for room, too");
    server.peer.Write("x\n");
    (by_itself ? notes.on["line"] : trigger.action) = reconnect;
    trigger.SetRequestedEvents(by_itself ? 0 : POLLOUT);
    PollFor(500);
    EXPECT_EQ("opened", notes.events.back());
    EXPECT_THAT(notes.events, testing::Not(Contains(kConnectedThere)));
  }
}

// The loop matches events to items by descriptor, so a second item on the link's own has it hear of each one twice.
TEST_F(HeadTest, AReadableEventWithNothingThereIsNone) {
  const int next = dup(STDIN_FILENO);
  close(next);
  Connect();
  Trigger twin(next);
  twin.SetRequestedEvents(POLLIN);
  server.peer.Write("x\n");
  ASSERT_TRUE(Await("line x\n"));
  PollPasses(2);
  EXPECT_THAT(notes.events, ElementsAre("line x\n"));
}

}  // namespace
