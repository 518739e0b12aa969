#include "analyser/head.h"

#include <poll.h>

#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "net/bonjourclient.h"
#include "net/socket.h"
#include "runtime/delimparser.h"
#include "runtime/pollprocessor.h"

namespace {

constexpr const char* kAnalyserType = "_tarno-tn5500._tcp";
constexpr int kAnalyserPort = 5500;

// Milliseconds.
constexpr int kRetry = 2'000;
constexpr int kFirstWatch = 5'000;
constexpr int kWatch = 15'000;
constexpr int kNever = -1;

Head::Listener nobody;

// Links whose last handle went away in the middle of one of their calls; the loop deletes them when it is quiet, as it
// looks at a timer again after its handler has returned.
class Graveyard : public PollIdleHandler {
 public:
  static void Bury(PollItem* link) {
    static Graveyard graveyard;
    graveyard._links.emplace_back(link);
    graveyard.Register();
  }

  bool HandleIdle() override {
    _links.clear();
    UnRegister();
    return false;
  }

 private:
  Graveyard() : PollIdleHandler(false) {}

  std::vector<std::unique_ptr<PollItem>> _links;
};

Head::Listener* Checked(Head::Listener* listener) {
  if (listener == nullptr) throw std::runtime_error("Invalid listener in Head::Private::Private");
  return listener;
}

}  // namespace

void Head::Listener::HeadOpened() {}
void Head::Listener::HeadClosed() {}
void Head::Listener::HeadConnected(std::string) {}
void Head::Listener::HeadGotLine(std::string) {}
void Head::Listener::HeadGotBLOB(std::string) {}
void Head::Listener::HeadGotRaw(std::string) {}

class Head::Private : public PollItem, public PollTimer {
 public:
  enum LinkState { HeadIdle, HeadRetry, HeadWatch };
  enum LinkFlags { linkConnected = 1, linkClosing = 2 };

  Private(Listener* listener, const std::string& serviceType, int port, bool verbose);

  // Of the last handle. Deletes the link, at once or as soon as it may.
  static void Dispose(Private* link);

  void Connect(std::string target);
  void Disconnect();
  void Send(const std::string& text);
  void ExpectBLOB(unsigned int size) { _parser.ExpectBLOB(size); }
  bool IsConnected() const { return (_linkFlags & linkConnected) != 0; }
  const std::string& ConnectedTo() const { return _target; }

  int Fileno() const override { return _socket.Fileno(); }
  void HandleEvents(short revents) override;
  void HandleRead() override;
  void HandleWrite() override;
  void HandleError() override { _Fail("HandleError"); }
  void HandleInvalid() override { _Fail("HandleInvalid"); }
  void HandleHangUp() override { _Fail("HandleHangUp"); }
  void HandleTimeout() override;
  const char* Description() const override { return "Head"; }

 private:
  // Counts the calls under way that may reach the listener.
  class Call {
   public:
    explicit Call(Private& link) : _count(link._calls) { ++_count; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    ~Call() { --_count; }

   private:
    int& _count;
  };

  void _ConnectStep();
  bool _FindAddress(std::optional<SocketAddress>& ipv4, std::optional<SocketAddress>& ipv6) const;
  void _Open(const SocketAddress& address);
  bool _ConfirmConnect();
  void _Read();
  void _Write();
  void _DispatchIncomingData(const std::string& data);
  void _Close();
  void _CloseForGood();
  void _Retry(const std::string& message);
  template <class Step>
  void _Contain(const char* handler, Step step);
  void _Fail(const char* handler);
  short _PollAgain() const;
  void _Tell(const std::string& message) const;

  Listener* _listener;  // `nobody` once the last handle has gone
  const bool _useBonjour;
  std::string _target;
  const int _port;
  Socket _socket;
  std::string _sendQueue;
  int _linkFlags = 0;
  DelimParser _parser;
  bool _gotData = false;  // since the watch has looked
  const bool _verbose;
  BonjourResolver _resolver;
  BonjourClient _browser;
  LinkState _linkState = HeadIdle;

  unsigned int _session = 0;  // how many sockets have been closed: tells whether one is still the same
  bool _ending = false;       // Connect or Disconnect closes what HeadClosed has opened
  int _calls = 0;
};

Head::Private::Private(Listener* listener, const std::string& serviceType, int port, bool verbose)
    : PollItem(POLLIN, false),
      PollTimer(kNever, true),
      _listener(Checked(listener)),
      _useBonjour(!serviceType.empty()),
      _port(port),
      _verbose(verbose),
      _browser(&_resolver) {
  if (_useBonjour) _browser.Browse(serviceType);
}

void Head::Private::Dispose(Private* link) {
  if (link->_calls == 0) {
    delete link;
    return;
  }
  link->_listener = &nobody;
  link->_Close();
  link->PollTimer::UnRegister();
  Graveyard::Bury(link);
}

void Head::Private::Connect(std::string target) {
  if (_ending) return;
  const Call call(*this);
  _CloseForGood();
  _target = std::move(target);
  _ConnectStep();
}

void Head::Private::Disconnect() {
  if (_ending) return;
  const Call call(*this);
  _CloseForGood();
  SetTimeout(kNever);
  _linkState = HeadIdle;
}

void Head::Private::Send(const std::string& text) {
  if (!_socket.IsOpen() || (_linkFlags & linkClosing) != 0) return;
  _sendQueue += text;
  SetRequestedEvents(static_cast<short>(RequestedEvents() | POLLOUT));
}

void Head::Private::_ConnectStep() {
  SetTimeout(kNever);
  _linkState = HeadIdle;
  if (_listener == &nobody || _socket.IsOpen() || _target.empty()) return;
  _Tell("Attempting to connect to: " + _target + '\n');

  std::optional<SocketAddress> ipv4, ipv6;
  try {
    if (!_FindAddress(ipv4, ipv6)) {
      _Retry("No host info\n");
      return;
    }
  } catch (const std::exception& error) {
    _Retry("Unable to connect to " + _target + ": " + error.what() + '\n');
  }
  if (!ipv4 && !ipv6) {
    _Retry("No IP address\n");
    return;
  }
  _Open(ipv6 ? *ipv6 : *ipv4);
}

// False: nothing is known of the target. An address of the last kind wins, and one of IPv6 only if it is link-local.
bool Head::Private::_FindAddress(std::optional<SocketAddress>& ipv4, std::optional<SocketAddress>& ipv6) const {
  if (!_useBonjour) {
    ipv4.emplace(_target, SocketAddress::FamilyIPv4);
    ipv4->Port(_port);
    return true;
  }
  const BonjourResolver::HostInfo* host = _resolver.Lookup(_target);
  if (host == nullptr) return false;
  for (SocketAddress address : host->addresses) {
    _Tell("Got address: " + address.Presentation() + '\n');
    if (_port > 0) address.Port(_port);
    if (address.Family() == SocketAddress::FamilyIPv4)
      ipv4 = address;
    else if (address.Family() == SocketAddress::FamilyIPv6 && address.IsLinkLocal())
      ipv6 = address;
  }
  return true;
}

void Head::Private::_Open(const SocketAddress& address) {
  try {
    PollItem::Register();
    SetRequestedEvents(POLLIN | POLLOUT);
    _Tell("Connecting to: " + address.Presentation() + '\n');
    _socket.Open(address.Family(), Socket::TypeStream, 0);
    _socket.SetNonBlock();
    _socket.Connect(address);
    const unsigned int session = _session;
    _listener->HeadOpened();
    if (_session != session) return;
    SetTimeout(kFirstWatch);
    _linkState = HeadWatch;
  } catch (const std::exception&) {
    PollItem::UnRegister();
    _socket._close();
    ++_session;
    _Retry("Unable to connect\n");
  }
}

void Head::Private::_Retry(const std::string& message) {
  _Tell(message);
  SetTimeout(kRetry);
  _linkState = HeadRetry;
}

void Head::Private::HandleTimeout() {
  const Call call(*this);
  if (_linkState == HeadRetry && !_socket.IsOpen()) {
    _ConnectStep();
  } else if (_linkState == HeadWatch && _gotData) {
    _gotData = false;
    AddTimeout(kWatch);
  }
}

// The loop matches events to items by descriptor, and a new socket may have got the descriptor of one that was closed
// in this very pass, by us or by others: the old one's events are not for it. So a socket that hasn't told of its
// connect is asked itself, and what is left of a closed one's events is dropped.
void Head::Private::HandleEvents(short revents) {
  const Call call(*this);
  if (!IsConnected()) revents = _PollAgain();
  const unsigned int session = _session;
  for (const short event : {POLLIN, POLLOUT, POLLERR, POLLHUP, POLLNVAL})
    if (_session == session) PollItem::HandleEvents(static_cast<short>(revents & event));
}

short Head::Private::_PollAgain() const {
  pollfd asked = {Fileno(), RequestedEvents(), 0};
  return poll(&asked, 1, 0) > 0 ? asked.revents : short{0};
}

void Head::Private::HandleRead() {
  _Contain("HandleRead", [this] { _Read(); });
}

void Head::Private::HandleWrite() {
  _Contain("HandleWrite", [this] { _Write(); });
}

// What is thrown ends the connection, not the process; that goes for the HeadClosed of its end, too.
template <class Step>
void Head::Private::_Contain(const char* handler, Step step) {
  const auto tell = [handler](const std::exception& error) {
    std::cout << "Head::Private::" << handler << "(): Got exception " << error.what() << '\n';
  };
  try {
    step();
    return;
  } catch (const std::exception& error) {
    tell(error);
  }
  try {
    _Close();
  } catch (const std::exception& error) {
    tell(error);
  }
}

void Head::Private::_Fail(const char* handler) {
  std::cout << "Head::Private::" << handler << "()\n";
  _Close();
}

// The first event of a socket tells how the connect went. False: there is no socket, or not the same any more.
bool Head::Private::_ConfirmConnect() {
  if (!_socket.IsOpen()) return false;
  if (IsConnected()) return true;
  _socket.CheckConnect();
  _linkFlags |= linkConnected;
  const unsigned int session = _session;
  _listener->HeadConnected(_target);
  return _session == session;
}

// An event with nothing behind it is none: reading would fail, and a failure ends the connection.
void Head::Private::_Read() {
  if (!_ConfirmConnect() || (_PollAgain() & (POLLIN | POLLERR | POLLHUP)) == 0) return;
  std::string data;
  if (_socket.Read(data) > 0) {
    _DispatchIncomingData(data);
  } else if (_sendQueue.empty()) {
    _Close();
    _Tell("Head::Private::HandleRead(): socket closed.\n");
  } else {
    _linkFlags |= linkClosing;
    SetRequestedEvents(static_cast<short>(RequestedEvents() & ~POLLIN));
    _Tell("Head::Private::HandleRead(): socket closing...\n");
  }
}

void Head::Private::_DispatchIncomingData(const std::string& data) {
  _gotData = true;
  const unsigned int session = _session;
  _listener->HeadGotRaw(data);
  _parser.AppendRawData(data);
  while (_session == session) {
    std::string record;
    bool isBLOB = false;
    if (!_parser.GetNextStringOrBLOB(record, isBLOB)) return;
    if (isBLOB)
      _listener->HeadGotBLOB(std::move(record));
    else
      _listener->HeadGotLine(std::move(record));
  }
}

void Head::Private::_Write() {
  if (!_ConfirmConnect()) return;
  if (!_sendQueue.empty()) {
    _sendQueue.erase(0, _socket.Write(_sendQueue));
    if (!_sendQueue.empty()) return;
  }
  if ((_linkFlags & linkClosing) != 0) {
    _Close();
    _Tell("Head::Private::HandleWrite(): socket closed.\n");
  } else {
    SetRequestedEvents(static_cast<short>(RequestedEvents() & ~POLLOUT));
  }
}

void Head::Private::_Close() {
  const bool was_open = _socket.IsOpen();
  if (was_open) {
    _socket.Close();
    ++_session;
  }
  _linkFlags = 0;
  PollItem::UnRegister();
  SetTimeout(kRetry);
  _linkState = HeadRetry;
  if (was_open) _listener->HeadClosed();
}

// Closes for Connect and Disconnect, which have the last word. What HeadClosed opens is closed again, and told again;
// nothing is begun from there any more, or it might never end.
void Head::Private::_CloseForGood() {
  _Close();
  if (!_socket.IsOpen()) return;
  struct Ending {
    explicit Ending(bool& state) : flag(state) { flag = true; }
    ~Ending() { flag = false; }
    bool& flag;
  } ending(_ending);
  _Close();
}

void Head::Private::_Tell(const std::string& message) const {
  if (_verbose) std::cout << message;
}

Head::Head(Listener* listener, bool verbose) : Head(listener, kAnalyserType, kAnalyserPort, verbose) {}

Head::Head(Listener* listener, const std::string& serviceType, bool verbose)
    : Head(listener, serviceType, 0, verbose) {}

Head::Head(Listener* listener, const std::string& serviceType, int port, bool verbose)
    : _private(new Private(listener, serviceType, port, verbose), &Private::Dispose) {}

Head::Head(Listener* listener, int port, bool verbose) : Head(listener, std::string(), port, verbose) {}

// A callback may destroy this very handle: what it is called for stays, by way of Dispose.
void Head::Connect(std::string target) {
  _private->Connect(std::move(target));
}

void Head::Disconnect() {
  _private->Disconnect();
}

void Head::Send(const std::string& text) {
  _private->Send(text);
}

void Head::ExpectBLOB(unsigned int size) {
  _private->ExpectBLOB(size);
}

bool Head::IsConnected() const {
  return _private->IsConnected();
}

std::string Head::ConnectedTo() const {
  return _private->ConnectedTo();
}
