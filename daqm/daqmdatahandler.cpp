#include "daqm/daqmdatahandler.h"

#include <jsoncpp/json/value.h>

#include <algorithm>

#include "daqm/jsonmembers.h"
#include "runtime/numbertext.h"
#include "runtime/str_util.h"

namespace {

// As strtol(3) reads it where long has 32 bits.
int ColumnNumber(std::string_view key) {
  bool failed = false;  // 0 then, or the limit
  SkipSpace(key);
  return TakeInteger(key, failed);
}

std::string ColumnName(const Json::Value& text) {
  std::string name = text.asString();
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c == '-' || IsClassicSpace(c); }, '_');
  return name;
}

}  // namespace

bool DAQMDataHandler::IsDataReady() const {
  if (_state.empty()) return false;
  const long time = _state.begin()->second;
  return time > 0 &&
         std::all_of(_state.begin(), _state.end(), [time](const auto& module) { return module.second == time; });
}

bool DAQMDataHandler::IsSomeDataReady() const {
  return std::any_of(_state.begin(), _state.end(), [](const auto& module) { return module.second > 0; });
}

bool DAQMDataHandler::HasAllDataInfo() const {
  return std::none_of(_state.begin(), _state.end(),
                      [](const auto& module) { return module.second == kWaitingForInfo; });
}

std::vector<std::string> DAQMDataHandler::Ids() const {
  std::vector<std::string> ids;
  for (const auto& module : _state) ids.push_back(module.first);
  return ids;
}

std::vector<std::string> DAQMDataHandler::IdsWaitingForDataInfo() const {
  std::vector<std::string> ids;
  for (const auto& [id, state] : _state)
    if (state == kWaitingForInfo) ids.push_back(id);
  return ids;
}

bool DAQMDataHandler::WillNewDataOverwrite(const std::string& id) const {
  const auto module = _state.find(id);
  return module != _state.end() && module->second > 0;
}

void DAQMDataHandler::WaitingForDataInfo(const std::string& id) {
  _state[id] = kWaitingForInfo;
}

void DAQMDataHandler::_GotDataInfo(const std::string& id) {
  const auto module = _state.find(id);
  if (module != _state.end() && module->second == kWaitingForInfo) module->second = kNoNewData;
}

void DAQMDataHandler::_GotData(const std::string& id, long time) {
  const auto module = _state.find(id);
  if (module != _state.end() && module->second != kWaitingForInfo) module->second = time;
}

void DAQMDataHandler::_WaitingForData(const std::string& id) {
  _GotData(id, kNoNewData);
}

void DAQMDataHandler::HandleDataInfo(const std::string& id, const Json::Value& info, bool distrust) {
  if (info.size() < 2) return;
  const int remaining = info[1].asInt();
  for (Json::ArrayIndex i = 2; i < info.size(); ++i)
    ForEachMember(info[i], [&](std::string_view key, const Json::Value& pair) {
      if (pair.size() < 2) return;
      const std::string name = ColumnName(pair[0]);
      const std::string unit = pair[1].asString();
      if (name.empty()) return;
      const int column = ColumnNumber(key);
      _names[id][column] = name;
      _units[id][column] = unit.empty() ? "NONE" : unit;
      _changed = true;
    });
  if (!distrust && remaining == 0) _GotDataInfo(id);
}

void DAQMDataHandler::HandleData(const std::string& id, const Json::Value& data) {
  if (data.size() <= _time_index) return;
  const int time = data[_time_index].asInt();
  _Columns fresh;
  for (Json::ArrayIndex i = _time_index + 1; i < data.size(); ++i)
    ForEachMember(data[i], [&fresh](std::string_view key, const Json::Value& value) {
      fresh[ColumnNumber(key)] = value.isNull() ? NaN : value.asDouble();
    });

  // From here on nothing throws for what the data hold.
  _timestamp = time;
  const auto [stored, is_new] = _values.try_emplace(id);
  const bool same_columns =
      std::equal(fresh.begin(), fresh.end(), stored->second.begin(), stored->second.end(),
                 [](const auto& column, const auto& before) { return column.first == before.first; });
  if (is_new || !same_columns) _changed = true;
  stored->second.swap(fresh);
  _GotData(id, _timestamp);
}

void DAQMDataHandler::GetData(std::vector<double>& out, bool clear) {
  for (auto& [id, columns] : _values) {
    _WaitingForData(id);
    for (auto& [column, value] : columns) {
      out.push_back(value);
      if (clear) value = NaN;
    }
  }
}

void DAQMDataHandler::GetHeaders(std::vector<std::string>& names, std::vector<std::string>& units) {
  for (const auto& [id, columns] : _values)
    for (const auto& column : columns) {
      names.push_back(_names[id][column.first]);
      units.push_back(_units[id][column.first]);
    }
  _changed = false;
}
