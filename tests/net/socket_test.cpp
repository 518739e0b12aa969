#include "net/socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <utility>

#include "tests/support/child_process.h"
#include "tests/support/error_text.h"
#include "tests/support/temp_directory.h"

namespace {
int accept_error = 0;  // what the next accept fails with
}

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
    Socket server = Bound(host);
    server.Listen(4);
    Socket client(NameOf(server).Family(), Socket::TypeStream, 0);
    client.Connect(NameOf(server));
    client.CheckConnect();
    Await(server, POLLIN);
    SocketAddress peer("/what/was/there/before");
    Socket accepted = server.Accept(&peer);
    EXPECT_EQ(NameOf(client), peer);
    accepted.GetPeerName(&peer);
    EXPECT_EQ(NameOf(client), peer);
    accepted.GetPeerName(nullptr);
    EXPECT_EQ("Socket: accept error: Resource temporarily unavailable", ErrorText([&] { server.Accept(nullptr); }));

    char data[8];
    EXPECT_EQ(3U, client.Send("abc", 3, Socket::MsgNone));
    client.Shutdown(Socket::ShutdownWrite);
    EXPECT_EQ(3U, accepted.Recv(data, sizeof data, Socket::MsgPeek));
    EXPECT_EQ(3U, accepted.RecvFrom(&peer, data, sizeof data, Socket::MsgNone));
    EXPECT_EQ("abc", std::string(data, 3));
    EXPECT_EQ(NameOf(client), peer);  // a stream tells none: left alone
    EXPECT_EQ(0U, accepted.Recv(data, sizeof data, Socket::MsgNone));
  }
}

TEST(Socket, SendsDatagrams) {
  Socket receiver = Bound("127.0.0.1", Socket::TypeDatagram);
  Socket sender = Bound("127.0.0.1", Socket::TypeDatagram);
  char data[4];
  iovec part{data, 2};
  msghdr message{nullptr, 0, &part, 1, nullptr, 0, 0};
  SocketAddress from("::");
  EXPECT_EQ(4U, sender.SendTo(NameOf(receiver), "1234", 4, Socket::MsgNone));
  EXPECT_EQ(4U, receiver.RecvFrom(&from, data, sizeof data, Socket::MsgNone));
  EXPECT_EQ(NameOf(sender), from);
  sender.Connect(NameOf(receiver));
  EXPECT_EQ(2U, sender.SendMsg(&message, Socket::MsgNone));
  EXPECT_EQ(2U, receiver.RecvMsg(&message, Socket::MsgNone));
}

TEST(Socket, BindsAUnixSocketForEverybodyAndPutsTheMaskBack) {
  const TempDirectory directory;
  const SocketAddress address(directory / "s");
  const mode_t before = ::umask(077);
  Socket server(Socket::FamilyUnix, Socket::TypeStream, 0);
  server.Bind(address);
  const std::string error = ErrorText([&] { Socket(Socket::FamilyUnix, Socket::TypeStream, 0).Bind(address); });
  EXPECT_EQ(077U, ::umask(before));
  EXPECT_EQ("Socket: unable to bind to " + directory / "s" + ": Address already in use", error);
  struct stat information;
  ASSERT_EQ(0, ::stat((directory / "s").c_str(), &information));
  EXPECT_EQ(0777U, information.st_mode & 0777);
  EXPECT_EQ(address, NameOf(server));
  server.Listen(1);
  Socket client(Socket::FamilyUnix, Socket::TypeStream, 0);
  client.Connect(address);
  SocketAddress peer(address);
  server.Accept(&peer);
  EXPECT_EQ(SocketAddress(Socket::FamilyUnix), peer);  // unnamed, and nothing of the path that stood there
}

TEST(Socket, BindsNetlinkAndReusesAddressesOfAnyFamily) {
  Socket socket(Socket::FamilyNetlink, Socket::TypeRaw, NETLINK_ROUTE);
  socket.Bind(SocketAddress(0, 0));
  EXPECT_EQ(Socket::FamilyNetlink, NameOf(socket).Family());
  EXPECT_NE(SocketAddress(0, 0), NameOf(socket));
  int reuse = 0;
  socklen_t length = sizeof reuse;
  EXPECT_EQ(0, ::getsockopt(socket.Fileno(), SOL_SOCKET, SO_REUSEADDR, &reuse, &length));
  EXPECT_EQ(1, reuse);
  EXPECT_EQ(AF_INET6, Socket::FamilyIPv6);
}

TEST(Socket, TellsHowAConnectWent) {
  Socket refusing = Bound("127.0.0.1");
  const SocketAddress address = NameOf(refusing);
  Socket client(Socket::FamilyIPv4, Socket::TypeStream, 0);
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
  client.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
  client.Connect(address, 60);
  EXPECT_EQ(0U, ::alarm(0));
  Await(refusing, POLLIN);
  Socket late(Socket::FamilyIPv4, Socket::TypeStream, 0);
  EXPECT_THAT([&] { late.Connect(address, 1); },
              testing::ThrowsMessage<SocketConnectionTimedOut>(
                  "Socket: unable to connect to 127.0.0.1: Interrupted system call: timed out"));
}

TEST(Socket, AcceptTellsAnAbortedClientAndKeepsDescriptorZero) {
  Socket server = Bound("127.0.0.1");
  server.Listen(1);
  accept_error = ECONNABORTED;
  EXPECT_THAT([&] { server.Accept(nullptr); },
              testing::ThrowsMessage<Socket::EConnAborted>(testing::StartsWith("Socket: client aborted connection: ")));
  Socket client(Socket::FamilyIPv4, Socket::TypeStream, 0);
  client.Connect(NameOf(server));
  Await(server, POLLIN);
  const ChildResult child = RunInChild([&] {
    ::close(STDIN_FILENO);
    EXPECT_EQ(STDIN_FILENO, server.Accept(nullptr).Fileno());
  });
  EXPECT_EQ(0, child.exit_status) << child.output;
}

TEST(Socket, WritingToAPeerThatHasGoneIsAnError) {
  int ends[2];
  ASSERT_EQ(0, ::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  Socket socket(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ("Socket: error in Send: Broken pipe", ErrorText([&] { socket.Send("x", 1, Socket::MsgNone); }));
}

TEST(Socket, RefusesEverythingWithoutADescriptor) {
  Socket s;
  const SocketAddress address("127.0.0.1");
  constexpr auto flags = Socket::MsgNone;
  // clang-format off
  const std::function<void()> calls[] = {
      [&] { s.Close(); }, [&] { s.Shutdown(Socket::ShutdownWrite); }, [&] { s.Connect(address); },
      [&] { s.CheckConnect(); }, [&] { s.Connect(address, 1); }, [&] { s.Bind(address); }, [&] { s.Listen(1); },
      [&] { s.Accept(nullptr); }, [&] { s.GetSockName(nullptr); }, [&] { s.GetPeerName(nullptr); },
      [&] { s.Send("", 0, flags); }, [&] { s.SendTo(address, "", 0, flags); }, [&] { s.SendMsg(nullptr, flags); },
      [&] { s.RecvMsg(nullptr, flags); }, [&] { s.Recv(nullptr, 0, flags); },
      [&] { s.RecvFrom(nullptr, nullptr, 0, flags); }};
  // clang-format on
  for (const auto& call : calls) EXPECT_EQ("StreamFileBase: file is closed", ErrorText(call));
  EXPECT_EQ("Socket: unable to create socket: Protocol not supported",
            ErrorText([&] { s.Open(Socket::FamilyIPv4, Socket::TypeStream, IPPROTO_UDP); }));
}

}  // namespace
