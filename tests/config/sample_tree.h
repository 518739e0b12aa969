// A tree with one of each kind of thing, for tests of the dialect.

#pragma once

#include <istream>
#include <ostream>
#include <sstream>
#include <string>

#include "config/configbuiltin.h"
#include "config/configdynamic.h"

// A number whose description is a bare word.
class Number : public Configurable {
 public:
  explicit Number(const std::string& name, double value = 0) : Configurable(name), _value(value) {}

  Number& operator=(const Number& other) {
    _value = other._value;
    return *this;
  }
  bool operator==(const Number& other) const { return _value == other._value; }

  double get() const { return _value; }
  void set(double value) {
    if (value == _value) return;
    _value = value;
    _set_changed(true);
  }

  std::istream& read(std::istream& in, std::ostream& errors) override {
    if (double value = 0; in >> value)
      set(value);
    else
      errors << "unable to read float";
    return in;
  }
  std::ostream& write(std::ostream& out) const override { return out << _value; }
  std::ostream& write_doctype(std::ostream& out) const override { return out << "float"; }

 private:
  double _value;
};

class Lunch : public ConfigurableMultipleChoice {
 public:
  Lunch() : ConfigurableMultipleChoice("lunch", _choices, 0) {
    if (_choices.empty()) _choices = {"apple", "banana", "orange", "grapes", "tire", "translate<>&'\""};
  }

 private:
  inline static Choices _choices;
};

struct SampleTree : ConfigurableComposite {
  SampleTree() : ConfigurableComposite("L") {
    for (Configurable* child :
         {static_cast<Configurable*>(&a), static_cast<Configurable*>(&b), static_cast<Configurable*>(&c),
          static_cast<Configurable*>(&d), static_cast<Configurable*>(&lunch), static_cast<Configurable*>(&dyn)})
      add(*child);
    d.add(e);
    for (Number* g : {&g1, &g2, &g3}) e.add(*g);
    d.add(f);
    d.add(GG);
    GG._set_enabled(false);
  }

  Number a{"a", 1234}, b{"b", 0.1234}, c{"c", 43.21};
  ConfigurableComposite d{"d"}, e{"e"};
  Number g1{"g", 0.11}, g2{"g", 0.22}, g3{"g", 0.33}, f{"f", 6.5}, GG{"GG", 1};
  Lunch lunch;
  ConfigurableCompositeDynamic<Number> dyn{"dyn"};
};

// What a tree answers to a document, compact. "(failed)" behind it when the input was left failed.
inline std::string Answer(Configurable& tree, const std::string& document) {
  std::istringstream in(document);
  std::ostringstream out;
  Configurable::set_compact(out, true);
  tree.configure(in, out);
  return out.str() + (in.fail() ? "(failed)" : "");
}

struct Exchange {
  const char* document;
  const char* answer;
};
