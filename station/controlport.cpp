#include "station/controlport.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <exception>
#include <utility>

#include "runtime/errnoexcept.h"

namespace {

// One that has lost its network or its power never ends the connection: it is asked after a minute of silence, and
// given up after another one.
constexpr struct {
  int level, option, value;
} kKeepAlive[] = {{SOL_SOCKET, SO_KEEPALIVE, 1},
                  {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                  {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                  {IPPROTO_TCP, TCP_KEEPCNT, 4}};

}  // namespace

ControlPort::ControlPort(int port, const std::string& interface, Answer answer) : _answer(std::move(answer)) {
  if (!interface.empty() && setsockopt(_server.Fileno(), SOL_SOCKET, SO_BINDTODEVICE, interface.data(),
                                       static_cast<socklen_t>(interface.size())) != 0)
    ThrowErrno("Unable to use the interface ", interface);
  for (const auto& [level, option, value] : kKeepAlive)
    setsockopt(_server.Fileno(), level, option, &value, sizeof value);  // clients take it over
  _server.RegisterListener(*this);
  _server.Listen(port);
}

void ControlPort::ClientOpened(SocketClient& client) {
  if (_begun.size() >= kMostClients) return client.Close();
  _begun.emplace(&client, "");
}

void ControlPort::ClientClosed(SocketClient& client) {
  _begun.erase(&client);
}

// One that asks and ends its side still gets its answers.
void ControlPort::ClientReadClosed(SocketClient& client) {
  client.CloseWhenDone();
}

// What an answer does may close the client.
void ControlPort::GotRequest(SocketClient& client, const std::string& data) {
  size_t begin = 0;
  for (size_t end; (end = data.find('\n', begin)) != std::string::npos; begin = end + 1) {
    const auto begun = _begun.find(&client);
    if (begun == _begun.end()) return;
    std::string request = std::exchange(begun->second, "") + data.substr(begin, end - begin);
    if (request.ends_with('\r')) request.pop_back();
    if (!request.empty()) client.Write(_AnswerTo(request) + '\n');
    if (client.Queued() > kLongestQueue) return client.Close();
  }
  const auto begun = _begun.find(&client);
  if (begun == _begun.end()) return;
  begun->second.append(data, begin);
  if (begun->second.size() > kLongestRequest) client.Close();
}

std::string ControlPort::_AnswerTo(const std::string& request) const {
  try {
    return _answer(request);
  } catch (const std::exception& error) {
    return std::string("ERROR: ") + error.what();
  }
}
