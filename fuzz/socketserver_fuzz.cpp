// A server of each kind with a peer over a real connection, accepted or dialled, in two ways.
//
// Reading: what the peer sends, in pieces, is told as a plain second reading of all its bytes has it.
//
// Operations: both sides do as the input says, out of the listener's calls as well, which may throw. What the peer gets
// is what was written while that counted, in order, and all of it when nobody broke the connection off.
//
// In both, the events of each client keep their order, each one opened is closed once, and the server takes another
// connection at the end.
//
// Input: a byte for kind, side and way, a byte for the size of the pieces and what a listener does at the end, and the
// bytes or operations.

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "net/socketserver.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) abort()

struct Thrown {
  bool leaves;  // goes on to whoever had the client opened, or may, out of its closing
};

const std::string kDelimiter = "ab";

class Input {
 public:
  explicit Input(std::string rest) : _rest(std::move(rest)) {}
  bool Empty() const { return _rest.empty(); }
  unsigned char Byte() {
    const auto byte = static_cast<unsigned char>(Empty() ? 0 : _rest[0]);
    _rest.erase(0, 1);
    return byte;
  }

 private:
  std::string _rest;
};

// Checks the order of events, keeps what was told, and does in the next event what it is told to.
class Recorder : public SocketServerListener {
 public:
  struct Seen {
    bool connected = false, readClosed = false, writeClosed = false, closed = false;
    std::string raw;
    std::vector<std::string> messages;
  };
  enum Act { kNothing, kWrite, kFinish, kClose, kThrow, kCloseAndDial, kActs };

  // `second`: the one before it may have closed the client, or thrown, before this one heard of it.
  explicit Recorder(SocketServer& server, bool second = false) : behind(second), _server(server) {
    server.RegisterListener(*this);
  }

  void ClientOpened(SocketClient& client) override {
    REQUIRE(behind || !seen.contains(&client) || seen[&client].closed);
    seen[&client] = {};
    try {
      DoNext(client);
    } catch (const Thrown&) {
      seen.erase(&client);
      throw;
    }
  }
  void ClientConnected(SocketClient& client) override {
    Seen& its = Of(client);
    REQUIRE(!its.closed && !std::exchange(its.connected, true));
    DoNext(client);
  }
  void GotRequest(SocketClient& client, const std::string& data) override {
    Seen& its = Of(client);
    REQUIRE(its.connected && !its.readClosed);
    its.raw += data;
    if (records) its.messages.push_back(data);
    DoNext(client);
  }
  void ClientReadClosed(SocketClient& client) override {
    Seen& its = Of(client);
    REQUIRE(its.connected && !its.closed && !std::exchange(its.readClosed, true));
    DoNext(client);
  }
  void ClientWriteClosed(SocketClient& client) override {
    Seen& its = Of(client);
    REQUIRE(!its.closed && !std::exchange(its.writeClosed, true));
    DoNext(client);
  }
  void ClientClosed(SocketClient& client) override {
    // Who stands behind the one that closes it in the very first event hears of it only now.
    REQUIRE(!client.IsClosed() && (behind || !Of(client).closed));
    seen[&client].closed = true;
    client.Close();
    client.CloseWhenDone();
    client.Write("dropped");
    DoNext(client);
  }
  void GotHTTPRequest(SocketClient& client, std::string url, std::map<std::string, std::string>& headers,
                      std::string body) override {
    Message(client, std::move(url), headers, body);
  }
  void GotHTTPResponse(SocketClient& client, std::map<std::string, std::string>& headers, std::string body) override {
    Message(client, "response", headers, body);
  }

  static std::string Text(std::string text, const std::map<std::string, std::string>& headers,
                          const std::string& body) {
    for (const auto& [name, value] : headers) text += '\n' + name + ':' + value;
    return text + "\n\n" + body;
  }
  Seen& Of(SocketClient& client) {
    REQUIRE(seen.contains(&client));
    return seen[&client];
  }

  const bool behind;
  std::map<SocketClient*, Seen> seen;
  bool records = false;  // GotRequest is a message
  Act next = kNothing;
  bool broken = false;  // a listener broke a connection off
  std::string written;  // by it, to the first client
  SocketClient* first = nullptr;

 private:
  void Message(SocketClient& client, std::string url, const std::map<std::string, std::string>& headers,
               const std::string& body) {
    Of(client).messages.push_back(Text(std::move(url), headers, body));
    DoNext(client);
  }

  void DoNext(SocketClient& client) {
    const Act act = std::exchange(next, kNothing);
    if (first == nullptr) first = &client;
    if (act >= kClose) broken = true;
    if (act == kThrow) throw Thrown{!seen[&client].connected || seen[&client].closed};
    if (act == kFinish) client.CloseWhenDone();
    if (act == kClose || act == kCloseAndDial) client.Close();
    if (act == kCloseAndDial) {
      SocketAddress address("127.0.0.1");
      address.Port(_server.Port());
      _server.Connect(address, 1);
    }
    if (act == kWrite) client.Write("from the listener");
  }

  SocketServer& _server;
};

class MessageRecorder : public HTTPParser::Listener {
 public:
  void HTTPGotRequest(std::string url, std::map<std::string, std::string>& headers, std::string body) override {
    messages.push_back(Recorder::Text(std::move(url), headers, body));
  }
  void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) override {
    messages.push_back(Recorder::Text("response", headers, body));
  }
  std::vector<std::string> messages;
};

void Pass() {
  try {
    PollProcessor::Instance().Poll(0);
  } catch (const Thrown& thrown) {
    REQUIRE(thrown.leaves);
  }
}

template <typename Done>
void PassUntil(Done done) {
  // Where an acknowledgement is late the real time counts.
  for (const int64_t start = PollTimer::Now(); !done(); Pass())
    REQUIRE(PollTimer::Now() - start < int64_t{20'000'000'000});
}

// A server of a kind with one client and its peer.
class Pair {
 public:
  Pair(int kind, bool dialled)
      : server(kind == 0 ? std::make_unique<SocketServer>(Socket::FamilyIPv4)
               : kind == 1
                   ? std::make_unique<SocketServer>(kDelimiter, Socket::FamilyIPv4)
                   : std::make_unique<SocketServer>(static_cast<HTTPParser::Type>(kind - 2), Socket::FamilyIPv4)),
        recorder(*server) {
    recorder.records = kind == 1;
    server->Listen(0);
    SocketAddress address("127.0.0.1");
    if (dialled) {
      Socket door(Socket::FamilyIPv4, Socket::TypeStream, 0);
      door.Bind(address);
      door.Listen(1);
      door.GetSockName(&address);
      client = &server->Connect(address, 1);
      Wait(door);
      peer = std::make_unique<Socket>(door.Accept(nullptr));
    } else {
      address.Port(server->Port());
      peer = std::make_unique<Socket>(Socket::FamilyIPv4, Socket::TypeStream, 0);
      peer->Connect(address);
      PassUntil([this] { return !server->Clients().empty(); });
      client = server->Clients().front().get();
    }
    // Ends with a reset: connections that wait out their minute would use up the ports.
    const linger atOnce = {1, 0};
    setsockopt(peer->Fileno(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    // Full after one long write.
    const int small = 40'000;
    setsockopt(client->Fileno(), SOL_SOCKET, SO_SNDBUF, &small, sizeof small);
    peer->SetNonBlock();
  }

  // The server takes another connection, which takes the place of those that are closed, and closes what is open.
  void End(Recorder::Act atTheEnd) {
    recorder.next = Recorder::kNothing;
    CheckServing();
    recorder.next = atTheEnd;
    server.reset();
    // Only what was dialled in the last moment isn't told of.
    size_t open = 0;
    for (const auto& [each, its] : recorder.seen) open += its.closed ? 0 : 1;
    REQUIRE(open == (atTheEnd == Recorder::kCloseAndDial ? 1 : 0));
  }

  bool IsClosed() { return recorder.Of(*client).closed; }

  // True when there was something.
  bool PeerReads(size_t size) {
    if (!peer->IsOpen()) return false;
    std::string data(size, ' ');
    const ssize_t count = recv(peer->Fileno(), data.data(), size, MSG_DONTWAIT);
    if (count > 0) received.append(data, 0, static_cast<size_t>(count));
    peerSawEnd = peerSawEnd || count == 0;
    return count > 0;
  }

  std::unique_ptr<SocketServer> server;
  Recorder recorder;
  Recorder behind{*server, true};  // does nothing itself
  SocketClient* client = nullptr;
  std::unique_ptr<Socket> peer;
  std::string received;
  bool peerSawEnd = false;

 private:
  static void Wait(const Socket& socket) {
    pollfd asked = {socket.Fileno(), POLLIN, 0};
    REQUIRE(poll(&asked, 1, 10'000) == 1);
  }

  void CheckServing() {
    SocketAddress address("127.0.0.1");
    address.Port(server->Port());
    Socket other(Socket::FamilyIPv4, Socket::TypeStream, 0);
    other.Connect(address);
    Pass();
    PassUntil([&] { return !server->Clients().empty() && !server->Clients().back()->IsClosed(); });
    for (const auto& each : server->Clients()) REQUIRE(!each->IsClosed() && each->IsRegistered());
    server->WriteToClients("still here");
    PassUntil([&] {
      char byte;
      return recv(other.Fileno(), &byte, 1, MSG_DONTWAIT) == 1;
    });
  }
};

void Reading(int kind, bool dialled, Recorder::Act atTheEnd, size_t piece, const std::string& bytes) {
  Pair pair(kind, dialled);
  for (size_t at = 0; at < bytes.size() && !pair.IsClosed(); at += piece) {
    const std::string part = bytes.substr(at, piece);
    REQUIRE(pair.peer->Write(part) == part.size());
    const size_t due = at + part.size();
    PassUntil([&] { return pair.IsClosed() || pair.recorder.Of(*pair.client).raw.size() >= due || kind == 1; });
    Pass();
  }
  if (!pair.IsClosed()) pair.peer->Shutdown(Socket::ShutdownWrite);
  const Recorder::Seen& its = pair.recorder.Of(*pair.client);
  PassUntil([&] { return its.closed || its.readClosed; });

  std::vector<std::string> expected;
  std::string told = bytes;
  bool refused = false;
  if (kind == 1) {
    for (size_t start = 0, end = 0; (end = bytes.find(kDelimiter, start)) != std::string::npos; start = end)
      expected.push_back(bytes.substr(start, (end += kDelimiter.size()) - start));
    told.clear();
    for (const auto& record : expected) told += record;
  } else if (kind > 1) {
    MessageRecorder recorder;
    HTTPParser parser(&recorder, kind - 2);
    try {
      for (const char c : bytes) parser.Execute(std::string(1, c));
      parser.EndOfData();
    } catch (const HTTPParser::Error&) {
      refused = true;
    }
    expected = recorder.messages;
  }
  // An upgrade leaves it to the size of the pieces what is parsed of the bytes behind it.
  if (kind < 2 || bytes.find("pgrade") == std::string::npos) {
    REQUIRE(its.messages == expected || (kind > 1 && bytes.find("CONNECT") != std::string::npos));
    REQUIRE(its.closed == refused || bytes.find("CONNECT") != std::string::npos);
  }
  REQUIRE(its.closed || its.raw == told);
  REQUIRE(told.starts_with(its.raw));
  if (!its.closed) {
    pair.client->CloseWhenDone();
    REQUIRE(its.writeClosed && its.closed);
  }
  pair.End(atTheEnd);
}

// Files that are sent, and what is in them.
const std::string& FileOf(size_t size) {
  static std::map<size_t, std::string> files;
  std::string& path = files[size];
  if (path.empty()) {
    path = "/tmp/moorlog-fuzz-" + std::to_string(getpid()) + '-' + std::to_string(size);
    std::ofstream(path, std::ios::binary) << std::string(size, 'f');
    static const bool removed = atexit([] {
                                  for (const auto& [each, name] : files) unlink(name.c_str());
                                }) == 0;
    static_cast<void>(removed);
  }
  return path;
}

void Operations(int kind, bool dialled, Recorder::Act atTheEnd, Input input) {
  Pair pair(kind, dialled);
  Recorder& recorder = pair.recorder;
  std::string sent;
  bool finished = false, broken = false, said = false;
  for (int operations = 0; !input.Empty() && operations < 60 && !pair.IsClosed(); ++operations) {
    const unsigned char what = input.Byte();
    const size_t size = size_t{what} / 16 * (what / 16) * (what / 16) * 50;
    const Recorder::Act act = recorder.next;
    switch (what % 16) {
      case 0:
      case 1: {
        const std::string text(size + 1, static_cast<char>('A' + operations % 26));
        if (!finished && !recorder.Of(*pair.client).writeClosed) sent += text;
        pair.client->Write(text);
        break;
      }
      case 2:
      case 3: {
        const bool busy = pair.client->IsSendingFile();
        if (what / 16 == 15) {
          try {
            pair.client->WriteFile("/nowhere");
            REQUIRE(broken || busy || finished || recorder.Of(*pair.client).writeClosed);
          } catch (const ErrnoError&) {
          }
          break;
        }
        const size_t length = what / 16 % 4 * size_t{8191};
        const bool counts = !busy && !finished && !recorder.Of(*pair.client).writeClosed;
        // The first bytes of it, all, or more than there are.
        const size_t promised = operations % 7 == 6 ? length + 1 : length * (operations % 3) / 2;
        if (what % 16 == 2)
          pair.client->WriteFile(FileOf(length));
        else
          pair.client->WriteFile(FileOf(length), promised);
        if (counts) sent += std::string(what % 16 == 2 ? length : std::min(promised, length), 'f');
        broken = broken || (counts && what % 16 == 3 && promised > length);
        break;
      }
      case 4:
      case 5:
      case 6:
        pair.PeerReads(size + 1);
        break;
      case 7:
        if (!said && kind < 2) ::send(pair.peer->Fileno(), std::string(size + 1, 'p').data(), size + 1, 0);
        break;
      case 8:
        if (!std::exchange(said, true)) ::shutdown(pair.peer->Fileno(), SHUT_WR);
        break;
      case 9:
        if (act == Recorder::kNothing) recorder.next = static_cast<Recorder::Act>(what / 16 % Recorder::kActs);
        // What a listener writes or ends in its time isn't known here.
        broken = broken || recorder.next != Recorder::kNothing;
        break;
      case 10:
        if (what / 16 > 2) break;
        finished = true;
        try {
          pair.client->CloseWhenDone();
        } catch (const Thrown&) {
        }
        break;
      case 11:
        if (what / 16 > 1) break;
        broken = true;
        try {
          pair.client->Close();
        } catch (const Thrown&) {
        }
        REQUIRE(pair.client->IsClosed());
        break;
      case 12:
        if (what / 16 > 1) break;
        broken = said = true;
        pair.peer->_close();
        break;
      default:
        for (size_t passes = what / 16 + 1; passes > 0; --passes) Pass();
    }
  }
  recorder.next = Recorder::kNothing;
  if (!broken) {
    // All that was queued arrives, and our end of it if that was asked for.
    PassUntil([&] {
      while (pair.PeerReads(65536)) continue;
      return pair.received.size() >= sent.size();
    });
    REQUIRE(pair.received == sent);
    PassUntil([&] {
      pair.PeerReads(1);
      return pair.peerSawEnd == finished;
    });
    REQUIRE(recorder.Of(*pair.client).writeClosed == finished);
    PassUntil([&] { return (pair.client->RequestedEvents() & POLLOUT) == 0; });
    if (!std::exchange(said, true)) pair.peer->Shutdown(Socket::ShutdownWrite);
    PassUntil([&] { return recorder.Of(*pair.client).readClosed; });
    REQUIRE(pair.IsClosed() == finished);
  } else {
    for (int passes = 0; passes < 20; ++passes) Pass();
  }
  pair.End(atTheEnd);
}

// The descriptor that the next file would get: a lower one that nobody has closed moves it.
int LowestFree() {
  const int fileno = dup(STDIN_FILENO);
  close(fileno);
  return fileno;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2) return 0;
  std::cout.setstate(std::ios::failbit);  // what clients fail with
  const int lowest = LowestFree();
  const int kind = data[0] % 5;
  const bool dialled = (data[0] & 64) != 0;
  const auto atTheEnd = static_cast<Recorder::Act>(data[1] % Recorder::kActs);
  const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);
  if ((data[0] & 128) == 0)
    Reading(kind, dialled, atTheEnd, std::max(size_t{data[1]} * data[1], bytes.size() / 64) + 1, bytes);
  else
    Operations(kind, dialled, atTheEnd, Input(bytes));
  REQUIRE(LowestFree() == lowest);
  return 0;
}
