#include "analyser/datahandler.h"

#include <sstream>
#include <utility>

#include "runtime/datachecksum.h"
#include "runtime/str_util.h"

namespace {

constexpr const char* kAcknowledgement = "<ack>true</ack";

}  // namespace

// There is none for DATADIAG; that is meant.
DataHandler::DataHandler()
    : _dispatchTable{
          {"DATAH", &DataHandler::_DispatchDATAH},           {"DATA", &DataHandler::_DispatchDATA},
          {"DATASTATH", &DataHandler::_DispatchDATASTATH},   {"DATASTAT", &DataHandler::_DispatchDATASTAT},
          {"DATACLOCKH", &DataHandler::_DispatchDATACLOCKH}, {"DATACLOCK", &DataHandler::_DispatchDATACLOCK},
          {"DATADIAGH", &DataHandler::_DispatchDATADIAGH},   {"DATADACSH", &DataHandler::_DispatchDATADACSH},
          {"DATADACS", &DataHandler::_DispatchDATADACS},     {"DATAR", &DataHandler::_DispatchWaveform},
          {"DATARDC", &DataHandler::_DispatchWaveform},      {"DATAS", &DataHandler::_DispatchWaveform},
          {"DATASDC", &DataHandler::_DispatchWaveform},      {"DATAEVENT", &DataHandler::_DispatchDATAEVENT},
      } {}

void DataHandler::DispatchLine(std::string line) {
  _Tell(&Listener::DataHandler_GotLine, line);
  if (line.starts_with('<')) return _DispatchXML(line);
  if (!line.starts_with('D')) return _DispatchUnknownLine(line);
  std::string_view rest = line, key;
  NextWord(rest, key);
  auto found = _dispatchTable.find(key);
  const Dispatcher unknown = &DataHandler::_DispatchUnknownLine;
  if (found == _dispatchTable.end()) found = _dispatchTable.emplace(key, unknown).first;
  (this->*found->second)(line, key, rest);
}

void DataHandler::DispatchConnected(const std::string& peer) {
  _Tell(&Listener::DataHandler_Connected, peer);
}

void DataHandler::DispatchDisconnected() {
  _Tell(&Listener::DataHandler_Disconnected);
}

void DataHandler::DispatchDiskMounted(const std::string& first, const std::string& second) {
  _Tell(&Listener::DataHandler_DiskMounted, first, second);
}

void DataHandler::DispatchDiskUnmounted(const std::string& first, const std::string& second) {
  _Tell(&Listener::DataHandler_DiskUnmounted, first, second);
}

void DataHandler::_DispatchDATAH(const std::string& line, std::string_view, std::string_view rest) {
  _TellWithColumns(&Listener::DataHandler_GotDATAH, &Listener::DataHandler_GotDATAHColumns, line, rest);
}

void DataHandler::_DispatchDATA(const std::string& line, std::string_view, std::string_view rest) {
  if (!CheckSumAgrees(line)) return _DispatchBadChecksum(line);
  _TellWithColumns(&Listener::DataHandler_GotDATA, &Listener::DataHandler_GotDATAColumns, line, rest);
}

void DataHandler::_DispatchDATAEVENT(const std::string& line, std::string_view, std::string_view rest) {
  _TellWithColumns(&Listener::DataHandler_GotDATAEVENT, &Listener::DataHandler_GotDATAEVENTColumns, line, rest);
}

void DataHandler::_DispatchDATASTATH(const std::string& line, std::string_view, std::string_view) {
  _Tell(&Listener::DataHandler_GotDATASTATH, line);
}

void DataHandler::_DispatchDATASTAT(const std::string& line, std::string_view, std::string_view) {
  _TellChecked(&Listener::DataHandler_GotDATASTAT, line);
}

void DataHandler::_DispatchDATACLOCKH(const std::string& line, std::string_view, std::string_view) {
  _Tell(&Listener::DataHandler_GotDATACLOCKH, line);
}

void DataHandler::_DispatchDATACLOCK(const std::string& line, std::string_view, std::string_view) {
  _TellChecked(&Listener::DataHandler_GotDATACLOCK, line);
}

void DataHandler::_DispatchDATADIAGH(const std::string& line, std::string_view, std::string_view) {
  _Tell(&Listener::DataHandler_GotDATADIAGH, line);
}

void DataHandler::_DispatchDATADACSH(const std::string& line, std::string_view, std::string_view) {
  _Tell(&Listener::DataHandler_GotDATADACSH, line);
}

void DataHandler::_DispatchDATADACS(const std::string& line, std::string_view, std::string_view) {
  _TellChecked(&Listener::DataHandler_GotDATADACS, line);
}

void DataHandler::_DispatchWaveform(const std::string& line, std::string_view, std::string_view) {
  _TellChecked(&Listener::DataHandler_GotWaveform, line);
}

void DataHandler::_DispatchUnknownLine(const std::string& line, std::string_view, std::string_view) {
  _DispatchUnknownLine(line);
}

void DataHandler::_DispatchUnknownLine(const std::string& line) {
  _Tell(&Listener::DataHandler_GotUnknownLine, line);
}

void DataHandler::_DispatchBadChecksum(const std::string& line) {
  _Tell(&Listener::DataHandler_GotBadChecksum, line);
}

void DataHandler::_DispatchXML(const std::string& line) {
  _Tell(&Listener::DataHandler_GotXMLLine, line);
  if (line.find(kAcknowledgement) != std::string::npos) return;
  std::istringstream in(line);
  std::ostringstream discarded;
  Configurable::set_compact(discarded, true);
  _document.configure(in, discarded);
  _Tell(&Listener::DataHandler_GotXMLDoc, _document);
  _document.tn5500.cmd.set_to_default();
  _document._set_changed(false);
}

// A listener that is registered meanwhile may move the others, and isn't told.
template <typename... Parameters, typename... Arguments>
void DataHandler::_Tell(void (Listener::*operation)(Parameters...), const Arguments&... arguments) {
  const size_t count = _listeners.size();
  for (size_t i = 0; i < count; ++i) (_listeners[i]->*operation)(arguments...);
}

void DataHandler::_TellChecked(LineOperation operation, const std::string& line) {
  if (CheckSumAgrees(line))
    _Tell(operation, line);
  else
    _DispatchBadChecksum(line);
}

void DataHandler::_TellWithColumns(LineOperation operation, ColumnsOperation columns_operation, const std::string& line,
                                   std::string_view rest) {
  std::vector<std::string> columns;
  for (std::string_view word; NextWord(rest, word);) columns.emplace_back(word);
  const size_t count = _listeners.size();
  for (size_t i = 0; i < count; ++i) {
    (_listeners[i]->*operation)(line);
    if (i + 1 == count) return (_listeners[i]->*columns_operation)(std::move(columns));  // nobody needs them any more
    (_listeners[i]->*columns_operation)(columns);
  }
}
