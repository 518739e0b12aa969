// Where tools reach the station: TCP, one request a line, and its answer as one line.
//
// Who may reach the port is the network's business: by default it is bound to the loopback interface (SO_BINDTODEVICE,
// socket(7)), and nobody is asked who he is.
//
// A client harms nobody: of more than kMostClients at once the newest is closed, and so is one whose request doesn't
// end within kLongestRequest bytes, or who leaves kLongestQueue bytes of answers unread. One that has gone without a
// word loses its place within two minutes.
//
// Thread: the poll loop's.

#pragma once

#include <functional>
#include <map>
#include <string>

#include "net/socketserver.h"

class ControlPort : private SocketServerListener {
 public:
  static constexpr size_t kMostClients = 16;
  static constexpr size_t kLongestRequest = 1'000'000;
  static constexpr size_t kLongestQueue = 1'000'000;

  // What is asked, without its line end, to what is answered, without one. What it throws becomes the answer
  // "ERROR: " and the text. It must not destroy the port.
  using Answer = std::function<std::string(const std::string& request)>;

  // `interface`: empty for all. `port`: 0 for one of the system's choice. Throws what Socket throws.
  ControlPort(int port, const std::string& interface, Answer answer);

  int Port() const { return _server.Port(); }

 private:
  void ClientOpened(SocketClient& client) override;
  void ClientClosed(SocketClient& client) override;
  void ClientReadClosed(SocketClient& client) override;
  void GotRequest(SocketClient& client, const std::string& data) override;
  std::string _AnswerTo(const std::string& request) const;

  const Answer _answer;
  std::map<SocketClient*, std::string> _begun;  // requests, by the open client
  SocketServer _server{Socket::FamilyIPv4};
};
