#include "net/socketserver.h"

#include <algorithm>
#include <climits>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kBacklog = 1024;
constexpr size_t kKeptCapacity = size_t{64} << 10;  // of an empty buffer, in bytes

// A backlog that has gone leaves no memory behind.
void Empty(std::string& buffer) {
  if (buffer.capacity() > kKeptCapacity)
    std::string().swap(buffer);
  else
    buffer.clear();
}

}  // namespace

void SocketServerListener::ClientOpened(SocketClient&) {}
void SocketServerListener::ClientConnected(SocketClient&) {}
void SocketServerListener::GotRequest(SocketClient&, const std::string&) {}
void SocketServerListener::ClientReadClosed(SocketClient&) {}
void SocketServerListener::ClientWriteClosed(SocketClient&) {}
void SocketServerListener::ClientClosed(SocketClient&) {}
void SocketServerListener::GotHTTPRequest(SocketClient&, std::string, std::map<std::string, std::string>&,
                                          std::string) {}
void SocketServerListener::GotHTTPResponse(SocketClient&, std::map<std::string, std::string>&, std::string) {}

// The socket is the one that accept has returned, and no duplicate of it.
SocketClient::SocketClient(SocketServer& server)
    : PollItem(POLLIN, true), _server(server), _socket(server._socket.Accept(nullptr)) {
  _socket.SetNonBlock();
  _server.ClientOpenedEvent(*this);
}

SocketClient::SocketClient(SocketServer& server, const SocketAddress& address, int timeout)
    : PollItem(POLLIN, true), _server(server), _socket(address.Family(), Socket::TypeStream, 0), _state(kOutgoing) {
  _socket.SetNonBlock();
  _socket.Connect(address, timeout);
  _server.ClientOpenedEvent(*this);
}

void SocketClient::Write(const std::string& data) {
  if (!_TakesData()) return;
  _pending += data;
  _written += static_cast<uint32_t>(data.size());
  _Request(POLLOUT);
}

void SocketClient::WriteFile(const std::string& path) {
  WriteFile(path, kAll);
}

void SocketClient::WriteFile(const std::string& path, uint64_t size) {
  if (IsSendingFile() || !_TakesData()) return;
  // Queued before the file, so it goes before it.
  if (_sending.empty()) {
    _sending.swap(_pending);
  } else {
    _sending.erase(0, std::exchange(_sent, 0));
    _sending += _pending;
    Empty(_pending);
  }
  _file.Open(path);
  _owed = size;
  if (size == 0) _file.Close();
  _Request(POLLOUT);
}

bool SocketClient::IsSendingFile() {
  // No chunk waits to be sent: the end may have been reached, and nobody has looked yet.
  if ((_file.RequestedEvents() & POLLIN) != 0) _file.HandleRead();
  return _HasFile();
}

void SocketClient::CloseWhenDone() {
  if (IsClosed() || _Is(kClosing)) return;
  const _Call call(*this);
  _state |= kCloseWhenDone;
  if (!_pending.empty() || !_sending.empty() || _HasFile()) return;
  try {
    _Finish();
  } catch (const ErrnoError&) {
    if (_Is(kWriteClosed)) throw;  // a listener's
    Close();                       // the peer has reset the connection: nothing that the caller could do about it
  }
}

void SocketClient::Close() {
  if (IsClosed() || _Is(kClosing)) return;
  _state |= kClosing;
  try {
    _server.ClientClosedEvent(*this);
  } catch (...) {
    _Release();
    throw;
  }
  _Release();
}

void SocketClient::_Release() {
  UnRegister();
  std::string().swap(_pending);
  std::string().swap(_sending);
  try {
    _file.Close();
  } catch (const ErrnoError&) {  // it was only read
  }
  _socket._close();
}

void SocketClient::HandleRead() {
  _Contain("HandleRead", [this] { _Read(); });
}

void SocketClient::HandleWrite() {
  _Contain("HandleWrite", [this] { _Send(); });
}

void SocketClient::HandleError() {
  _Fail("HandleError");
}

void SocketClient::HandleInvalid() {
  _Fail("HandleInvalid");
}

void SocketClient::HandleHangUp() {
  const _Call call(*this);
  while (!IsClosed() && !_Is(kReadClosed) && _Readable()) HandleRead();
  _Fail("HandleHangUp");
}

void SocketClient::_File::HandleRead() {
  _client._Contain("HandleWrite", [this] { FileReader::HandleRead(); });
}

// What is thrown ends this connection, not the loop; only what ClientClosed throws goes on.
template <typename Step>
void SocketClient::_Contain(const char* handler, Step step) {
  const _Call call(*this);
  const auto tell = [handler](const char* text) {
    std::cout << "SocketClient::" << handler << "(): Got exception " << text << '\n';
  };
  try {
    step();
    return;
  } catch (const std::exception& error) {
    tell(error.what());
  } catch (...) {
    tell("of unknown type");
  }
  Close();
}

void SocketClient::_Fail(const char* handler) {
  std::cout << "SocketClient::" << handler << "()\n";
  Close();
}

// Tells so with the first event; whether the connect went well shows in what follows. False: closed.
bool SocketClient::_Connected() {
  if (!_Is(kConnected)) {
    _state |= kConnected;
    _server.ClientConnectedEvent(*this);
  }
  return !IsClosed();
}

bool SocketClient::_Readable() const {
  pollfd asked = {Fileno(), POLLIN, 0};
  return ::poll(&asked, 1, 0) > 0 && (asked.revents & POLLIN) != 0;
}

void SocketClient::_Read() {
  if (!_Connected()) return;
  std::string data;
  if (_socket.Read(data) > 0) {
    HandleIncomingData(data);
    return;
  }
  HandleEndOfData();
  if (IsClosed()) return;
  _DontRequest(POLLIN);
  _state |= kReadClosed;
  _server.ClientReadClosedEvent(*this);
  if (_Is(kWriteClosed)) Close();
}

void SocketClient::_Send() {
  if (!_Connected()) return;
  if (_sending.empty()) _Refill();
  if (IsClosed()) return;
  if (!_sending.empty()) {
    // What the socket takes is only counted: moving up the rest each time would cost its length squared.
    const size_t left = std::min<size_t>(_sending.size() - _sent, UINT_MAX);
    _sent += _socket.Write(_sending.data() + _sent, static_cast<unsigned int>(left));
    if (_sent < _sending.size()) return;
    Empty(_sending);
    _sent = 0;
  }
  if (!_pending.empty() || _HasFile()) return;
  _DontRequest(POLLOUT);
  if (_Is(kCloseWhenDone)) _Finish();
}

void SocketClient::_Refill() {
  if (!_HasFile()) return _sending.swap(_pending);
  _file.Read(_sending);
  if (_owed == kAll || IsClosed()) return;
  if (_sending.empty()) throw std::runtime_error("a file has become shorter");
  if (_sending.size() >= _owed) {
    _sending.resize(static_cast<size_t>(_owed));
    _file.Close();
  }
  _owed -= _sending.size();
}

void SocketClient::_Finish() {
  if (!_Is(kWriteClosed)) _CloseWriteSide();
  if (_Is(kReadClosed)) Close();
}

void SocketClient::_CloseWriteSide() {
  _DontRequest(POLLOUT);
  _socket.Shutdown(Socket::ShutdownWrite);
  _state |= kWriteClosed;
  _server.ClientWriteClosedEvent(*this);
}

void SocketClient::HandleIncomingData(const std::string& data) {
  _server.StuffEvent(*this, data);
}

void SocketClient::HandleEndOfData() {}

SocketClientParseData::SocketClientParseData(SocketServer& server, const std::string& delimiter)
    : SocketClient(server), _parser(delimiter) {}

SocketClientParseData::SocketClientParseData(SocketServer& server, const SocketAddress& address, int timeout,
                                             const std::string& delimiter)
    : SocketClient(server, address, timeout), _parser(delimiter) {}

// Goes on when a listener closes the client: a record that is complete has come.
void SocketClientParseData::HandleIncomingData(const std::string& data) {
  _parser.AppendRawData(data);
  for (std::string record; _parser.GetNextDelimString(record);) _server.StuffEvent(*this, record);
}

SocketHTTPClient::SocketHTTPClient(SocketServer& server, HTTPParser::Type type)
    : SocketClient(server), _parser(this, type) {}

SocketHTTPClient::SocketHTTPClient(SocketServer& server, const SocketAddress& address, int timeout,
                                   HTTPParser::Type type)
    : SocketClient(server, address, timeout), _parser(this, type) {}

void SocketHTTPClient::HandleIncomingData(const std::string& data) {
  _server.StuffEvent(*this, data);
  _parser.Execute(data);
}

void SocketHTTPClient::HandleEndOfData() {
  _parser.EndOfData();
}

void SocketHTTPClient::HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body) {
  _server.GotHTTPRequest(*this, url, headers, body);
}

void SocketHTTPClient::HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) {
  _server.GotHTTPResponse(*this, headers, body);
}

SocketServer::SocketServer(Socket::Family family) : SocketServer(std::string(), family) {}

SocketServer::SocketServer(const std::string& delimiter, Socket::Family family)
    : PollItem(POLLIN | POLLPRI | POLLOUT, true),
      PollTimer(-1, true),
      _delimiter(delimiter),
      _socket(family, Socket::TypeStream, 0),
      _family(family) {}

SocketServer::SocketServer(HTTPParser::Type type, Socket::Family family)
    : PollItem(POLLIN | POLLPRI | POLLOUT, true),
      PollTimer(-1, true),
      _http(true),
      _httpType(type),
      _socket(family, Socket::TypeStream, 0),
      _family(family) {}

SocketServer::~SocketServer() noexcept(false) {
  // What a listener dials meanwhile isn't among these; it goes with the list, and nobody is told.
  const auto clients = std::exchange(_clients, {});
  for (const auto& client : clients) {
    try {
      client->Close();
    } catch (...) {  // the others have to be closed as well
    }
  }
}

void SocketServer::Listen(int port) {
  SocketAddress address(_family);
  address.Port(port);
  _socket.Bind(address);
  _socket.Listen(kBacklog);
  _socket.GetSockName(&address);
  _port = port != 0 ? port : address.Port();
}

SocketClient& SocketServer::Connect(const SocketAddress& address, int timeout) {
  return _Add(address, timeout);
}

void SocketServer::HandleRead() {
  try {
    _Add();
  } catch (const Socket::EConnAborted&) {
  }
}

template <typename... Address>
SocketClient& SocketServer::_Add(const Address&... address) {
  _clean_stale_clients();
  std::unique_ptr<SocketClient> client;
  if (_http)
    client = std::make_unique<SocketHTTPClient>(*this, address..., _httpType);
  else if (!_delimiter.empty())
    client = std::make_unique<SocketClientParseData>(*this, address..., _delimiter);
  else
    client = std::make_unique<SocketClient>(*this, address...);
  return *_clients.emplace_back(std::move(client));
}

void SocketServer::_clean_stale_clients() {
  _clients.remove_if([](const auto& client) { return client->_IsStale(); });
}

void SocketServer::RegisterListener(SocketServerListener& listener) {
  _listeners.push_back(&listener);
}

void SocketServer::UnRegisterListener(SocketServerListener& listener) {
  std::erase(_listeners, &listener);
}

void SocketServer::SetKeepAlive(const std::string& text, int period) {
  if (text.empty() || period <= 0) return ClearKeepAlive();
  _keepAlive = text;
  _period = period;
  SetTimeout(period);
}

void SocketServer::ClearKeepAlive() {
  _period = 0;
  _keepAlive.clear();
  SetTimeout(-1);
}

void SocketServer::HandleTimeout() {
  _send_keep_alive();
  AddTimeout(_period);
}

void SocketServer::_send_keep_alive() {
  if (_keepAlive.empty()) return;
  for (const auto& client : _clients) {
    if (client->_written == 0) client->Write(_keepAlive);
    client->_written = 0;  // what was just written too: it is nothing that has been sent
  }
}

void SocketServer::WriteToClients(const std::string& data) {
  for (const auto& client : _clients) client->Write(data);
}

template <typename Event>
void SocketServer::_Tell(Event event) {
  for (size_t i = 0; i < _listeners.size(); ++i) event(*_listeners[i]);
}

// Nobody is to hear of an event behind ClientClosed.
template <typename Event>
void SocketServer::_TellWhileOpen(const SocketClient& client, Event event) {
  _Tell([&](auto& listener) {
    if (!client.IsClosed()) event(listener);
  });
}

void SocketServer::ClientOpenedEvent(SocketClient& client) {
  _TellWhileOpen(client, [&](auto& listener) { listener.ClientOpened(client); });
}

void SocketServer::ClientConnectedEvent(SocketClient& client) {
  _TellWhileOpen(client, [&](auto& listener) { listener.ClientConnected(client); });
}

void SocketServer::StuffEvent(SocketClient& client, const std::string& data) {
  _Tell([&](auto& listener) { listener.GotRequest(client, data); });
}

void SocketServer::ClientReadClosedEvent(SocketClient& client) {
  _TellWhileOpen(client, [&](auto& listener) { listener.ClientReadClosed(client); });
}

void SocketServer::ClientWriteClosedEvent(SocketClient& client) {
  _TellWhileOpen(client, [&](auto& listener) { listener.ClientWriteClosed(client); });
}

void SocketServer::ClientClosedEvent(SocketClient& client) {
  _Tell([&](auto& listener) { listener.ClientClosed(client); });
}

void SocketServer::GotHTTPRequest(SocketClient& client, const std::string& url,
                                  std::map<std::string, std::string>& headers, const std::string& body) {
  _Tell([&](auto& listener) { listener.GotHTTPRequest(client, url, headers, body); });
}

void SocketServer::GotHTTPResponse(SocketClient& client, std::map<std::string, std::string>& headers,
                                   const std::string& body) {
  _Tell([&](auto& listener) { listener.GotHTTPResponse(client, headers, body); });
}
