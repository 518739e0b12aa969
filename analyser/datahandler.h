// Takes the analyser's lines, one at a time, and tells everyone who wants them what each one is; keeps the copy of the
// analyser's document that its XML lines bring.
//
// The owner feeds it: nothing here reads a socket or looks at a clock. A line is text with its line feed:
//
//   <...                 a document, or a piece of one; "<ack>true</ack" anywhere in it makes it an acknowledgement,
//                        which the document doesn't see
//   KEY fields... CHK    by its first word, which begins with D; the table in the .cpp says whose sum is compared
//                        (runtime/datachecksum.h) and which fields are cut. Any white space parts fields
//   anything else        unknown, and so is a D word that the table doesn't have
//
// Nothing that comes in is dropped without a call. Unknown first words that begin with D are kept for good, 80 bytes
// and the heap's own share each, or some 100 MB for a million of them on a 64-bit host (bench/datahandler_bench.cpp).
//
// The copy starts as a new document, in which everything counts as changed: so it does in what the first XML line
// shows. It outlives connections. Only the commands in `cmd` are set back behind each line; one in `factory/cmd` stays.
// Both are meant.
//
// Throws what a listener throws, and SocketError for a document with an address that is none. That document counts as
// far as it went, nobody is told, and its marks and commands stay until the next one. Out of a callback of a Head it
// would close the link, and do so every 2 s when the analyser sends such a document at each connect: catch around
// DispatchLine.
//
// Thread: the poll loop's.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "config/doc5500.h"

class DataHandler {
 public:
  // Lines come with their line feeds, columns without the first word; the last column of a line with a sum is the sum's
  // text, of a header its heading CHK.
  //
  // A listener may register others, who are told from the next operation on but not of the one under way, and may hand
  // in further lines.
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void DataHandler_Connected(std::string /*peer*/) {}
    virtual void DataHandler_Disconnected() {}
    // What the two texts say is up to the owner, who hands them in.
    virtual void DataHandler_DiskMounted(std::string, std::string) {}
    virtual void DataHandler_DiskUnmounted(std::string, std::string) {}
    virtual void DataHandler_GotLine(std::string /*line*/) {}  // each one, before it is looked at
    virtual void DataHandler_GotDATAHColumns(std::vector<std::string> /*columns*/) {}
    virtual void DataHandler_GotDATAColumns(std::vector<std::string> /*columns*/) {}
    virtual void DataHandler_GotDATAH(std::string /*line*/) {}
    virtual void DataHandler_GotDATA(std::string /*line*/) {}
    virtual void DataHandler_GotDATASTATH(std::string /*line*/) {}
    virtual void DataHandler_GotDATASTAT(std::string /*line*/) {}
    virtual void DataHandler_GotDATACLOCKH(std::string /*line*/) {}
    virtual void DataHandler_GotDATACLOCK(std::string /*line*/) {}
    virtual void DataHandler_GotDATADIAGH(std::string /*line*/) {}
    virtual void DataHandler_GotDATADACSH(std::string /*line*/) {}
    virtual void DataHandler_GotDATADACS(std::string /*line*/) {}
    virtual void DataHandler_GotWaveform(std::string /*line*/) {}  // of one of four kinds; its first word says which
    virtual void DataHandler_GotDATAEVENTColumns(std::vector<std::string> /*columns*/) {}
    virtual void DataHandler_GotDATAEVENT(std::string /*line*/) {}
    virtual void DataHandler_GotXMLLine(std::string /*line*/) {}
    // Behind each XML line that is no acknowledgement, also one that failed. What it changed is marked, and its
    // commands stand; both are cleared when all listeners were told.
    virtual void DataHandler_GotXMLDoc(const Doc5500& /*document*/) {}
    virtual void DataHandler_GotUnknownLine(std::string /*line*/) {}
    virtual void DataHandler_GotBadChecksum(std::string /*line*/) {}
  };

  DataHandler();
  DataHandler(const DataHandler&) = delete;
  DataHandler& operator=(const DataHandler&) = delete;

  // Not owned, never null, and has to outlive the handler: there is no way out. One that registers twice is told twice.
  void RegisterListener(Listener* listener) { _listeners.push_back(listener); }

  void DispatchLine(std::string line);
  void DispatchConnected(const std::string& peer);
  void DispatchDisconnected();
  void DispatchDiskMounted(const std::string& first, const std::string& second);
  void DispatchDiskUnmounted(const std::string& first, const std::string& second);

  const Doc5500& GetDocument() const { return _document; }

 private:
  // The line, its first word, and what stands behind that.
  using Dispatcher = void (DataHandler::*)(const std::string& line, std::string_view key, std::string_view rest);
  using LineOperation = void (Listener::*)(std::string line);
  using ColumnsOperation = void (Listener::*)(std::vector<std::string> columns);

  void _DispatchDATAH(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATA(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATASTATH(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATASTAT(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATACLOCKH(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATACLOCK(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATADIAGH(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATADACSH(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATADACS(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchWaveform(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchDATAEVENT(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchUnknownLine(const std::string& line, std::string_view key, std::string_view rest);
  void _DispatchUnknownLine(const std::string& line);
  void _DispatchBadChecksum(const std::string& line);
  void _DispatchXML(const std::string& line);

  template <typename... Parameters, typename... Arguments>
  void _Tell(void (Listener::*operation)(Parameters...), const Arguments&... arguments);
  void _TellChecked(LineOperation operation, const std::string& line);
  // Both for one listener before the next one.
  void _TellWithColumns(LineOperation operation, ColumnsOperation columns_operation, const std::string& line,
                        std::string_view rest);

  std::vector<Listener*> _listeners;
  Doc5500 _document;
  std::map<std::string, Dispatcher, std::less<>> _dispatchTable;
};
