// The value items: one kind of value each, with its text form, its description and its default.
//
// Constructors take the tag name first and the default next. set stores the value and marks a change only when it
// differs from the present one; set_to_default does the same with the default.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "config/configurable.h"

// "true" or "false".
class ConfigurableBool : public Configurable {
 public:
  ConfigurableBool(std::string name, bool value);

  bool get() const { return _value; }
  void set(bool value);

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;

 private:
  bool _value;
  const bool _default;
};

// A decimal integer, clamped to its range: a value outside is never refused, as long as it fits 64 bits. The default
// itself isn't clamped until set_to_default takes it.
class ConfigurableInteger : public Configurable {
 public:
  ConfigurableInteger(std::string name, std::int32_t value, std::int32_t min = std::numeric_limits<std::int32_t>::min(),
                      std::int32_t max = std::numeric_limits<std::int32_t>::max());

  std::int32_t get() const { return _value; }
  void set(long value) { _set(value); }

  void set_to_default() override { _set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;

 private:
  void _set(std::int64_t value);

  std::int32_t _value;
  const std::int32_t _min;
  const std::int32_t _max;
  const std::int32_t _default;
};

// A floating point number, in six significant digits whatever its width, or "inf", "-inf", "nan".
//
// A range clamps, infinities included, and never refuses a number; the default itself isn't clamped until
// set_to_default takes it. NaN has no place in a range: it is taken as it stands, or refused. Setting NaN always marks
// a change, for it equals nothing.
template <class Number>
class ConfigurableReal : public Configurable {
 public:
  Number get() const { return _value; }
  // Throws std::range_error for a NaN that the range refuses; so do set_to_default and read, and through them
  // configure, whatever is set about throwing errors.
  void set(Number value);

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;

 protected:
  ConfigurableReal(std::string name, Number value);  // without a range
  ConfigurableReal(std::string name, Number value, Number min, Number max, bool refuse_nan);

 private:
  enum class Range : std::uint8_t { kNone, kClamp, kClampAndRefuseNaN };

  Number _value;
  const Number _min;
  const Number _max;
  const Number _default;
  const Range _range;
};

class ConfigurableFloat : public ConfigurableReal<float> {
 public:
  ConfigurableFloat(std::string name, float value) : ConfigurableReal(std::move(name), value) {}
  ConfigurableFloat(std::string name, float value, float min, float max, bool refuse_nan)
      : ConfigurableReal(std::move(name), value, min, max, refuse_nan) {}
  void do_accept(ConfigurableVisitor& visitor) override;
};

class ConfigurableDouble : public ConfigurableReal<double> {
 public:
  ConfigurableDouble(std::string name, double value) : ConfigurableReal(std::move(name), value) {}
  ConfigurableDouble(std::string name, double value, double min, double max, bool refuse_nan)
      : ConfigurableReal(std::move(name), value, min, max, refuse_nan) {}
  void do_accept(ConfigurableVisitor& visitor) override;
};

// Any text without a NUL byte.
class ConfigurableString : public Configurable {
 public:
  ConfigurableString(std::string name, std::string value);

  const std::string& get() const { return _value; }

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;

  // Every way of setting the text comes through here, so that a derived item can refine it.
  virtual void set(const std::string& value);

 private:
  std::string _value;
  const std::string _default;
};

// Shows the value of another text item under a further tag. Text sent to it is dropped without a word, and its change
// mark doesn't follow the other item. The other item has to outlive it.
class ConfigurableStringProxyReadOnly : public Configurable {
 public:
  ConfigurableStringProxyReadOnly(std::string name, const ConfigurableString& shown);

  const std::string& get() const { return _shown.get(); }

  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;

 private:
  const ConfigurableString& _shown;
};

// One of a list of texts. The list is shared and owned elsewhere, usually a static of the derived class; it has to
// outlive the item, and may grow, shrink or be replaced meanwhile: the index stays, and reads as an empty text where
// the list doesn't have it.
class ConfigurableMultipleChoice : public Configurable {
 public:
  using Choices = std::vector<std::string>;

  ConfigurableMultipleChoice(std::string name, const Choices& choices, int index);

  int get() const { return _index; }
  const std::string& get_str() const;
  void set(int index);  // an index that the list doesn't have is ignored

  void set_to_default() override { set(_default); }
  std::istream& read(std::istream& in, std::ostream& errors) override;
  std::ostream& write(std::ostream& out) const override;
  std::ostream& write_doctype(std::ostream& out) const override;
  void do_accept(ConfigurableVisitor& visitor) override;

 protected:
  // The list of a class, which its first instance fills.
  static const Choices& _filled(Choices& choices, std::initializer_list<const char*> texts);

  // The index of the first choice that is this text; -1 when there is none.
  int _find(const std::string& text) const;

 private:
  bool _is_choice(int index) const;

  const Choices* const _choices;
  int _index;
  const int _default;
};
