// A listening socket and all connections that hang off it, accepted or dialled, on the poll loop.
//
// Each connection is a SocketClient of the server's kind: raw chunks of bytes, records that end with a delimiter, or
// HTTP messages. What happens to them is told to the listeners. docs/socket-server.md shows the events in order.
//
// Events of one client: ClientOpened, then ClientConnected with its first readable or writable moment, then data;
// ClientReadClosed and ClientWriteClosed in either order, at most once each; ClientClosed at the end, once. Behind
// ClientClosed there only come the records or messages of bytes that had been read already, if a listener closed the
// client while it was told of one of them. A connection that fails skips what it didn't get to; one that was dialled
// and refused is opened, connected and closed. Listeners behind one that throws aren't told of that event, nor are
// those behind one that closes the client, unless it is data: what they have been told by then is the end.
//
// A listener may write to, finish and close any client, and dial, in any event. It may not destroy a client or the
// server, and may not add or remove listeners. What it throws
// - from ClientOpened leaves Poll, or Connect of the server; the client is gone, and nothing more is told of it;
// - from ClientClosed goes on to the caller of Close, or leaves Poll, with the client closed all the same; out of the
//   server's destructor it doesn't go;
// - from any other event is printed on standard output and closes that client. It doesn't leave Poll.
//
// Ownership: the server owns its clients. A closed one stays, for whoever still holds a reference, until the next
// accept or dial, and while one of its handlers is on the stack. Listeners aren't owned; they outlive the server, or
// unregister first.
//
// Limits: none. What is queued for a peer that doesn't read stays in memory, and so does a record or a message that
// doesn't end: 1 GB without a delimiter takes 1 GB, and up to twice that while it grows. Nobody is asked who he is.
//
// The loop matches events to items by descriptor. So an event of a socket that was closed earlier in the same pass may
// reach a client that got its descriptor since; reading then fails, and that client is closed. That is meant.
//
// Writing to a peer that has gone is an error and no signal, as with every Socket. On the thread of the poll loop.

#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "net/httpparser.h"
#include "net/socket.h"
#include "runtime/delimparser.h"
#include "runtime/filereader.h"
#include "runtime/pollprocessor.h"

class SocketClient;
class SocketServer;

class SocketServerListener {
 public:
  virtual ~SocketServerListener() noexcept(false) = default;
  virtual void ClientOpened(SocketClient& client);
  // Never comes for a dialled client that hasn't been written to and that nothing comes from.
  virtual void ClientConnected(SocketClient& client);
  // Bytes as they came, also for HTTP clients; or a record with its delimiter.
  virtual void GotRequest(SocketClient& client, const std::string& data);
  // The peer sends no more, and is looked at only when something is to be sent. Who doesn't call CloseWhenDone() or
  // Close() here or later keeps the client for ever: that the peer has gone altogether then shows in writing alone.
  virtual void ClientReadClosed(SocketClient& client);
  virtual void ClientWriteClosed(SocketClient& client);
  // The socket is about to be closed: what is written now is dropped, and closing it again does nothing.
  virtual void ClientClosed(SocketClient& client);
  virtual void GotHTTPRequest(SocketClient& client, std::string url, std::map<std::string, std::string>& headers,
                              std::string body);
  virtual void GotHTTPResponse(SocketClient& client, std::map<std::string, std::string>& headers, std::string body);
};

// One connection. Its events request: POLLIN until the peer has ended its side, POLLOUT while something waits to go.
class SocketClient : public PollItem {
 public:
  // Takes the connection that waits at the server's socket.
  explicit SocketClient(SocketServer& server);
  // Dials without blocking, hence without effect of `timeout`, in seconds: the system's own limit counts.
  SocketClient(SocketServer& server, const SocketAddress& address, int timeout);

  // Queues; what a closed or finished client is given is dropped without a word.
  void Write(const std::string& data);
  // Bytes that wait to be sent, without those of a file. For who wants a limit: there is none.
  size_t Queued() const { return _pending.size() + _sending.size() - _sent; }

  // Queues a regular file, of which one chunk at a time is in memory; anything else could block the loop. It goes out
  // behind what is queued already and before what is written from now on. Does nothing while another file is on its
  // way. Throws what FileReader::Open() throws; a file that fails later on closes the client. Keep-alives don't count
  // its bytes.
  void WriteFile(const std::string& path);
  // The first `size` bytes of it, where that was promised: a file that has grown is cut, and one that has become
  // shorter closes the client.
  void WriteFile(const std::string& path, uint64_t size);
  // Some of the last file hasn't been read yet, so that WriteFile() would do nothing.
  bool IsSendingFile();

  // Ends our side when all that is queued has gone, at once if nothing is. The client closes when the peer has ended
  // its side too.
  void CloseWhenDone();

  // Now, whatever is still queued.
  void Close();

  bool IsClosed() const { return !_socket.IsOpen(); }

  int Fileno() const override { return _socket.Fileno(); }
  void HandleRead() override;
  void HandleWrite() override;
  void HandleError() override;
  void HandleInvalid() override;
  // A peer that has gone may have left data behind: all of it is read first.
  void HandleHangUp() override;

 protected:
  virtual void HandleIncomingData(const std::string& data);
  virtual void HandleEndOfData();

  SocketServer& _server;

 private:
  friend class SocketServer;

  enum : uint32_t {
    kConnected = 1,  // ClientConnected has been told
    kCloseWhenDone = 2,
    kOutgoing = 4,  // dialled
    kClosing = 8,   // ClientClosed has been told
    kReadClosed = 16,
    kWriteClosed = 32
  };

  static constexpr uint64_t kAll = UINT64_MAX;  // bytes of a file: as many as it has

  // While one lives, the client mustn't be destroyed.
  class _Call {
   public:
    explicit _Call(SocketClient& client) : _client(client) { ++_client._calls; }
    _Call(const _Call&) = delete;
    _Call& operator=(const _Call&) = delete;
    ~_Call() { --_client._calls; }

   private:
    SocketClient& _client;
  };

  // Its handler contains what the loop would otherwise throw at the host, in each pass.
  class _File : public FileReader {
   public:
    explicit _File(SocketClient& client) : _client(client) {}
    void HandleRead() override;

   private:
    SocketClient& _client;
  };

  bool _Is(uint32_t bits) const { return (_state & bits) != 0; }
  bool _IsStale() const { return IsClosed() && _calls == 0; }
  bool _HasFile() const { return _file.Fileno() >= 0 || (_owed > 0 && _owed != kAll); }
  bool _TakesData() const { return !IsClosed() && !_Is(kCloseWhenDone | kWriteClosed | kClosing); }
  void _Request(short events) { SetRequestedEvents(static_cast<short>(RequestedEvents() | events)); }
  void _DontRequest(short events) { SetRequestedEvents(static_cast<short>(RequestedEvents() & ~events)); }
  template <typename Step>
  void _Contain(const char* handler, Step step);
  void _Fail(const char* handler);
  bool _Connected();
  bool _Readable() const;
  void _Read();
  void _Send();
  void _Refill();
  void _Finish();
  void _CloseWriteSide();
  void _Release();

  Socket _socket;
  std::string _pending;  // queued
  std::string _sending;  // on its way; never appended to by Write
  size_t _sent = 0;      // of _sending, from its front
  uint32_t _state = 0;
  _File _file{*this};
  uint64_t _owed = kAll;  // of the file, not read yet
  uint32_t _written = 0;  // bytes since the last keep-alive
  int _calls = 0;
};

// Tells records: each delimiter ends one.
class SocketClientParseData : public SocketClient {
 public:
  SocketClientParseData(SocketServer& server, const std::string& delimiter);
  SocketClientParseData(SocketServer& server, const SocketAddress& address, int timeout, const std::string& delimiter);

 protected:
  void HandleIncomingData(const std::string& data) override;

 private:
  DelimParser _parser;
};

// Tells the bytes as they come, and then the messages that they complete. Bytes that are no HTTP close it.
class SocketHTTPClient : public SocketClient, private HTTPParser::Listener {
 public:
  SocketHTTPClient(SocketServer& server, HTTPParser::Type type);
  SocketHTTPClient(SocketServer& server, const SocketAddress& address, int timeout, HTTPParser::Type type);
  ~SocketHTTPClient() noexcept override = default;  // as that of the listener

 protected:
  void HandleIncomingData(const std::string& data) override;
  void HandleEndOfData() override;

 private:
  void HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body) override;
  void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) override;

  HTTPParser _parser;
};

class SocketServer : public PollItem, public PollTimer {
 public:
  // Each has its socket at once. Until Listen() the system calls that hung up, so the loop never waits: a server that
  // only dials does well to call PollItem::UnRegister().
  explicit SocketServer(Socket::Family family);
  SocketServer(const std::string& delimiter, Socket::Family family);  // raw clients if it is empty
  SocketServer(HTTPParser::Type type, Socket::Family family);
  SocketServer(const SocketServer&) = delete;
  SocketServer& operator=(const SocketServer&) = delete;
  // Closes all clients first.
  ~SocketServer() noexcept(false) override;

  // On all addresses of the family; IPv6 takes IPv4 as well, as the system is set up. 0: a port of the system's choice.
  // Throws what Socket throws.
  void Listen(int port);
  int Port() const { return _port; }  // -1 until Listen() has succeeded

  // Dials; `timeout` in seconds has no effect (see SocketClient). The client is good until it has closed and the next
  // one is accepted or dialled. Throws what Socket throws when it fails at once; a refusal shows later, as events.
  SocketClient& Connect(const SocketAddress& address, int timeout);

  void RegisterListener(SocketServerListener& listener);    // told in this order; twice if registered twice
  void UnRegisterListener(SocketServerListener& listener);  // from every place it has

  // Every `period` milliseconds each client to which nothing has been written since is written `text`. Any other
  // writing, keep-alives excluded, is in the place of one. "", or 0 and below: no keep-alive.
  void SetKeepAlive(const std::string& text, int period);
  void ClearKeepAlive();

  // Closed ones included, oldest first. Closing, writing and dialling leave iterators of open clients valid.
  const std::list<std::unique_ptr<SocketClient>>& Clients() const { return _clients; }
  void WriteToClients(const std::string& data);

  // For the clients: tell all listeners.
  void ClientOpenedEvent(SocketClient& client);
  void ClientConnectedEvent(SocketClient& client);
  void StuffEvent(SocketClient& client, const std::string& data);
  void ClientReadClosedEvent(SocketClient& client);
  void ClientWriteClosedEvent(SocketClient& client);
  void ClientClosedEvent(SocketClient& client);
  void GotHTTPRequest(SocketClient& client, const std::string& url, std::map<std::string, std::string>& headers,
                      const std::string& body);
  void GotHTTPResponse(SocketClient& client, std::map<std::string, std::string>& headers, const std::string& body);

  int Fileno() const override { return _socket.Fileno(); }
  // Accepts one. What fails, but for a peer that has gone already, leaves Poll in every pass until it doesn't fail any
  // more, as when all descriptors are used up. That is meant; the server itself goes on.
  void HandleRead() override;
  void HandleTimeout() override;

 private:
  friend class SocketClient;

  template <typename... Address>
  SocketClient& _Add(const Address&... address);
  template <typename Event>
  void _Tell(Event event);
  template <typename Event>
  void _TellWhileOpen(const SocketClient& client, Event event);
  void _clean_stale_clients();
  void _send_keep_alive();

  int _period = 60'000;  // milliseconds
  std::string _keepAlive;
  const std::string _delimiter;
  const bool _http = false;
  const HTTPParser::Type _httpType = HTTPParser::TypeBoth;
  std::vector<SocketServerListener*> _listeners;
  std::list<std::unique_ptr<SocketClient>> _clients;
  Socket _socket;
  int _port = -1;
  const Socket::Family _family;
};
