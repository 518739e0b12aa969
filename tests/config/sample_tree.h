// A tree with one of each kind of thing, for tests of the dialect.

#pragma once

#include <sstream>
#include <string>

#include "config/configbuiltin.h"
#include "config/configdynamic.h"

// A number whose description is a bare word.
class Number : public ConfigurableFloat {
 public:
  explicit Number(const std::string& name, float value = 0) : ConfigurableFloat(name, value) {}
  Number& operator=(const Number& other) { return set(other.get()), *this; }
  bool operator==(const Number& other) const { return get() == other.get(); }
  std::ostream& write_doctype(std::ostream& out) const override { return out << "float"; }
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
    _add_all({&a, &b, &c, &d, &lunch, &dyn});
    d.add(e), d.add(f), d.add(GG);
    e.add(g1), e.add(g2), e.add(g3);
    GG._set_enabled(false);
  }
  Number a{"a", 1234}, b{"b", 0.1234F}, c{"c", 43.21F};
  ConfigurableComposite d{"d"}, e{"e"};
  Number g1{"g", 0.11F}, g2{"g", 0.22F}, g3{"g", 0.33F}, f{"f", 6.5}, GG{"GG", 1};
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
