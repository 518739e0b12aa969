#include "net/socket.h"

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <utility>

#include "runtime/pollprocessor.h"
#include "runtime/signalprocessor.h"

namespace {

void DropSigPipe() {
  static bool asked = false;
  if (std::exchange(asked, true)) return;
  PollProcessor::Instance().IgnoreSignal(SIGPIPE);
}

unsigned int Checked(ssize_t count, const char* text) {
  if (count < 0) throw ErrnoError(text);
  return static_cast<unsigned int>(count);
}

// Where a call of the system puts an address for `target`, which may be nullptr. The system writes into fresh storage,
// as it may write fewer bytes than an older address has; the target changes only with a success that told an address.
class Received {
 public:
  explicit Received(SocketAddress* target) : _target(target) {}
  sockaddr* Address() { return _target != nullptr ? _fresh._SockAddr() : nullptr; }
  socklen_t* Length() { return _target != nullptr ? &_length : nullptr; }
  void Keep() const {
    if (_target != nullptr && _length > 0) *_target = _fresh;
  }

 private:
  SocketAddress* const _target;
  SocketAddress _fresh{SocketFamily::FamilyUnix};
  socklen_t _length = SocketAddress::_StorageLen();
};

}  // namespace

Socket::Socket(int fileno) : StreamFileBase(fileno) {
  DropSigPipe();
}

Socket::Socket(Family family, Type type, int protocol) {
  Open(family, type, protocol);
}

void Socket::Open(Family family, Type type, int protocol) {
  DropSigPipe();
  _close();
  const int fileno = ::socket(family, type, protocol);
  if (fileno < 0) throw ErrnoError("Socket: unable to create socket");
  _set_fileno(fileno);
  const int on = 1;
  if (::setsockopt(fileno, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) return;
  const int error = errno;
  _close();
  throw ErrnoError("Socket: unable to create socket", error);
}

void Socket::Close() {
  _check_open();
  _close();
}

void Socket::Shutdown(HowTo how) {
  _check_open();
  if (::shutdown(Fileno(), how) != 0) throw ErrnoError("Socket: error shutting down socket");
}

void Socket::Connect(const SocketAddress& address) {
  _check_open();
  if (::connect(Fileno(), address._SockAddr(), address._SockLen()) == 0) return;
  const int error = errno;
  if (error != EINPROGRESS) throw ErrnoError("Socket: unable to connect to " + address.Presentation(), error);
}

void Socket::CheckConnect() {
  _check_open();
  int error = 0;
  socklen_t length = sizeof error;
  if (::getsockopt(Fileno(), SOL_SOCKET, SO_ERROR, &error, &length) != 0)
    throw ErrnoError("Socket: unable to query connection status.");
  if (error != 0) throw ErrnoError("Socket: unable to connect", error);
}

void Socket::Connect(const SocketAddress& address, int seconds) {
  _check_open();
  // Caught and not ignored, and without a restart: the arrival has to break the connect.
  SignalProcessor::instance().catch_signal(SIGALRM);
  ::alarm(static_cast<unsigned int>(seconds));
  try {
    Connect(address);
  } catch (const std::exception& error) {
    // Clears the alarm and tells what was left of it: nothing, if it has fired.
    if (::alarm(0) == 0) throw SocketConnectionTimedOut(std::string(error.what()) + ": timed out");
    throw;
  }
  ::alarm(0);
}

void Socket::Bind(const SocketAddress& address) {
  _check_open();
  const socklen_t length = address._SockLen();
  const mode_t mask = ::umask(0);
  const int result = ::bind(Fileno(), address._SockAddr(), length);
  const int error = errno;
  ::umask(mask);
  if (result != 0) throw ErrnoError("Socket: unable to bind to " + address.Presentation(), error);
}

void Socket::Listen(int backlog) {
  _check_open();
  if (::listen(Fileno(), backlog) != 0) throw ErrnoError("Socket: unable to listen");
  SetNonBlock();
}

Socket Socket::Accept(SocketAddress* peer) {
  _check_open();
  Received address(peer);
  const int fileno = ::accept(Fileno(), address.Address(), address.Length());
  if (fileno >= 0) {
    address.Keep();
    return Socket(fileno);
  }
  if (errno == ECONNABORTED) throw EConnAborted("Socket: client aborted connection");
  throw ErrnoError("Socket: accept error");
}

void Socket::GetSockName(SocketAddress* address) {
  _check_open();
  if (address == nullptr) return;
  Received name(address);
  if (::getsockname(Fileno(), name.Address(), name.Length()) != 0) throw ErrnoError("Socket: getsockname error");
  name.Keep();
}

void Socket::GetPeerName(SocketAddress* address) {
  _check_open();
  if (address == nullptr) return;
  Received name(address);
  if (::getpeername(Fileno(), name.Address(), name.Length()) != 0) throw ErrnoError("Socket: getpeername error");
  name.Keep();
}

unsigned int Socket::Send(const void* data, unsigned int size, MsgFlags flags) {
  _check_open();
  return Checked(::send(Fileno(), data, size, flags), "Socket: error in Send");
}

unsigned int Socket::SendTo(const SocketAddress& address, const void* data, unsigned int size, MsgFlags flags) {
  _check_open();
  return Checked(::sendto(Fileno(), data, size, flags, address._SockAddr(), address._SockLen()),
                 "Socket: error in SendTo");
}

unsigned int Socket::SendMsg(const msghdr* message, MsgFlags flags) {
  _check_open();
  return Checked(::sendmsg(Fileno(), message, flags), "Socket: error in SendMsg");
}

unsigned int Socket::RecvMsg(msghdr* message, MsgFlags flags) {
  _check_open();
  return Checked(::recvmsg(Fileno(), message, flags), "Socket: error in RecvMsg");
}

unsigned int Socket::Recv(void* data, unsigned int size, MsgFlags flags) {
  _check_open();
  return Checked(::recv(Fileno(), data, size, flags), "Socket: error in Recv");
}

unsigned int Socket::RecvFrom(SocketAddress* address, void* data, unsigned int size, MsgFlags flags) {
  _check_open();
  Received from(address);
  const unsigned int count =
      Checked(::recvfrom(Fileno(), data, size, flags, from.Address(), from.Length()), "Socket: error in RecvFrom");
  from.Keep();
  return count;
}
