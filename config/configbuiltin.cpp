#include "config/configbuiltin.h"

#include <algorithm>
#include <istream>
#include <ostream>
#include <stdexcept>
#include <utility>

#include "config/configvisitor.h"
#include "runtime/numbertext.h"

namespace {

// Numbers as a stream of the classic locale writes them, whatever stream they go to.
std::string Text(std::int32_t value) {
  std::string text;
  AppendInteger(text, value);
  return text;
}

std::string Text(double value) {
  std::string text;
  AppendDouble(text, value);
  return text;
}

}  // namespace

ConfigurableBool::ConfigurableBool(std::string name, bool value)
    : Configurable(std::move(name)), _value(value), _default(value) {}

void ConfigurableBool::set(bool value) {
  if (value == _value) return;
  _value = value;
  _set_changed(true);
}

std::istream& ConfigurableBool::read(std::istream& in, std::ostream& errors) {
  if (in.fail()) return in;
  std::string word;
  if (!(in >> word))
    errors << "unable to read bool";
  else if (word == "true" || word == "false")
    set(word == "true");
  else
    errors << "invalid bool";
  return in;
}

std::ostream& ConfigurableBool::write(std::ostream& out) const {
  return out << (_value ? "true" : "false");
}
std::ostream& ConfigurableBool::write_doctype(std::ostream& out) const {
  return out << "true|false";
}
void ConfigurableBool::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableBool(*this);
}

ConfigurableInteger::ConfigurableInteger(std::string name, std::int32_t value, std::int32_t min, std::int32_t max)
    : Configurable(std::move(name)), _value(value), _min(min), _max(max), _default(value) {}

void ConfigurableInteger::_set(std::int64_t value) {
  const auto clamped = static_cast<std::int32_t>(std::clamp<std::int64_t>(value, _min, _max));
  if (clamped == _value) return;
  _value = clamped;
  _set_changed(true);
}

// In 64 bits whatever a long has, so that a value beyond 32 bits is clamped on every board.
std::istream& ConfigurableInteger::read(std::istream& in, std::ostream& errors) {
  std::int64_t value = 0;
  if (in >> value)
    _set(value);
  else
    errors << "unable to read integer";
  return in;
}

std::ostream& ConfigurableInteger::write(std::ostream& out) const {
  return out << Text(_value);
}

std::ostream& ConfigurableInteger::write_doctype(std::ostream& out) const {
  using Limits = std::numeric_limits<std::int32_t>;
  out << "integer:" << Text(_default);
  if (_min != Limits::min() || _max != Limits::max()) out << ';' << Text(_min) << "..." << Text(_max);
  return out;
}

void ConfigurableInteger::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableInteger(*this);
}

namespace {

template <class Number>
constexpr const char* kTypeName = "float";
template <>
constexpr const char* kTypeName<double> = "double";

template <class Number>
constexpr const char* kRangeError = "ConfigurableFloat: range error";
template <>
constexpr const char* kRangeError<double> = "ConfigurableDouble: range error";

}  // namespace

template <class Number>
ConfigurableReal<Number>::ConfigurableReal(std::string name, Number value)
    : Configurable(std::move(name)),
      _value(value),
      _min(std::numeric_limits<Number>::lowest()),
      _max(std::numeric_limits<Number>::max()),
      _default(value),
      _range(Range::kNone) {}

template <class Number>
ConfigurableReal<Number>::ConfigurableReal(std::string name, Number value, Number min, Number max, bool refuse_nan)
    : Configurable(std::move(name)),
      _value(value),
      _min(min),
      _max(max),
      _default(value),
      _range(refuse_nan ? Range::kClampAndRefuseNaN : Range::kClamp) {}

template <class Number>
void ConfigurableReal<Number>::set(Number value) {
  // True of NaN alone where min is below max: what compares with nothing.
  if (_range == Range::kClampAndRefuseNaN && !(value > _min) && !(value < _max))
    throw std::range_error(kRangeError<Number>);
  if (_range != Range::kNone) value = std::clamp(value, _min, _max);  // NaN is neither below nor above
  if (value == _value) return;
  _value = value;
  _set_changed(true);
}

template <class Number>
std::istream& ConfigurableReal<Number>::read(std::istream& in, std::ostream& errors) {
  if (in.fail()) return in;
  if (Number value{}; in >> value) {
    set(value);
    return in;
  }
  in.clear();
  in.seekg(0);
  std::string word;
  in >> word;
  using Limits = std::numeric_limits<Number>;
  if (word == "inf") {
    set(Limits::infinity());
  } else if (word == "-inf") {
    set(-Limits::infinity());
  } else if (word == "nan") {
    set(Limits::quiet_NaN());
  } else {
    errors << "unable to read " << kTypeName<Number>;
    in.setstate(std::ios_base::failbit);
  }
  return in;
}

template <class Number>
std::ostream& ConfigurableReal<Number>::write(std::ostream& out) const {
  return out << Text(_value);
}

template <class Number>
std::ostream& ConfigurableReal<Number>::write_doctype(std::ostream& out) const {
  out << kTypeName<Number> << ':' << Text(_default);
  if (_range != Range::kNone) out << ';' << Text(_min) << "..." << Text(_max);
  return out;
}

template class ConfigurableReal<float>;
template class ConfigurableReal<double>;

void ConfigurableFloat::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableFloat(*this);
}
void ConfigurableDouble::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableDouble(*this);
}

ConfigurableString::ConfigurableString(std::string name, std::string value)
    : Configurable(std::move(name)), _value(value), _default(std::move(value)) {}

void ConfigurableString::set(const std::string& value) {
  if (value == _value) return;
  _value = value;
  _set_changed(true);
}

std::istream& ConfigurableString::read(std::istream& in, std::ostream& errors) {
  std::string text;
  if (std::getline(in, text, '\0'))
    set(text);
  else
    errors << "unable to read string\n";
  return in;
}

std::ostream& ConfigurableString::write(std::ostream& out) const {
  return out << _value;
}

std::ostream& ConfigurableString::write_doctype(std::ostream& out) const {
  out << "string";
  if (!_default.empty()) out << ':' << _default;
  return out;
}

void ConfigurableString::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableString(*this);
}

ConfigurableStringProxyReadOnly::ConfigurableStringProxyReadOnly(std::string name, const ConfigurableString& shown)
    : Configurable(std::move(name)), _shown(shown) {}

std::ostream& ConfigurableStringProxyReadOnly::write(std::ostream& out) const {
  return out << _shown.get();
}
std::ostream& ConfigurableStringProxyReadOnly::write_doctype(std::ostream& out) const {
  return out << "string";
}

ConfigurableMultipleChoice::ConfigurableMultipleChoice(std::string name, const Choices& choices, int index)
    : Configurable(std::move(name)), _choices(&choices), _index(index), _default(index) {}

const ConfigurableMultipleChoice::Choices& ConfigurableMultipleChoice::_filled(
    Choices& choices, std::initializer_list<const char*> texts) {
  if (choices.empty()) choices.assign(texts.begin(), texts.end());
  return choices;
}

bool ConfigurableMultipleChoice::_is_choice(int index) const {
  return index >= 0 && static_cast<Choices::size_type>(index) < _choices->size();
}

const std::string& ConfigurableMultipleChoice::get_str() const {
  static const std::string none;
  return _is_choice(_index) ? (*_choices)[static_cast<Choices::size_type>(_index)] : none;
}

void ConfigurableMultipleChoice::set(int index) {
  if (index == _index || !_is_choice(index)) return;
  _index = index;
  _set_changed(true);
}

std::istream& ConfigurableMultipleChoice::read(std::istream& in, std::ostream& errors) {
  std::string text;
  if (!std::getline(in, text, '\0'))
    errors << "unable to read choice\n";
  else if (const int index = _find(text); index < 0)
    errors << "invalid option: " << text << '\n';
  else
    set(index);
  return in;
}

int ConfigurableMultipleChoice::_find(const std::string& text) const {
  const auto found = std::find(_choices->begin(), _choices->end(), text);
  return found == _choices->end() ? -1 : static_cast<int>(found - _choices->begin());
}

std::ostream& ConfigurableMultipleChoice::write(std::ostream& out) const {
  return out << get_str();
}

std::ostream& ConfigurableMultipleChoice::write_doctype(std::ostream& out) const {
  const char* separator = "";
  for (const std::string& choice : *_choices) {
    out << separator << choice;
    separator = "|";
  }
  return out;
}

void ConfigurableMultipleChoice::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableMultipleChoice(*this);
}
