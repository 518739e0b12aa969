// A Campbell logger's web interface: a clock of its own, a table "Public" with a row for each moment, and a data table
// with a row for each period. It obeys ClockSet and setvalueex, answers DataQuery with the newest row, and misbehaves
// when told to.
//
// Its clock is the system's plus an offset, and shows a local time without a zone: nothing but ClockSet changes it, no
// daylight saving either. Values that were set are columns of "Public". Replies keep the connection open unless they
// are ended by its end. It listens on all addresses of this host, at a port of its own that stays the same.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "net/socket.h"
#include "net/socketserver.h"

class CampbellLogger : private SocketServerListener {
 public:
  struct Field {
    std::string name;
    std::string type;   // "xsd:float" and so on
    std::string value;  // as JSON; empty: a number that changes with the time
  };
  // How the end of a body is told.
  enum Framing { kByLength, kInChunks, kByTheEnd };
  enum Trouble {
    kNone,
    kNotFound,     // 404, in HTML
    kServerError,  // 500, in HTML
    kHTML,         // 200, in HTML
    kNoJSON,       // what says that it is JSON, and ends too early
    kNoHTTP,
    kHalf,        // the connection ends in the middle
    kLastAnswer,  // the connection ends behind the reply
    kSilence,
    kTroubles
  };
  // A row of the data table that went out whole, with `body` all of it.
  struct Row {
    std::string time;
    std::string body;
  };

  explicit CampbellLogger(std::string table = "MoorcloudData", int table_seconds = 60);
  CampbellLogger(const CampbellLogger&) = delete;
  CampbellLogger& operator=(const CampbellLogger&) = delete;
  ~CampbellLogger() noexcept override;

  int Port() const { return _port; }
  int Connections() const { return _connections; }  // taken so far
  bool IsIdle() const { return _open == 0; }        // nobody is connected
  bool IsSilent() const { return _silent; }         // whoever came last has asked for what it doesn't answer

  const std::vector<std::string>& Requests() const { return _requests; }  // paths
  const std::string& Received() const { return _received; }               // all bytes
  const std::vector<Row>& Rows() const { return _rows; }
  int LiveRows() const { return _live; }  // of "Public" that went out whole
  void Forget();                          // all of these but the connections

  int ClockError() const;  // seconds against this host's local time; positive: it is ahead
  void SetClockError(int seconds);
  void SetFields(std::vector<Field> fields) { _fields = std::move(fields); }  // another program, with other columns
  void SetFractions(bool fractions) { _fractions = fractions; }               // of a second, in the times of rows
  void SetFraming(Framing framing) { _framing = framing; }
  void Misbehave(Trouble trouble, int replies = 1);  // so many of the next ones
  void CutNext(size_t bytes);                        // the next reply ends after so many, and with it the connection
  void Refuse();                                     // ends all connections and takes none until Listen
  void Listen();                                     // again

 private:
  void ClientOpened(SocketClient&) override;
  void GotRequest(SocketClient&, const std::string& data) override { _received += data; }
  void GotHTTPRequest(SocketClient& client, std::string url, std::map<std::string, std::string>& headers,
                      std::string body) override;
  void ClientReadClosed(SocketClient& client) override { client.CloseWhenDone(); }
  void ClientClosed(SocketClient& client) override;
  void _End(SocketClient& client);

  std::string _Answer(const std::string& url, std::string& kind);
  std::string _Query(const std::string& url);
  std::string _RowOf(const std::string& table, time_t moment, const std::vector<Field>& fields) const;
  std::string _TimeText(time_t moment) const;
  void _Set(const std::string& name, const std::string& value);
  bool _Reply(SocketClient& client, const std::string& status, const std::string& kind, const std::string& body);
  time_t _Clock() const { return time(nullptr) + _ahead; }

  const std::string _table;
  const int _period;  // seconds between the rows of the data table
  Socket _place;      // holds the port while nobody listens there
  int _port = 0;
  std::unique_ptr<SocketServer> _server;
  const SocketClient* _ending = nullptr;  // it gets no more answers
  int _connections = 0, _open = 0;
  bool _silent = false;

  std::vector<Field> _fields;
  std::map<std::string, std::string> _values;  // that were set
  time_t _ahead = 0;                           // of Unix time, the zone's offset included
  bool _fractions = true;
  Framing _framing = kByLength;
  Trouble _trouble = kNone;
  int _troubled = 0;  // replies that are left of it
  size_t _cut = SIZE_MAX;

  std::vector<std::string> _requests;
  std::string _received;
  std::vector<Row> _rows;
  int _live = 0;
};
