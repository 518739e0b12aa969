#include "net/socketserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/poll_runner.h"
#include "tests/support/temp_directory.h"
#include "tests/support/virtual_time.h"

extern int accept_error;  // what the next accept fails with

namespace {

using testing::EndsWith;

// Writes the events down, and does in one of them what a test asks for, once.
class Events : public SocketServerListener {
 public:
  void ClientOpened(SocketClient& client) override { Add("opened ", client); }
  void ClientConnected(SocketClient& client) override { Add("connected ", client); }
  void GotRequest(SocketClient& client, const std::string& data) override { Add("got:" + data + ' ', client); }
  void ClientReadClosed(SocketClient& client) override { Add("read-closed ", client); }
  void ClientWriteClosed(SocketClient& client) override { Add("write-closed ", client); }
  void ClientClosed(SocketClient& client) override { Add("closed ", client); }
  void GotHTTPRequest(SocketClient& client, std::string url, std::map<std::string, std::string>& headers,
                      std::string body) override {
    Add("request:" + url + '|' + headers["A"] + '|' + body + ' ', client);
  }
  void GotHTTPResponse(SocketClient& client, std::map<std::string, std::string>&, std::string body) override {
    Add("response:" + body + ' ', client);
  }
  void Add(const std::string& text, SocketClient& client) {
    log += text;
    if (text.starts_with(in) && act) std::exchange(act, nullptr)(client);
  }

  std::string log, in;
  std::function<void(SocketClient&)> act;
};

SocketAddress Local(int port) {
  SocketAddress address("127.0.0.1");
  address.Port(port);
  return address;
}

struct Served : Events {
  explicit Served(const std::string& delimiter = "") : server(delimiter, Socket::FamilyIPv4) { Open(); }
  explicit Served(HTTPParser::Type type) : server(type, Socket::FamilyIPv4) { Open(); }
  void Open() {
    server.RegisterListener(*this);
    server.Listen(0);
    door.Bind(Local(0));
    door.Listen(1);
  }
  SocketAddress Door() {
    SocketAddress address("::");
    door.GetSockName(&address);
    return address;
  }
  // A client with its peer.
  SocketClient& Accepted() {
    peer.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
    peer.Connect(Local(server.Port()));
    const size_t before = server.Clients().size();
    EXPECT_TRUE(PollUntil([&] { return server.Clients().size() > before; }));
    return *server.Clients().back();
  }
  SocketClient& Dialled() {
    SocketClient& client = server.Connect(Door(), 1);
    pollfd waiting{door.Fileno(), POLLIN, 0};
    EXPECT_EQ(1, ::poll(&waiting, 1, 10'000));
    peer._set_fileno(::accept(door.Fileno(), nullptr, nullptr));
    return client;
  }
  void Send(const std::string& data) { EXPECT_EQ(data.size(), peer.Write(data)); }
  void Reset() {
    const linger at_once = {1, 0};
    setsockopt(peer.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    peer.Close();
  }
  // What the peer gets, up to `size` bytes or the end.
  std::string Received(size_t size) {
    std::string all, data(65536, ' ');
    for (int quiet = 0; all.size() < size && quiet < 100'000; ++quiet) {
      PollPasses(1);
      const ssize_t count = recv(peer.Fileno(), data.data(), std::min(data.size(), size - all.size()), MSG_DONTWAIT);
      if (count == 0) break;
      if (count > 0) all.append(data, quiet = 0, static_cast<size_t>(count));
    }
    return all;
  }
  bool Until(const std::string& end) {
    return PollUntil([&] { return log.ends_with(end + ' '); });
  }

  SocketServer server;
  Socket door{Socket::FamilyIPv4, Socket::TypeStream, 0}, peer;
};

TEST(SocketServer, TellsEventsInOrder) {
  const std::string http = "PUT /x HTTP/1.1\r\nA: 1\r\nContent-Length: 1\r\n\r\nb",
                    answer = "HTTP/1.0 200 OK\r\n\r\nbody";
  const auto run = [](Served&& served, bool dialled, const std::string& bytes, const std::string& told,
                      const std::string& at_the_end = "") {
    SocketClient& client = dialled ? served.Dialled() : served.Accepted();
    served.Send(bytes);
    served.peer.Shutdown(Socket::ShutdownWrite);
    served.Until("read-closed");
    client.CloseWhenDone();
    EXPECT_EQ("opened connected " + told + at_the_end + "read-closed write-closed closed ", served.log);
    EXPECT_TRUE(client.IsClosed());
  };
  for (const bool dialled : {false, true}) {
    run(Served(), dialled, "ab;c", "got:ab;c ");
    run(Served(";"), dialled, "ab;;c", "got:ab; got:; ");
    run(Served(HTTPParser::TypeRequest), dialled, http, "got:" + http + " request:/x|1|b ");
    run(Served(HTTPParser::TypeBoth), dialled, answer, "got:" + answer + ' ', "response:body ");
  }
}

TEST(SocketServer, EndsOurSideFirstAndReadsAllThatAPeerLeftBehind) {
  Served served;
  SocketClient& client = served.Accepted();
  client.CloseWhenDone();
  client.CloseWhenDone();
  client.Write("dropped");
  client.WriteFile("/dropped");
  EXPECT_EQ("opened write-closed ", served.log);
  EXPECT_EQ("", served.Received(1));
  served.Send(std::string(10'000, 'x'));  // more than one read
  served.peer.Close();
  const CapturedOutput output;
  const bool closed = served.Until(" closed");
  EXPECT_EQ("SocketClient::HandleHangUp()\n", output.Text());
  EXPECT_TRUE(closed);
  EXPECT_EQ(10'000, std::count(served.log.begin(), served.log.end(), 'x'));
  EXPECT_THAT(served.log, EndsWith("xxx read-closed closed "));
}

TEST(SocketServer, ClosesWhatFails) {
  const CapturedOutput output;
  const std::string io = "Got exception StreamFileBase: error in Read: ";
  std::string expected;
  const auto ends = [&](const std::string& text, const std::function<void(Served&, SocketClient&)>& act) {
    Served served(HTTPParser::TypeRequest);
    SocketClient& client = served.Accepted();
    act(served, client);
    EXPECT_TRUE(PollUntil([&] { return client.IsClosed(); })) << text;
    EXPECT_THAT(served.log, EndsWith(" closed ")) << text;
    expected += "SocketClient::" + text + '\n';
  };
  ends("HandleRead(): " + io + "Connection reset by peer", [](Served& served, SocketClient&) { served.Reset(); });
  ends("HandleRead(): Got exception HPE_INVALID_METHOD: invalid HTTP method",
       [](Served& served, SocketClient&) { served.Send("what"); });
  ends("HandleRead(): Got exception text", [](Served& served, SocketClient&) {
    served.in = "got";
    served.act = [](SocketClient&) { throw std::runtime_error("text"); };
    served.Send("GET");
  });
  ends("HandleWrite(): Got exception of unknown type", [](Served& served, SocketClient& client) {
    served.in = "connected";
    served.act = [](SocketClient&) { throw 1; };
    client.Write("x");
  });
  // A file whose reading fails, when a chunk is to go out and when the loop reads ahead.
  ends("HandleWrite(): " + io + "Input/output error",
       [](Served&, SocketClient& client) { client.WriteFile("/proc/self/mem"); });
  ends("HandleError()", [](Served&, SocketClient& client) { client.HandleError(); });
  ends("HandleInvalid()", [](Served&, SocketClient& client) { client.HandleInvalid(); });
  EXPECT_EQ(expected, output.Text());
}

TEST(SocketServer, ARefusedDialIsOpenedConnectedAndClosed) {
  const CapturedOutput output;
  Served served;
  const SocketAddress refusing = served.Door();
  served.door.Close();
  served.server.Connect(refusing, 1);
  served.Until(" closed");
  EXPECT_EQ("opened connected closed ", served.log);
  EXPECT_EQ("SocketClient::HandleRead(): Got exception StreamFileBase: error in Read: Connection refused\n",
            output.Text());
}

TEST(SocketServer, APeerThatHasResetDoesNotThrowIntoTheCaller) {
  for (const auto close : {&SocketClient::CloseWhenDone, &SocketClient::Close}) {
    Served served;
    SocketClient& client = served.Accepted();
    served.Reset();
    (client.*close)();
    EXPECT_EQ("opened closed ", served.log);
    EXPECT_FALSE(client.IsRegistered());
  }
}

TEST(SocketServer, GoesOnAfterWhatLeavesPoll) {
  Served served;
  const auto throws = [&](const char* in) {
    served.in = in;
    served.act = [](SocketClient&) { throw std::runtime_error("text"); };
  };
  throws("opened");
  EXPECT_EQ("text", ErrorText([&] { served.Accepted(); }));
  throws("opened");
  EXPECT_EQ("text", ErrorText([&] { served.server.Connect(served.Door(), 1); }));
  EXPECT_TRUE(served.server.Clients().empty());
  accept_error = EMFILE;
  EXPECT_EQ("Socket: accept error: Too many open files", ErrorText([&] { served.Accepted(); }));
  accept_error = ECONNABORTED;  // nothing that anybody has to know
  ASSERT_TRUE(PollUntil([&] { return !served.server.Clients().empty(); }));
  throws("closed");
  SocketClient& client = *served.server.Clients().front();
  EXPECT_EQ("text", ErrorText([&] { client.Close(); }));
  EXPECT_TRUE(client.IsClosed());
  EXPECT_FALSE(client.IsRegistered());
}

TEST(SocketServer, KeepsAClosedClientWhileSomebodyMayHoldIt) {
  Served served(";");
  SocketClient& first = served.Accepted();
  served.in = "got:1";
  served.act = [&](SocketClient& client) {
    client.Close();
    client.Close();
    served.server.Connect(served.Door(), 1);
  };
  served.Send("1;2;");
  EXPECT_TRUE(served.Until("got:2;"));
  EXPECT_EQ("opened connected got:1; closed opened got:2; ", served.log);
  EXPECT_EQ(2U, served.server.Clients().size());
  EXPECT_EQ(&first, served.server.Clients().front().get());
  served.server.Connect(served.Door(), 1);
  EXPECT_EQ(2U, served.server.Clients().size());  // the closed one has gone
}

TEST(SocketServer, SendsQueueAndFilesInOrder) {
  const TempDirectory directory;
  const std::string file(20'000, 'f'), queue(10'000'000, 'q');
  directory.Write("file", file);
  directory.Write("empty", "");
  Served served;
  SocketClient& client = served.Accepted();
  client.Write("a");
  client.WriteFile(directory / "file");
  client.WriteFile(directory / "empty");  // does nothing: the first is on its way
  client.Write("b");
  EXPECT_TRUE(client.IsSendingFile());
  EXPECT_TRUE("a" + file + "b" == served.Received(file.size() + 2));
  EXPECT_FALSE(client.IsSendingFile());
  client.WriteFile(directory / "empty");
  client.Write("c");
  EXPECT_EQ("StreamFile: Unable to open /nowhere: No such file or directory",
            ErrorText([&] { client.WriteFile("/nowhere"); }));
  client.WriteFile(directory / "file");
  client.Write(queue);
  client.CloseWhenDone();
  EXPECT_EQ(POLLIN | POLLOUT, client.RequestedEvents());
  EXPECT_TRUE("c" + file + queue == served.Received(queue.size() * 2));
  EXPECT_EQ(POLLIN, client.RequestedEvents());
  EXPECT_THAT(served.log, EndsWith("write-closed "));
}

TEST(SocketServer, KeepsQuietConnectionsAlive) {
  VirtualTime time;
  Served served;
  SocketClient& busy = served.Accepted();
  Socket other = served.peer;
  served.Accepted();
  const auto told = [&](Socket& socket) {
    char data[64];
    const ssize_t count = recv(socket.Fileno(), data, sizeof data, MSG_DONTWAIT);
    return std::string(data, static_cast<size_t>(std::max<ssize_t>(count, 0)));
  };
  served.server.SetKeepAlive("k", 1000);
  for (int half = 0; half < 7; ++half) {
    PollFor(500);
    busy.Write("-");
  }
  PollFor(499);
  EXPECT_EQ("-------", told(other));
  EXPECT_EQ("kkk", told(served.peer));
  PollFor(10'001);
  EXPECT_EQ("kkkkkkkkkk", told(other));  // none for the second of its last writing
  for (const auto& [text, period] : {std::pair("", 1000), std::pair("x", 0)}) {
    served.server.SetKeepAlive("k", 1000);
    served.server.SetKeepAlive(text, period);
    EXPECT_FALSE(served.server.IsActive());
  }
}

TEST(SocketServer, ClosesAllWhenItGoes) {
  Events events, unregistered;
  {
    SocketServer server("\n", Socket::FamilyIPv6), other(Socket::FamilyIPv6);
    EXPECT_EQ(-1, server.Port());
    server.Listen(0);
    EXPECT_THAT([&] { other.Listen(server.Port()); },
                testing::ThrowsMessage<ErrnoError>("Socket: unable to bind to ::: Address already in use"));
    EXPECT_EQ(-1, other.Port());
    for (int twice = 0; twice < 2; ++twice) server.RegisterListener(unregistered);
    server.UnRegisterListener(unregistered);
    server.RegisterListener(events);
    for (int i = 0; i < 2; ++i) {
      SocketAddress address("::1");
      address.Port(server.Port());
      server.Connect(address, 1);
    }
    events.in = "closed";
    events.act = [&](SocketClient&) {
      server.Connect(Local(server.Port()), 1);
      throw std::runtime_error("text");
    };
  }
  EXPECT_EQ("opened opened closed opened closed ", events.log);
  EXPECT_EQ("", unregistered.log);
}

}  // namespace
