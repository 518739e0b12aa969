#include "config/configcal.h"

#include <map>
#include <memory>

namespace {

constexpr const char* kZero = "CH4 Zero";
constexpr const char* kSpan = "CH4 Span";

}  // namespace

ConfigCalRecord::ConfigCalRecord(const std::string& name) : ConfigCalRecord(name, 0, "", 0, 1) {}

ConfigCalRecord::ConfigCalRecord(Timestamp when, const std::string& kind, float zero, float span)
    : ConfigCalRecord("record", when, kind, zero, span) {}

ConfigCalRecord::ConfigCalRecord(const std::string& name, Timestamp when, const std::string& kind, float zero,
                                 float span)
    : ConfigurableComposite(name),
      time("time", when),
      type("type", kind),
      ch4zero("ch4zero", zero),
      ch4span("ch4span", span) {
  _add_all({&time, &type, &ch4zero, &ch4span});
}

ConfigCalRecord& ConfigCalRecord::operator=(const ConfigCalRecord& other) {
  time.set(other.time.get());
  type.set(other.type.get());
  ch4zero.set(other.ch4zero.get());
  ch4span.set(other.ch4span.get());
  return *this;
}

bool ConfigCalRecord::operator==(const ConfigCalRecord& other) const {
  return time.get() == other.time.get() && type.get() == other.type.get() && ch4zero.get() == other.ch4zero.get() &&
         ch4span.get() == other.ch4span.get();
}

ConfigCalHistory::ConfigCalHistory() : ConfigurableCompositeDynamic("history") {}

void ConfigCalHistory::ClearOldRecords(Timestamp zero_time, Timestamp span_time) {
  std::map<std::string, std::shared_ptr<ConfigCalRecord>> kept;
  for (const Configurable* child : children()) {
    const auto* const record = dynamic_cast<const ConfigCalRecord*>(child);
    if (record == nullptr) continue;
    const auto is = [record](const char* kind, const Timestamp& when) {
      return record->type.get().find(kind) != std::string::npos && record->time.get() == when;
    };
    const char* const kind = is(kZero, zero_time) ? kZero : is(kSpan, span_time) ? kSpan : nullptr;
    if (kind == nullptr) continue;
    const auto copy = std::make_shared<ConfigCalRecord>(record->get_name());
    copy_item(*copy, *record);
    kept[kind] = copy;
  }
  clear();
  for (const auto& [kind, record] : kept) {
    std::unique_ptr<Configurable> item(new_item(record->get_name()));
    copy_item(*item, *record);
    add(*item.release());
  }
}

ConfigCal::ConfigCal() : ConfigurableComposite("cal") {
  _add_all({&ch4zero, &ch4span, &ch4spanconc, &ch4lastzero, &ch4lastspan, &history});
}

void ConfigCal::ClearOldHistoryRecords() {
  history.ClearOldRecords(ch4lastzero.get(), ch4lastspan.get());
}
