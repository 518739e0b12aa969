#include "net/socket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <utility>

#include "emulators/temp_directory.h"
#include "tests/support/child_process.h"
#include "tests/support/error_text.h"

int accept_error = 0, option_error = 0;  // what the next call fails with

extern "C" int __real_accept(int fileno, sockaddr* address, socklen_t* length);
extern "C" int __wrap_accept(int fileno, sockaddr* address, socklen_t* length) {
  if (accept_error == 0) return __real_accept(fileno, address, length);
  errno = std::exchange(accept_error, 0);
  return -1;
}

extern "C" int __real_setsockopt(int fileno, int level, int option, const void* value, socklen_t length);
extern "C" int __wrap_setsockopt(int fileno, int level, int option, const void* value, socklen_t length) {
  if (option_error == 0) return __real_setsockopt(fileno, level, option, value, length);
  errno = std::exchange(option_error, 0);
  return -1;
}

namespace {

// Of the first socket of a process, so asked before any test.
bool DropsSigPipe(const std::function<void()>& make_socket) {
  return RunInChild([&] {
           make_socket();
           struct sigaction now;
           _exit(::sigaction(SIGPIPE, nullptr, &now) == 0 && now.sa_handler != SIG_DFL && now.sa_handler != SIG_IGN
                     ? 0
                     : 1);
         }).exit_status == 0;
}

const bool opening_drops_sigpipe = DropsSigPipe([] { Socket(Socket::FamilyUnix, Socket::TypeStream, 0); });
const bool adopting_drops_sigpipe = DropsSigPipe([] { Socket(::dup(STDIN_FILENO)); });

SocketAddress NameOf(Socket& socket) {
  SocketAddress address(Socket::FamilyUnix);
  socket.GetSockName(&address);
  return address;
}

// Bound to a port of its own on the loopback interface, or to a path; it refuses until it listens.
Socket Bound(const std::string& host, Socket::Type type = Socket::TypeStream) {
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
  const TempDirectory directory;
  for (const std::string& host : {std::string("127.0.0.1"), std::string("::1"), directory / "s"}) {
    const mode_t before = ::umask(077);
    Socket server = Bound(host), client(NameOf(server).Family(), Socket::TypeStream, 0);
    EXPECT_EQ(077U, ::umask(before));
    server.Listen(4);
    client.Connect(NameOf(server));
    client.CheckConnect();
    Await(server, POLLIN);
    accept_error = ECONNABORTED;
    EXPECT_THAT([&] { server.Accept(nullptr); },
                testing::ThrowsMessage<Socket::EConnAborted>(
                    "Socket: client aborted connection: Software caused connection abort"));
    SocketAddress peer("/what/was/there/before");
    Socket accepted = server.Accept(&peer);
    EXPECT_EQ(NameOf(client), peer);
    EXPECT_EQ("Socket: accept error: Resource temporarily unavailable", ErrorText([&] { server.Accept(nullptr); }));
    client.GetPeerName(nullptr);
    client.GetPeerName(&peer);
    client.GetSockName(nullptr);
    EXPECT_EQ(NameOf(server), peer);
    char data[8];
    EXPECT_EQ(3U, client.Send("abc", 3, Socket::MsgNone));
    client.Shutdown(Socket::ShutdownWrite);
    EXPECT_EQ(3U, accepted.RecvFrom(nullptr, data, sizeof data, Socket::MsgNone));
    EXPECT_EQ("abc", std::string(data, 3));
    EXPECT_EQ(0U, accepted.RecvFrom(&peer, data, sizeof data, Socket::MsgNone));
    EXPECT_EQ(NameOf(server), peer);  // a stream tells none: left alone
    accepted.Shutdown(Socket::ShutdownWrite);
    EXPECT_EQ("Socket: error in Send: Broken pipe", ErrorText([&] { accepted.Send("x", 1, Socket::MsgNone); }));
  }
  EXPECT_EQ(std::filesystem::perms::all, std::filesystem::status(directory / "s").permissions());
  const mode_t before = ::umask(077);
  EXPECT_EQ("Socket: unable to bind to " + directory / "s" + ": Address already in use",
            ErrorText([&] { Bound(directory / "s"); }));
  EXPECT_EQ(077U, ::umask(before));
}

TEST(Socket, SendsDatagramsAndBindsNetlink) {
  Socket receiver = Bound("127.0.0.1", Socket::TypeDatagram), sender = Bound("127.0.0.1", Socket::TypeDatagram);
  char data[] = "12345678";
  iovec piece = {data, 4};
  msghdr message{};
  message.msg_iov = &piece;
  message.msg_iovlen = 1;
  EXPECT_EQ(3U, sender.SendTo(NameOf(receiver), data, 3, Socket::MsgNone));
  sender.Connect(NameOf(receiver));
  EXPECT_EQ(4U, sender.SendMsg(&message, Socket::MsgNone));
  SocketAddress from("::");
  EXPECT_EQ(3U, receiver.RecvFrom(&from, data + 4, 4, Socket::MsgPeek));
  EXPECT_EQ(NameOf(sender), from);
  EXPECT_EQ("12341238", std::string(data));
  EXPECT_EQ(3U, receiver.RecvMsg(&message, Socket::MsgNone));
  EXPECT_EQ(2U, receiver.Recv(data, 2, Socket::MsgNone));
  Socket netlink(Socket::FamilyNetlink, Socket::TypeRaw, NETLINK_ROUTE);
  netlink.Bind(SocketAddress(0, 0));
  EXPECT_NE(SocketAddress(0, 0), NameOf(netlink));
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

// Nothing of it works on a pipe, nor on a socket without a descriptor.
TEST(Socket, TellsWhatFailed) {
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  Socket s(ends[0]);
  ::close(ends[1]);
  SocketAddress address("127.0.0.1");
  char data[1];
  iovec piece{data, 1};  // for no bytes at all qemu doesn't ask the kernel
  msghdr message{};
  message.msg_iov = &piece, message.msg_iovlen = 1;
  const std::pair<std::string, std::function<void()>> rows[] = {
      {"error shutting down socket", [&] { s.Shutdown(Socket::ShutdownWrite); }},
      {"unable to connect to 127.0.0.1", [&] { s.Connect(address); }},
      {"unable to connect to 127.0.0.1", [&] { s.Connect(address, 60); }},
      {"unable to query connection status.", [&] { s.CheckConnect(); }},
      {"unable to bind to 127.0.0.1", [&] { s.Bind(address); }},
      {"unable to listen", [&] { s.Listen(1); }},
      {"accept error", [&] { s.Accept(&address); }},
      {"getsockname error", [&] { s.GetSockName(&address); }},
      {"getpeername error", [&] { s.GetPeerName(&address); }},
      {"error in Send", [&] { s.Send(data, 1, Socket::MsgNone); }},
      {"error in SendTo", [&] { s.SendTo(address, data, 1, Socket::MsgNone); }},
      {"error in SendMsg", [&] { s.SendMsg(&message, Socket::MsgNone); }},
      {"error in RecvMsg", [&] { s.RecvMsg(&message, Socket::MsgNone); }},
      {"error in Recv", [&] { s.Recv(data, 1, Socket::MsgNone); }},
      {"error in RecvFrom", [&] { s.RecvFrom(&address, data, 1, Socket::MsgNone); }}};
  for (const auto& [text, call] : rows)
    EXPECT_EQ("Socket: " + text + ": Socket operation on non-socket", ErrorText(call));
  EXPECT_EQ(SocketAddress("127.0.0.1"), address);
  s.Close();
  const std::string closed = "StreamFileBase: file is closed";
  for (const auto& [text, call] : rows) EXPECT_EQ(closed, ErrorText(call)) << text;
  EXPECT_EQ(closed, ErrorText([&] { s.Close(); }));
  EXPECT_EQ(closed, ErrorText([&] { s.GetSockName(nullptr); }));
  EXPECT_EQ(closed, ErrorText([&] { s.GetPeerName(nullptr); }));
}

TEST(Socket, OpensWithWhatEverySocketHas) {
  EXPECT_TRUE(opening_drops_sigpipe && adopting_drops_sigpipe);
  Socket s(Socket::FamilyIPv4, Socket::TypeStream, 0);
  int reuse = 0;
  socklen_t length = sizeof reuse;
  EXPECT_EQ(0, ::getsockopt(s.Fileno(), SOL_SOCKET, SO_REUSEADDR, &reuse, &length));
  EXPECT_EQ(1, reuse);
  EXPECT_EQ("Socket: unable to create socket: Protocol not supported",
            ErrorText([&] { s.Open(Socket::FamilyIPv4, Socket::TypeStream, IPPROTO_UDP); }));
  EXPECT_FALSE(s.IsOpen());
  option_error = EPERM;
  EXPECT_EQ("Socket: unable to create socket: Operation not permitted",
            ErrorText([&] { s.Open(Socket::FamilyIPv4, Socket::TypeStream, 0); }));
  EXPECT_FALSE(s.IsOpen());
}

}  // namespace
