// One kind of data set across all modules of a bus: which modules there are, what columns each has, the latest values,
// and whether all modules have reported for the same second. A DAQM holds one each for stored, live and backup data,
// and calls it DAQM::_DataHandler.
//
// Modules come in the order of their identifiers as text, "10" before "2", and columns by their numbers. Names, units
// and values come in the same order, so they stay aligned.
//
// Bad input: what has the wrong JSON type throws jsoncpp's own error. HandleData then changes nothing; HandleDataInfo
// keeps what stood in front of it. Keys that are no numbers count as column 0; columns and times beyond 32 bits as the
// limit or as jsoncpp's error.
//
// No input or output. Thread: the poll loop's.

#pragma once

#include <jsoncpp/json/forwards.h>

#include <bit>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

class DAQMDataHandler {
 public:
  // No value. Known by its bits, which copying keeps and arithmetic or a float don't: it is a signalling one.
  static constexpr double NaN = std::bit_cast<double>(uint64_t{0x7FF4000000000000});

  bool HasId(const std::string& id) const { return _state.contains(id); }
  // There are modules, and the last report of each is new and of the same second.
  bool IsDataReady() const;
  // Some module has reported since GetData.
  bool IsSomeDataReady() const;
  // No module waits for its data info; true without modules.
  bool HasAllDataInfo() const;
  std::vector<std::string> Ids() const;
  std::vector<std::string> IdsWaitingForDataInfo() const;
  // The module's last report hasn't been collected yet.
  bool WillNewDataOverwrite(const std::string& id) const;

  // From now on, until its last fragment of data info has come, the module's reports don't count as new. An unknown
  // module becomes known.
  void WaitingForDataInfo(const std::string& id);

  // A fragment of column descriptions: [not used, fragments that follow, {"column": ["name", "unit"], ...}, ...].
  // `distrust`: one may have been lost, so the module goes on waiting.
  void HandleDataInfo(const std::string& id, const Json::Value& info, bool distrust);

  // A report: [not used, seconds, {"column": value or null, ...}, ...]. Its columns replace those of the last one. A
  // module that isn't known gets values too, but isn't waited for.
  void HandleData(const std::string& id, const Json::Value& data);

  // Appends all values; no report is new afterwards. `clear`: each value is NaN from then on.
  void GetData(std::vector<double>& out, bool clear);

  // Appends the headers of all columns that have values, empty texts where no data info has come; takes the changed
  // mark back.
  void GetHeaders(std::vector<std::string>& names, std::vector<std::string>& units);

  // Headers have to go out again.
  bool IsChanged() const { return _changed; }
  void SetChanged() { _changed = true; }

  long Timestamp() const { return _timestamp; }  // of the latest report, in seconds by its module's clock

 private:
  // A module's state is one of these, or the time of its report that hasn't been collected. (A report of the time -1
  // makes its module wait.)
  enum : int { kWaitingForInfo = -1, kNoNewData = 0 };
  using _Columns = std::map<int, double>;
  using _Texts = std::map<int, std::string>;

  void _GotDataInfo(const std::string& id);
  void _GotData(const std::string& id, long time);
  void _WaitingForData(const std::string& id);

  bool _changed = false;
  long _timestamp = 0;
  const uint32_t _time_index = 1;  // of the time, in a report
  std::map<std::string, long> _state;
  std::map<std::string, _Texts> _names;
  std::map<std::string, _Texts> _units;
  std::map<std::string, _Columns> _values;
};
