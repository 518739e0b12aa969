// A methane analyser on the network: sends its header lines to whoever connects, then data lines at its rate, and
// misbehaves when told to.
//
// Everything runs on the poll loop's time; data lines carry the system's present moment. It obeys <rate> in what it is
// sent and acknowledges each line. It serves one peer, the one that came last, and as the instrument has little
// memory, lines that find the connection jammed are lost whole.
//
// Thread: the poll loop's.

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "emulators/announcement.h"
#include "net/socket.h"
#include "runtime/pollprocessor.h"

class Analyser : public PollTimer {
 public:
  static constexpr const char* kType = "_tarno-tn5500._tcp";
  static constexpr int kFastest = 40;  // lines a second

  // Listens at once, with port 0 on a port of its own.
  explicit Analyser(const std::string& host = "127.0.0.1", int port = 0);

  const std::string& Host() const { return _host; }
  int Port() const { return _port; }
  // In lines a second, to kFastest; 0 for silence. 10 at first.
  void SetRate(int rate);

  int Connections() const { return _connections; }  // taken so far
  bool IsConnected() const { return _peer.IsOpen(); }
  // Each line that it was sent, without its end.
  const std::vector<std::string>& Commands() const { return _commands; }
  void ForgetCommands() { _commands.clear(); }
  int LinesSent() const { return _lines; }

  // Through the Avahi daemon, as a service of this host; by Vanish it is withdrawn and nobody can connect any more.
  void Announce(const std::string& name);
  void Vanish();
  // Where it is to be found from now on; ends the connection.
  void MoveTo(const std::string& host);

  void Refuse();                  // takes no connection until Listen or MoveTo; the present one stays
  void Listen();                  // again
  void Stall(bool stalled);       // sends nothing and reads nothing while the connection stands
  void CutLine();                 // sends the first half of a line and ends the connection
  void HangUp();                  // ends the connection between two lines
  void Reset();                   // ends it with a reset, so that bytes under way may be lost
  void SendGarbage(size_t size);  // noise of all bytes, line feeds included, with an end of its own
  void Send(const std::string& bytes);

  // The header lines, and a data line with its sum; AUX1 is its number.
  static std::string Headers();
  static std::string DataLine(int32_t seconds, int32_t nanoseconds, int number);

  void HandleTimeout() override;
  const char* Description() const override { return "Analyser"; }

 private:
  class Door : public PollItem {
   public:
    explicit Door(Analyser& analyser) : PollItem(POLLIN, false), _analyser(analyser) {}
    void Open(const std::string& host, int& port);
    void Close();
    int Fileno() const override { return _socket.Fileno(); }
    void HandleRead() override;

   private:
    Analyser& _analyser;
    Socket _socket;
  };

  class Peer : public PollItem {
   public:
    explicit Peer(Analyser& analyser) : PollItem(POLLIN, false), _analyser(analyser) {}
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
    Analyser& _analyser;
    Socket _socket;
    std::string _queue;
    std::string _input;
    bool _stalled = false;
  };

  void _Accepted(const Socket& socket);
  void _Obey(const std::string& command);

  std::string _host;
  int _port;
  int _rate = 10;
  Door _door;
  Peer _peer;
  bool _stalled = false;
  int _connections = 0;
  int _lines = 0;
  std::vector<std::string> _commands;
  std::optional<Announcement> _announcement;
  uint32_t _noise = 1;
};
