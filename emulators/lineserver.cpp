#include "emulators/lineserver.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "net/socketaddress.h"
#include "runtime/errnoexcept.h"

namespace {

constexpr int kBacklog = 4;

}  // namespace

void LineServer::Door::Open(const std::string& host, int& port) {
  SocketAddress address(host);
  address.Port(port);
  _socket.Open(address.Family(), Socket::TypeStream, 0);
  _socket.Bind(address);
  _socket.Listen(kBacklog);
  _socket.GetSockName(&address);
  port = address.Port();
  Register();
}

void LineServer::Door::Close() {
  UnRegister();
  _socket._close();
}

void LineServer::Door::HandleRead() {
  try {
    _server._Take(_socket.Accept(nullptr));
  } catch (const ErrnoError&) {
    // It went away again.
  }
}

void LineServer::Peer::Take(const Socket& socket) {
  Close(false);
  _socket = socket;
  _socket.SetNonBlock();
  // A line goes out when it is there, instead of waiting for the last one to be acknowledged.
  const int at_once = 1;
  setsockopt(_socket.Fileno(), IPPROTO_TCP, TCP_NODELAY, &at_once, sizeof at_once);
  Register();
}

void LineServer::Peer::Send(const std::string& bytes) {
  if (!IsOpen()) return;
  _queue += bytes;
  HandleWrite();
}

void LineServer::Peer::Stall(bool stalled) {
  _stalled = stalled;
  SetRequestedEvents(stalled ? 0 : POLLIN | POLLOUT);
}

void LineServer::Peer::Close(bool reset) {
  if (!IsOpen()) return;
  const linger at_once = {1, 0};
  if (reset) setsockopt(_socket.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  UnRegister();
  _socket.Close();
  _queue.clear();
  _input.clear();
}

void LineServer::Peer::HandleRead() {
  std::string data;
  try {
    _socket.Read(data);
  } catch (const ErrnoError&) {
    data.clear();
  }
  if (data.empty()) {
    Close(false);
    return;
  }
  _input += data;
  for (size_t end; (end = _input.find('\n')) != std::string::npos;) {
    const std::string line = _input.substr(0, end);
    _input.erase(0, end + 1);
    _server.GotLine(line);
  }
}

void LineServer::Peer::HandleWrite() {
  if (_stalled) return;
  const ssize_t sent = send(Fileno(), _queue.data(), _queue.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent > 0) _queue.erase(0, static_cast<size_t>(sent));
  SetRequestedEvents(_queue.empty() ? POLLIN : POLLIN | POLLOUT);
}

void LineServer::Refuse() {
  _door.Close();
}

void LineServer::Listen() {
  _door.Close();
  _door.Open(_host, _port);
}

void LineServer::Stall(bool stalled) {
  _stalled = stalled;
  _peer.Stall(stalled);
}

void LineServer::HangUp() {
  _peer.Close(false);
}

void LineServer::Reset() {
  _peer.Close(true);
}

void LineServer::Send(const std::string& bytes) {
  _peer.Send(bytes);
}

void LineServer::_Take(const Socket& socket) {
  ++_connections;
  _peer.Take(socket);
  _peer.Stall(_stalled);
  Accepted();
}
