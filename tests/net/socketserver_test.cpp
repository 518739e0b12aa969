#include "net/socketserver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "emulators/poll_runner.h"
#include "emulators/virtual_time.h"
#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"

extern int accept_error;  // what the next accept fails with

namespace {

using testing::EndsWith;

SocketAddress Local(int port) {
  SocketAddress address("127.0.0.1");
  address.Port(port);
  return address;
}

// A server and one peer. Writes the events down, and fails in one of them if a test asks for it.
struct Served : SocketServerListener {
  Served() {
    server.RegisterListener(*this);
    server.Listen(0);
  }
  void ClientOpened(SocketClient&) override { log += "opened "; }
  void ClientConnected(SocketClient&) override {
    log += "connected ";
    if (failing == 'c') throw 1;
  }
  void GotRequest(SocketClient&, const std::string& data) override {
    log += data + ' ';
    if (failing == 'r') throw std::runtime_error("text");
  }
  void ClientReadClosed(SocketClient&) override { log += "read-closed "; }
  void ClientWriteClosed(SocketClient&) override { log += "write-closed "; }
  void ClientClosed(SocketClient&) override { log += "closed "; }

  SocketClient& Accepted() {
    peer.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
    peer.Connect(Local(server.Port()));
    const size_t before = server.Clients().size();
    EXPECT_TRUE(PollUntil([&] { return server.Clients().size() > before; }));
    return *server.Clients().back();
  }
  bool UntilClosed() {
    return PollUntil([&] { return log.ends_with(" closed "); });
  }

  std::string log;
  char failing = 0;
  SocketServer server{HTTPParser::TypeRequest, Socket::FamilyIPv4};
  Socket peer;
};

TEST(SocketServer, TellsWhatFailsAndCloses) {
  const std::string read = "HandleRead(): Got exception ", write = "HandleWrite(): Got exception ",
                    error = "StreamFileBase: error in Read: ";
  const struct {
    std::string printed, log;
    std::function<void(Served&, SocketClient&)> act;
  } rows[] = {
      {read + error + "Connection reset by peer", "connected ",
       [](Served& served, SocketClient&) {
         const linger at_once = {1, 0};
         setsockopt(served.peer.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
         served.peer.Close();
       }},
      {read + "HPE_INVALID_METHOD: invalid HTTP method", "connected x ",
       [](Served& served, SocketClient&) { served.peer.Write("x"); }},
      {read + "text", "connected GET ",
       [](Served& served, SocketClient&) {
         served.failing = 'r';
         served.peer.Write("GET");
       }},
      {write + "of unknown type", "connected ",
       [](Served& served, SocketClient& client) {
         served.failing = 'c';
         client.Write("x");
       }},
      {write + error + "Input/output error", "connected ",
       [](Served&, SocketClient& client) { client.WriteFile("/proc/self/mem"); }},
      {"HandleError()", "", [](Served&, SocketClient& client) { client.HandleError(); }},
      {"HandleInvalid()", "", [](Served&, SocketClient& client) { client.HandleInvalid(); }},
      {read + error + "Connection refused", "closed opened connected ",
       [](Served& served, SocketClient& client) {
         client.Close();
         Socket refusing(Socket::FamilyIPv4, Socket::TypeStream, 0);  // doesn't listen
         refusing.Bind(Local(0));
         SocketAddress address("::");
         refusing.GetSockName(&address);
         served.server.Connect(address, 1);
       }},
  };
  for (const auto& row : rows) {
    Served served;
    SocketClient& client = served.Accepted();
    const CapturedOutput output;
    row.act(served, client);
    served.UntilClosed();
    EXPECT_EQ("SocketClient::" + row.printed + '\n', output.Text());
    EXPECT_EQ("opened " + row.log + "closed ", served.log) << row.printed;
  }
}

TEST(SocketServer, ReadsAllThatAPeerLeftBehind) {
  Served served;
  SocketClient& client = served.Accepted();
  client.CloseWhenDone();
  client.Write("dropped");
  client.WriteFile("/dropped");
  EXPECT_EQ("opened write-closed ", served.log);
  // More than one read.
  served.peer.Write("PUT / HTTP/1.1\r\nContent-Length: 10000\r\n\r\n" + std::string(10'000, '='));
  served.peer.Close();
  const CapturedOutput output;
  served.UntilClosed();
  EXPECT_EQ("SocketClient::HandleHangUp()\n", output.Text());
  EXPECT_EQ(10'000, std::count(served.log.begin(), served.log.end(), '='));
  EXPECT_THAT(served.log, EndsWith("= read-closed closed "));
}

TEST(SocketServer, ListensAndGoesOnAfterAnAcceptThatFails) {
  Served served, unregistered;
  served.server.RegisterListener(unregistered);
  served.server.RegisterListener(unregistered);
  served.server.UnRegisterListener(unregistered);
  accept_error = EMFILE;
  EXPECT_EQ("Socket: accept error: Too many open files", ErrorText([&] { served.Accepted(); }));
  accept_error = ECONNABORTED;  // nothing that anybody has to know
  EXPECT_TRUE(PollUntil([&] { return served.log == "opened "; }));
  EXPECT_EQ("", unregistered.log);
  SocketServer other(Socket::FamilyIPv4);
  EXPECT_THAT(ErrorText([&] { other.Listen(served.server.Port()); }), EndsWith("Address already in use"));
  EXPECT_EQ(-1, other.Port());
}

TEST(SocketServer, KeepsQuietConnectionsAlive) {
  VirtualTime time;
  Served served;
  SocketClient& busy = served.Accepted();
  Socket other = served.peer;
  served.Accepted();
  const auto got = [](Socket& socket) {
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
  EXPECT_EQ("-------", got(other));
  EXPECT_EQ("kkk", got(served.peer));
  PollFor(10'001);
  EXPECT_EQ("kkkkkkkkkk", got(other));  // none for the second of its last writing
  for (const auto& [text, period] : {std::pair("", 1000), std::pair("x", 0)}) {
    served.server.SetKeepAlive("k", 1000);
    served.server.SetKeepAlive(text, period);
    EXPECT_FALSE(served.server.IsActive());
  }
}

}  // namespace
