#include "net/socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <utility>

#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/temp_directory.h"

int accept_error = 0;  // what the next accept fails with

extern "C" int __real_accept(int fileno, sockaddr* address, socklen_t* length);
extern "C" int __wrap_accept(int fileno, sockaddr* address, socklen_t* length) {
  if (accept_error == 0) return __real_accept(fileno, address, length);
  errno = std::exchange(accept_error, 0);
  return -1;
}

namespace {

SocketAddress NameOf(Socket& socket) {
  SocketAddress address(Socket::FamilyUnix);
  socket.GetSockName(&address);
  return address;
}

// Bound to a port of its own on the loopback interface; it refuses until it listens.
Socket Bound(const char* host, Socket::Type type = Socket::TypeStream) {
  const SocketAddress address(host);
  Socket socket(address.Family(), type, 0);
  socket.Bind(address);
  return socket;
}

void Await(const Socket& socket, short events) {
  pollfd waiting{socket.Fileno(), events, 0};
  ASSERT_EQ(1, ::poll(&waiting, 1, 10'000));
}

TEST(Socket, StreamsBothWaysAndKnowsItsEnds) {
  for (const char* host : {"127.0.0.1", "::1"}) {
    Socket server = Bound(host), client(NameOf(server).Family(), Socket::TypeStream, 0);
    server.Listen(4);
    client.Connect(NameOf(server));
    client.CheckConnect();
    Await(server, POLLIN);
    accept_error = ECONNABORTED;
    EXPECT_THROW(server.Accept(nullptr), Socket::EConnAborted);
    const ChildResult child = RunInChild([&] {
      ::close(STDIN_FILENO);
      SocketAddress peer("/what/was/there/before");
      Socket accepted = server.Accept(&peer);
      EXPECT_EQ(STDIN_FILENO, accepted.Fileno());
      EXPECT_EQ(NameOf(client), peer);
      EXPECT_EQ("Socket: accept error: Resource temporarily unavailable", ErrorText([&] { server.Accept(nullptr); }));
      char data[8];
      client.Send("abc", 3, Socket::MsgNone);
      client.Shutdown(Socket::ShutdownWrite);
      EXPECT_EQ(3U, accepted.RecvFrom(&peer, data, sizeof data, Socket::MsgNone));
      EXPECT_EQ("abc", std::string(data, 3));
      EXPECT_EQ(NameOf(client), peer);  // a stream tells none: left alone
      EXPECT_EQ(0U, accepted.Recv(data, sizeof data, Socket::MsgNone));
    });
    EXPECT_EQ(0, child.exit_status) << child.output;
  }
}

TEST(Socket, SendsDatagramsAndBindsNetlink) {
  Socket receiver = Bound("127.0.0.1", Socket::TypeDatagram), sender = Bound("127.0.0.1", Socket::TypeDatagram);
  char data[4];
  SocketAddress from("::");
  sender.SendTo(NameOf(receiver), "1234", 4, Socket::MsgNone);
  EXPECT_EQ(4U, receiver.RecvFrom(&from, data, sizeof data, Socket::MsgNone));
  EXPECT_EQ(NameOf(sender), from);
  Socket netlink(Socket::FamilyNetlink, Socket::TypeRaw, NETLINK_ROUTE);
  netlink.Bind(SocketAddress(0, 0));
  EXPECT_NE(SocketAddress(0, 0), NameOf(netlink));
}

TEST(Socket, BindsAUnixSocketForEverybodyAndPutsTheMaskBack) {
  const TempDirectory directory;
  const SocketAddress address(directory / "s");
  const mode_t before = ::umask(077);
  Socket server(Socket::FamilyUnix, Socket::TypeStream, 0);
  server.Bind(address);
  EXPECT_EQ("Socket: unable to bind to " + directory / "s" + ": Address already in use",
            ErrorText([&] { Socket(Socket::FamilyUnix, Socket::TypeStream, 0).Bind(address); }));
  EXPECT_EQ(077U, ::umask(before));
  EXPECT_EQ(std::filesystem::perms::all, std::filesystem::status(directory / "s").permissions());
}

TEST(Socket, TellsHowAConnectWent) {
  Socket refusing = Bound("127.0.0.1"), client(Socket::FamilyIPv4, Socket::TypeStream, 0), late(client);
  const SocketAddress address = NameOf(refusing);
  const std::string refused = "Socket: unable to connect to 127.0.0.1: Connection refused";
  EXPECT_EQ(refused, ErrorText([&] { client.Connect(address); }));
  EXPECT_EQ(refused, ErrorText([&] { client.Connect(address, 60); }));
  EXPECT_EQ(0U, ::alarm(0));
  client.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
  client.SetNonBlock();
  client.Connect(address);
  Await(client, POLLOUT);
  EXPECT_EQ("Socket: unable to connect: Connection refused", ErrorText([&] { client.CheckConnect(); }));
  // A full queue makes a peer that doesn't answer.
  refusing.Listen(0);
  for (Socket* each : {&client, &late}) each->Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
  client.Connect(address, 60);
  EXPECT_EQ(0U, ::alarm(0));
  Await(refusing, POLLIN);
  EXPECT_THAT([&] { late.Connect(address, 1); },
              testing::ThrowsMessage<SocketConnectionTimedOut>(
                  "Socket: unable to connect to 127.0.0.1: Interrupted system call: timed out"));
}

TEST(Socket, TellsWhatFailed) {
  int ends[2];
  ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  Socket s(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ("Socket: error in Send: Broken pipe", ErrorText([&] { s.Send("x", 1, Socket::MsgNone); }));
  EXPECT_EQ("Socket: unable to create socket: Protocol not supported",
            ErrorText([&] { s.Open(Socket::FamilyIPv4, Socket::TypeStream, IPPROTO_UDP); }));
  const SocketAddress address("127.0.0.1");
  const std::function<void()> calls[] = {
      [&] { s.Close(); },       [&] { s.Shutdown(Socket::ShutdownWrite); },      [&] { s.Connect(address, 1); },
      [&] { s.Bind(address); }, [&] { s.RecvFrom({}, {}, 0, Socket::MsgNone); }, [&] { s.GetSockName(nullptr); }};
  for (const auto& call : calls) EXPECT_EQ("StreamFileBase: file is closed", ErrorText(call));
}

}  // namespace
