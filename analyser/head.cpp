#include "analyser/head.h"

#include <poll.h>

#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

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

Head::Listener* Checked(Head::Listener* listener) {
  if (listener == nullptr) throw std::runtime_error("Invalid listener in Head::Private::Private");
  return listener;
}

// What was thrown in a function of the link.
void Report(const char* function, const std::exception& error) {
  std::cout << "Head::Private::" << function << "(): Got exception " << error.what() << std::endl;
}

}  // namespace

void Head::Listener::HeadOpened() {}
void Head::Listener::HeadClosed() {}
void Head::Listener::HeadConnected(std::string) {}
void Head::Listener::HeadGotLine(std::string) {}
void Head::Listener::HeadGotBLOB(std::string) {}
void Head::Listener::HeadGotRaw(std::string) {}

// The handles share it by Head::_private; a call under way holds it besides, so that it may end what it has begun when
// the last handle goes in the middle of it.
class Head::Private : public PollItem, public PollTimer, public std::enable_shared_from_this<Private> {
 public:
  enum LinkState { HeadIdle, HeadRetry, HeadWatch };
  enum LinkFlags { linkConnected = 1, linkClosing = 2 };

  Private(Listener* listener, const std::string& serviceType, int port, bool verbose);

  // The last handle has gone: nobody hears of anything any more.
  void LetGo();

  void Connect(std::string target);
  void Disconnect();
  void Send(const std::string& text);
  void ExpectBLOB(unsigned int size) { _parser.ExpectBLOB(size); }
  BonjourResolver& Resolver() { return _resolver; }
  bool IsConnected() const { return (_linkFlags & linkConnected) != 0; }
  const std::string& ConnectedTo() const { return _target; }

  int Fileno() const override { return _socket.Fileno(); }
  void HandleEvents(short revents) override;
  void HandleRead() override { _Handle<&Private::_Read>("HandleRead"); }
  void HandleWrite() override { _Handle<&Private::_Write>("HandleWrite"); }
  void HandleError() override { _Fail("HandleError"); }
  void HandleInvalid() override { _Fail("HandleInvalid"); }
  void HandleHangUp() override { _Fail("HandleHangUp"); }
  void HandleTimeout() override;
  const char* Description() const override { return "Head"; }

 private:
  void _ConnectStep();
  bool _FindAddress(std::optional<SocketAddress>& ipv4, std::optional<SocketAddress>& ipv6) const;
  void _Open(const SocketAddress& address);
  bool _ConfirmConnect();
  void _Read();
  void _Write();
  void _DispatchIncomingData(const std::string& data);
  void _Close(const char* caller);
  void _CloseForGood(const char* caller);
  void _Retry(const std::string& message);
  template <void (Private::*step)()>
  void _Handle(const char* name);
  void _Fail(const char* name);
  short _PollAgain() const;
  void _Tell(const std::string& message) const;

  Listener* _listener;  // `nobody` after LetGo
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

void Head::Private::LetGo() {
  _listener = &nobody;
  _Close("LetGo");
}

void Head::Private::Connect(std::string target) {
  if (_ending) return;
  const auto alive = shared_from_this();
  _CloseForGood("Connect");
  _target = std::move(target);
  _ConnectStep();
}

void Head::Private::Disconnect() {
  if (_ending) return;
  const auto alive = shared_from_this();
  _CloseForGood("Disconnect");
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
  const auto alive = shared_from_this();
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
  const auto alive = shared_from_this();
  if (!IsConnected()) revents = _PollAgain();
  const unsigned int session = _session;
  for (const short event : {POLLIN, POLLOUT, POLLERR, POLLHUP, POLLNVAL})
    if (_session == session) PollItem::HandleEvents(static_cast<short>(revents & event));
}

short Head::Private::_PollAgain() const {
  pollfd asked = {Fileno(), RequestedEvents(), 0};
  return poll(&asked, 1, 0) > 0 ? asked.revents : short{0};
}

// What is thrown ends the connection, not the process.
template <void (Head::Private::*step)()>
void Head::Private::_Handle(const char* name) {
  try {
    (this->*step)();
  } catch (const std::exception& error) {
    Report(name, error);
    _Close(name);
  }
}

void Head::Private::_Fail(const char* name) {
  std::cout << "Head::Private::" << name << "()" << std::endl;
  _Close(name);
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
    _Close("HandleRead");
    _Tell("Head::Private::HandleRead(): socket closed.\n");
  } else {
    _linkFlags |= linkClosing;
    SetRequestedEvents(static_cast<short>(RequestedEvents() & ~POLLIN));
    _Tell("Head::Private::HandleRead(): socket closing...\n");
  }
}

void Head::Private::_DispatchIncomingData(const std::string& data) {
  _gotData = true;
  _listener->HeadGotRaw(data);
  _parser.AppendRawData(data);
  const unsigned int session = _session;
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
    _Close("HandleWrite");
    _Tell("Head::Private::HandleWrite(): socket closed.\n");
  } else {
    SetRequestedEvents(static_cast<short>(RequestedEvents() & ~POLLOUT));
  }
}

// `caller`: where a throw of HeadClosed is said to have come to. It changes nothing, as all is done by then.
void Head::Private::_Close(const char* caller) {
  const bool was_open = _socket.IsOpen();
  if (was_open) {
    _socket.Close();
    ++_session;
  }
  _linkFlags = 0;
  PollItem::UnRegister();
  SetTimeout(kRetry);
  _linkState = HeadRetry;
  if (!was_open) return;
  try {
    _listener->HeadClosed();
  } catch (const std::exception& error) {
    Report(caller, error);
  }
}

// Closes for Connect and Disconnect, which have the last word. What HeadClosed opens is closed again, and told again;
// nothing is begun from there any more, or it might never end.
void Head::Private::_CloseForGood(const char* caller) {
  _Close(caller);
  _ending = true;
  _Close(caller);
  _ending = false;
}

void Head::Private::_Tell(const std::string& message) const {
  if (_verbose) std::cout << message << std::flush;
}

Head::Head(Listener* listener, bool verbose) : Head(listener, kAnalyserType, kAnalyserPort, verbose) {}

Head::Head(Listener* listener, const std::string& serviceType, bool verbose)
    : Head(listener, serviceType, 0, verbose) {}

Head::Head(Listener* listener, const std::string& serviceType, int port, bool verbose) {
  const auto link = std::make_shared<Private>(listener, serviceType, port, verbose);
  _private = {link.get(), [link](Private*) { link->LetGo(); }};
}

Head::Head(Listener* listener, int port, bool verbose) : Head(listener, std::string(), port, verbose) {}

// A callback may destroy this very handle.
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

BonjourResolver& Head::Resolver() {
  return _private->Resolver();
}

bool Head::IsConnected() const {
  return _private->IsConnected();
}

std::string Head::ConnectedTo() const {
  return _private->ConnectedTo();
}
