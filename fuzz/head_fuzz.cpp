// The link beside a plain model of it, on random walks through all that its owner, its listener, its peers and the time
// can do; from inside the listener's calls as well. Sockets are real, time is virtual. Both have to tell the same
// events in the same order, to send the same bytes to the same peer, and to wait for the same moment.
//
// Input: a byte for each step, the deed in its low four bits. The listener's deeds are picked by the number of the
// event, out of the same bytes.

#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "analyser/head.h"
#include "emulators/virtual_time.h"
#include "net/socket.h"
#include "runtime/pollprocessor.h"

namespace {

constexpr const char* kNoRoute = "255.255.255.255";  // a connect fails at once
constexpr std::array<const char*, 4> kTargets = {"127.0.0.1", "127.0.0.2", kNoRoute, ""};
constexpr std::array<const char*, 8> kTexts = {"a", "\n", "bc\n", "d\n\ne", "0123456789", "x\r\ny\n", "\n\n", "z"};

using Events = std::vector<std::string>;
using Sent = std::array<std::string, 2>;  // by server

// What the link is to do, without sockets and without a loop. Times are in milliseconds.
class Model {
 public:
  std::function<void()> on_event = [] {};
  double now = 0;
  Events events;
  Sent sent;
  std::array<bool, 2> listening = {true, true};
  std::array<int, 2> accepted = {};

  bool open = false, answered = false, connected = false, gone = false;
  std::string target, input;  // on its way from the peer
  bool ended = false;         // by the peer, in good order
  bool reset = false;         // or not
  double due = -1;            // of the timer; negative: none

  void Connect(const std::string& to) {
    if (gone || _ending) return;
    _CloseForGood();
    target = to;
    _Attempt();
  }
  void Disconnect() {
    if (gone || _ending) return;
    _CloseForGood();
    due = -1;
    _state = Idle;
  }
  void Send(const std::string& text) {
    if (!gone && open && !_closing) _queue += text;
  }
  void ExpectBLOB(unsigned int size) {
    if (!gone) _block = size;
  }
  void LetGo() {
    gone = true;
    _Close();
    due = -1;
  }
  // A new link in the world as it is.
  void Renew() {
    Model fresh;
    fresh.on_event = on_event;
    fresh.now = now;
    fresh.events = events;
    fresh.sent = sent;
    fresh.listening = listening;
    fresh.accepted = accepted;
    *this = fresh;
  }
  int Server() const { return target == kTargets[0] ? 0 : 1; }

  // What one pass of the loop does.
  void Pass() {
    if (due >= 0 && now >= due) {
      const double was_due = std::exchange(due, -1);
      if (_state == Retry && !open) {
        _Attempt();
      } else if (_state == Watch && _got_data) {
        _got_data = false;
        due = was_due + 15'000;
      }
    }
    if (!open) return;
    try {
      _Events();
    } catch (const std::exception&) {
      _Close();
    }
  }

 private:
  enum State { Idle, Retry, Watch };

  void _Note(const std::string& event) {
    if (gone) return;
    events.push_back(event);
    on_event();
  }

  void _Close() {
    const bool was_open = std::exchange(open, false);
    connected = _closing = ended = reset = false;
    input.clear();
    _state = Retry;
    due = gone ? -1 : now + 2'000;
    if (!was_open) return;
    ++_session;
    try {
      _Note("closed");
    } catch (const std::exception&) {
    }
  }
  void _CloseForGood() {
    _Close();
    _ending = true;
    _Close();
    _ending = false;
  }

  void _Attempt() {
    due = -1;
    _state = Idle;
    if (gone || open || target.empty()) return;
    if (target != kNoRoute) {
      open = true;
      if (listening[Server()]) ++accepted[Server()];
      answered = listening[Server()];
      const int was = _session;
      try {
        _Note("opened");
        if (_session != was) return;
        due = now + 5'000;
        _state = Watch;
        return;
      } catch (const std::exception&) {
        open = connected = _closing = ended = reset = false;
        input.clear();
      }
    }
    ++_session;
    due = gone ? -1 : now + 2'000;
    _state = Retry;
  }

  void _Events() {
    const int was = _session;
    if (!connected) {
      if (!answered || reset) throw std::runtime_error("refused");
      connected = true;
      _Note("connected " + target);
      if (_session != was) return;
    }
    if (!input.empty()) {
      const std::string data = std::exchange(input, "");
      _got_data = true;
      _Note("raw " + data);
      _buffer += data;
      const int at_raw = _session;
      while (_session == at_raw) {
        const unsigned int block = _block;
        const size_t size = block > 0 ? block : _buffer.find('\n') + 1;
        if (size == 0 || size > _buffer.size()) break;
        const std::string record = _buffer.substr(0, size);
        _buffer.erase(0, size);
        _block = 0;
        _Note((block > 0 ? "blob " : "line ") + record);
      }
      if (_session != was) return;
    } else if (ended) {
      if (_queue.empty()) return _Close();
      _closing = true;
    }
    if (reset) return _Close();
    sent[Server()] += std::exchange(_queue, "");
    if (_closing) _Close();
  }

  State _state = Idle;
  bool _closing = false, _got_data = false, _ending = false;
  unsigned int _block = 0;
  int _session = 0;
  std::string _queue, _buffer;
};

// Waits in real time, as long as the system may need for what it has been told; of a descriptor for input.
void Await(int fd, long milliseconds = 1'000) {
  const timespec time = {milliseconds / 1'000, milliseconds % 1'000 * 1'000'000};
  pollfd waiting = {fd, POLLIN, 0};
  ppoll(&waiting, 1, &time, nullptr);
}

// The other end of the link, whose port never is anybody else's.
struct Server {
  Server(const char* host, int port) {
    SocketAddress address(host);
    address.Port(port);
    holder.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
    holder.Bind(address);
    Listen(true);
  }
  int Port() {
    SocketAddress address(Socket::FamilyIPv4);
    holder.GetSockName(&address);
    return address.Port();
  }
  void Listen(bool listening) {
    door._close();
    if (!listening) return;
    SocketAddress address(Socket::FamilyIPv4);
    holder.GetSockName(&address);
    door.Open(Socket::FamilyIPv4, Socket::TypeStream, 0);
    door.Bind(address);
    door.Listen(64);
  }
  // The next connection; it is the peer from now on.
  void Accept() {
    Finish();
    Await(door.Fileno());
    peer = door.Accept(nullptr);
    ++accepted;
    pending.clear();
    Set(TCP_NODELAY);
  }
  void Read() {
    char data[4096];
    for (ssize_t size; peer.IsOpen() && (size = recv(peer.Fileno(), data, sizeof data, MSG_DONTWAIT)) > 0;)
      got.append(data, static_cast<size_t>(size));
    if (peer.IsOpen()) Set(TCP_QUICKACK);
  }
  // The link has left the last connection; what it sent before may still be under way.
  void Finish() {
    char next;
    for (Read(); peer.IsOpen() && recv(peer.Fileno(), &next, 1, MSG_DONTWAIT | MSG_PEEK) < 0 && errno == EAGAIN; Read())
      Await(peer.Fileno());
  }
  // Sends all that is pending as one: the system holds back what comes after some ten small pieces until the first are
  // acknowledged, and the link would read them in two goes.
  void Flush() {
    if (!pending.empty() && peer.IsOpen()) send(peer.Fileno(), pending.data(), pending.size(), MSG_NOSIGNAL);
    pending.clear();
  }
  void Reset() {
    Read();
    Flush();
    const linger at_once = {1, 0};
    setsockopt(peer.Fileno(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    peer.Close();
  }
  // What is written goes out at once, and what is read is acknowledged at once, so that the link's next bytes come.
  void Set(int option) const {
    const int on = 1;
    setsockopt(peer.Fileno(), IPPROTO_TCP, option, &on, sizeof on);
  }

  Socket holder, door, peer;
  int accepted = 0;
  std::string got, pending;
};

class Walk : public Head::Listener {
 public:
  Walk(const uint8_t* bytes, size_t size) : _bytes(bytes), _size(size) {
    _model.on_event = [this] { _DoInACall(_model, _model.events.size()); };
    _head.emplace(this, _servers[0].Port(), false);
  }
  ~Walk() noexcept override = default;

  void Run() {
    for (size_t i = 0; i < _size; ++i) _Step(_bytes[i] & 15U, _bytes[i] >> 4U);
    _Settle();
  }

  // The system ends the handshake on a busy machine later than the link can be told to leave.
  void HeadOpened() override {
    const size_t server = _head->ConnectedTo() == kTargets[0] ? 0 : 1;
    if (_model.listening[server]) _servers[server].Accept();
    _Note("opened");
  }
  void HeadClosed() override { _Note("closed"); }
  void HeadConnected(std::string to) override { _Note("connected " + to); }
  void HeadGotLine(std::string line) override { _Note("line " + line); }
  void HeadGotBLOB(std::string blob) override { _Note("blob " + blob); }
  void HeadGotRaw(std::string data) override { _Note("raw " + data); }

 private:
  // The same names for the link's handle.
  struct Real {
    std::optional<Head>& head;
    void Connect(const std::string& to) {
      if (head) head->Connect(to);
    }
    void Disconnect() {
      if (head) head->Disconnect();
    }
    void Send(const std::string& text) {
      if (head) head->Send(text);
    }
    void ExpectBLOB(unsigned int size) {
      if (head) head->ExpectBLOB(size);
    }
    void LetGo() { head.reset(); }
  };

  template <class Link>
  static void _Do(Link&& link, unsigned int deed, unsigned int detail) {
    switch (deed) {
      case 0:
      case 1:
        return link.Connect(kTargets[detail % kTargets.size()]);
      case 2:
        return link.Disconnect();
      case 3:
        return link.Send("sent " + std::to_string(detail) + '\n');
      case 4:
        return link.ExpectBLOB(detail);
      case 5:
        if (detail < 2) link.LetGo();
        return;
      default:
        return;
    }
  }

  // In every fourth call or so.
  template <class Link>
  void _DoInACall(Link&& link, size_t event) const {
    const unsigned int byte = _bytes[event * 7 % _size] ^ static_cast<unsigned int>(event * 37 & 0xFF);
    _Do(link, (byte & 31U), byte >> 5U);
    if ((byte & 31U) == 6) throw std::runtime_error("enough");
  }

  void _Note(const std::string& event) {
    _events.push_back(event);
    _DoInACall(Real{_head}, _events.size());
  }

  void _Step(unsigned int deed, unsigned int detail) {
    _model.now = _Now();
    if (deed < 6) {
      _Do(_model, deed, detail);
      _Do(Real{_head}, deed, detail);
      return _Compare();
    }
    const auto server = static_cast<size_t>(_model.Server());
    const bool linked = _model.open && _model.answered && !_model.ended && !_model.reset;
    switch (deed) {
      case 6:
      case 7:
      case 8:
        if (!linked) return;
        _servers[server].pending += kTexts[detail % kTexts.size()];
        _model.input += kTexts[detail % kTexts.size()];
        return;
      case 9:
        if (!linked) return;
        _servers[server].Flush();
        _servers[server].peer.Shutdown(Socket::ShutdownWrite);
        _model.ended = true;
        return;
      case 14:
        if (!linked) return;
        _servers[server].Reset();
        _model.reset = true;
        return;
      case 10:
        _model.listening[detail & 1] = detail < 12;
        return _servers[detail & 1].Listen(detail < 12);
      case 11:
      case 12:
        _time.Advance(int64_t{detail} * (deed == 11 ? 1'010 : 410));
        return _Settle();
      case 15:
        if (_model.gone) {
          _model.Renew();
          _head.emplace(this, _servers[0].Port(), false);
        }
        return _Settle();
      default:
        return _Settle();
    }
  }

  // Lets both come to rest. The loop may take more passes, as the system has work to do.
  void _Settle() {
    _model.now = _Now();
    for (Server& server : _servers) server.Flush();
    for (int pass = 0; pass < 8; ++pass) _model.Pass();
    for (int pass = 0; pass < 5 || (pass < 300 && !_Same()); ++pass) {
      if (pass > 20) Await(-1, 1);
      PollProcessor::Instance().Poll(0);
    }
    _Compare();
  }

  bool _Same() {
    for (Server& server : _servers) server.Read();
    return _servers[0].accepted == _model.accepted[0] && _servers[1].accepted == _model.accepted[1] &&
           _events == _model.events && _servers[0].got == _model.sent[0] && _servers[1].got == _model.sent[1];
  }

  void _Compare() {
    const double left = PollProcessor::Instance().RunTimers(-1), expected = _model.due < 0 ? -1 : _model.due - _Now();
    if (_Same() && std::abs(left - expected) < 20 && _head.has_value() != _model.gone &&
        (!_head || (_head->IsConnected() == _model.connected && _head->ConnectedTo() == _model.target)))
      return;
    std::cerr << "connected " << _model.connected << ", waits " << expected << " and " << left << " ms\n";
    for (size_t i = 0; i < std::max(_events.size(), _model.events.size()); ++i)
      std::cerr << (i < _model.events.size() ? _model.events[i] : "-") << " : "
                << (i < _events.size() ? _events[i] : "-") << '\n';
    for (size_t i : {0, 1}) std::cerr << "sent " << _model.sent[i] << " : " << _servers[i].got << '\n';
    abort();
  }

  double _Now() const { return static_cast<double>(_time.monotonic) / 1e6; }

  const uint8_t* const _bytes;
  const size_t _size;
  VirtualTime _time;
  std::vector<Server> _servers = _MakeServers();
  Model _model;
  std::optional<Head> _head;
  Events _events;

  static std::vector<Server> _MakeServers() {
    std::vector<Server> servers;
    servers.reserve(2);
    servers.emplace_back(kTargets[0], 0);
    servers.emplace_back(kTargets[1], servers[0].Port());
    return servers;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool no_bus = setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1) == 0;
  std::cout.rdbuf(nullptr);  // what the link tells of each failure
  if (size == 0 || !no_bus) return 0;
  Walk(data, size).Run();
  return 0;
}
