// Fetches data from a Campbell Scientific data logger over that logger's web interface (HTTP/1.1, JSON), and keeps the
// logger's clock, UTC offset and position as ours are.
//
// Every 5 s it connects and fetches what is queued, one request at a time on one connection; with nothing queued it
// asks for the newest row of the table "Public", which becomes a line for the listener. Every so many seconds the
// elevation, the latitude and the longitude are pushed, and the newest row of a data table is asked for, which becomes
// a file for upload: UPLOAD_DIR/ws-TIME.json, where the time of its last one is remembered in CONF_DIR/PullCSI.conf.
// The clock is set at the first step of a new day of the month, when the zone's offset has changed, and after a row
// whose time was more than a year old or a day ahead. docs/campbell.md tells it as a timetable.
//
// The logger's times are local times in this host's zone, and daylight saving is the zone's: the hour that comes twice
// is taken as the system takes it. The lines, with a tab between the fields and a sum at the end (the bytes up to and
// including the last tab, modulo 256, in three digits):
//
//   DATALOGGERH  SECONDS  NANOSECONDS  name...   CHK    of the fields of type float or boolean, when they have changed
//   DATALOGGER   seconds  nanoseconds  value...  sum    Unix time, and 0 0 for a time without a fraction
//
// What is queued waits for the logger, up to 1,000 requests; then no more are added, and the clock is set when there is
// room again. A request is taken off when it is sent: one whose reply is lost isn't repeated. These are meant:
// - Each step begins a new connection, and with it ends a reply that takes longer.
// - A reply that is ended by the connection's end is never taken, and the next step goes on. A server that closes after
//   each reply costs every second of several requests: the next one is on its way when the connection ends.
// - A row with a time not behind the last one stored is dropped, without a word: so are those of the hour that comes
//   twice, and those after the clock was set back.
// - A data table without a name takes replies that name none for its own.
//
// Bad input: a reply that isn't JSON by its header moves the queue along, and so does one of an unexpected shape. A
// body that should be JSON and isn't, bytes that aren't HTTP, or more than 4 MiB without a complete reply end the
// connection with a line of the link (analyser/head.h), which tries again after 2 s; the next step goes on.
//
// Thread: the poll loop's. A host name is looked up by the system's resolver, which blocks; an address is not. A
// callback may call everything here; it must not destroy the object. What it throws passes to the link, which closes.

#pragma once

#include <jsoncpp/json/value.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "analyser/head.h"
#include "net/httpparser.h"
#include "runtime/pollprocessor.h"
#include "serial/linuxclock.h"

class PullCSI : public PollTimer, public Head::Listener, public HTTPParser::Listener {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    // Lines with their ends. The header comes again when a field of "Public" has changed in any way.
    virtual void GotCSIHeader(std::string line) = 0;
    virtual void GotCSIData(std::string line);
  };

  // `clock` outlives the object. `upload_dir` has to be there, or rows are lost; `conf_dir` is made when it is missing,
  // one level. `table_seconds`: between queries of the data table, in whole steps of 5; each step below 10. `verbose`:
  // headers and documents go to standard output. Connects to nothing.
  PullCSI(LinuxClock& clock, std::string upload_dir, std::string conf_dir, int table_seconds, bool verbose);
  ~PullCSI() noexcept override;

  // Not owned, may be null. Returns the one it replaces. A header that went before is not repeated for it.
  Listener* RegisterListener(Listener* listener);

  // An IPv4 address or the name of a host that has one. The first step follows in 1 s; a present connection stays till
  // then. "": ends all, and what is queued waits.
  void SetCSIHostname(std::string hostname);
  // Of the data table; "MoorcloudData" at first. Goes into the request as it is.
  void SetCSITable(std::string table) { _table = std::move(table); }
  // From the next queries of the data table on. Metres, degrees; 0 at first.
  void SetElevation(double elevation) { _elevation = elevation; }
  void SetLatitude(double latitude) { _latitude = latitude; }
  void SetLongitude(double longitude) { _longitude = longitude; }

  void HandleTimeout() override;
  const char* Description() const override { return "PullCSI"; }
  void HeadConnected(std::string connectedTo) override;
  void HeadGotRaw(std::string data) override;
  void HTTPGotResponse(std::map<std::string, std::string>& headers, std::string body) override;

 protected:
  // To another port than 80.
  PullCSI(LinuxClock& clock, std::string upload_dir, std::string conf_dir, int table_seconds, bool verbose, int port);

 private:
  void _Append(std::string path);
  void _SendNextRequest();
  void _HandleJSONResponse(const std::string& body);
  void _HandleLiveDataJSON(Json::Value& root, const std::string& body);
  bool _FieldsDiffer(const Json::Value& fields, const std::string& body);
  void _TakeFields(Json::Value& fields);
  void _StoreRow(const std::string& timestamp, const Json::Value& root) const;
  void _Sync();
  void _LoadConf();
  void _SaveConf() const;
  std::string _ConfPath() const { return _conf_dir + "/PullCSI.conf"; }

  LinuxClock& _clock;
  Listener* _listener = nullptr;
  const std::string _upload_dir;
  const std::string _conf_dir;
  std::string _hostname;  // empty: off
  std::string _table = "MoorcloudData";
  Head _head;
  HTTPParser _http{this, HTTPParser::TypeResponse};
  const int32_t _table_ticks;  // steps between queries of the data table
  int32_t _tick_count = 0;     // since the last one
  std::string _last_timestamp;
  std::deque<std::string> _requests;  // paths
  int32_t _sync_offset = 0;           // minutes east of Greenwich when the clock was set last
  int32_t _sync_day = 0;              // day of the month then; 0: never
  bool _force_sync = false;
  double _elevation = 0;
  double _latitude = 0;
  double _longitude = 0;
  Json::Value _fields;       // of "Public", as they were last
  std::string _fields_text;  // the same as they were sent, or empty
  std::string _datah;
  std::vector<int> _field_types;
  const bool _verbose;

  size_t _unfinished = 0;  // bytes since the last complete reply, or since the connection began
  const std::unique_ptr<Json::CharReader> _reader;
};
