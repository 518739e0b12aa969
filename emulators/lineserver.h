// What instruments on the network have in common: a listening socket, and the one peer that it serves, the one that
// came last. Lines come in whole; what goes out is queued.
//
// Thread: the poll loop's.

#pragma once

#include <string>

#include "net/socket.h"
#include "runtime/pollprocessor.h"

class LineServer {
 public:
  virtual ~LineServer() noexcept(false) = default;

  const std::string& Host() const { return _host; }
  int Port() const { return _port; }
  int Connections() const { return _connections; }  // taken so far
  bool IsConnected() const { return _peer.IsOpen(); }

  void Refuse();             // takes no connection until Listen; the present one stays
  void Listen();             // again
  void Stall(bool stalled);  // sends nothing and reads nothing while the connection stands
  void HangUp();             // ends the connection between two lines
  void Reset();              // ends it with a reset, so that bytes under way may be lost
  void Send(const std::string& bytes);

 protected:
  // With port 0 a port of its own. Listens from Listen on, so that a derived class is whole when a peer comes.
  LineServer(const std::string& host, int port) : _host(host), _port(port) {}

  virtual void Accepted() = 0;
  // Without its line feed. May end the connection.
  virtual void GotLine(const std::string& line) = 0;
  bool IsJammed() const { return _peer.IsJammed(); }
  bool IsStalled() const { return _stalled; }

 private:
  class Door : public PollItem {
   public:
    explicit Door(LineServer& server) : PollItem(POLLIN, false), _server(server) {}
    void Open(const std::string& host, int& port);
    void Close();
    int Fileno() const override { return _socket.Fileno(); }
    void HandleRead() override;

   private:
    LineServer& _server;
    Socket _socket;
  };

  class Peer : public PollItem {
   public:
    explicit Peer(LineServer& server) : PollItem(POLLIN, false), _server(server) {}
    void Take(const Socket& socket);
    bool IsOpen() const { return _socket.IsOpen(); }
    bool IsJammed() const { return !_queue.empty(); }
    void Send(const std::string& bytes);
    void Stall(bool stalled);
    void Close(bool reset);
    int Fileno() const override { return _socket.Fileno(); }
    void HandleRead() override;
    void HandleWrite() override;
    void HandleHangUp() override { Close(false); }

   private:
    LineServer& _server;
    Socket _socket;
    std::string _queue;
    std::string _input;
    bool _stalled = false;
  };

  void _Take(const Socket& socket);

  const std::string _host;
  int _port;
  Door _door{*this};
  Peer _peer{*this};
  bool _stalled = false;
  int _connections = 0;
};
