// Lists whose children are made by the incoming document.

#pragma once

#include <string>

#include "config/configurable.h"

// A composite that owns its children. The tag of an incoming child names the new item; any name is taken. The first
// child element of a pass replaces the whole list; an element with queries only leaves it alone. An item that fails to
// read, or throws, is left out, and the rest of the list stands. By default the list is empty.
class ConfigurableCompositeDynamicBase : public ConfigurableComposite {
 public:
  using ConfigurableComposite::ConfigurableComposite;
  ~ConfigurableCompositeDynamicBase() override;

  // Takes the flags, and unless both lists are the same already, the items. Marks a change only in the latter case.
  ConfigurableCompositeDynamicBase& operator=(const ConfigurableCompositeDynamicBase& other);

  // Takes ownership. In a unique list, equal items go first. Marks a change.
  void add(Configurable& item) override;

  virtual Configurable* new_item(const std::string& name) = 0;  // the caller owns it
  virtual void copy_item(Configurable& to, const Configurable& from) = 0;
  virtual bool is_same(const Configurable& one, const Configurable& other) const = 0;

  void set_unique(bool unique) { _unique = unique; }

  Configurable* find(const Configurable& like) const;  // null when there is no equal item
  void remove(const Configurable& like);               // every equal item; marks no change
  void clear();                                        // marks a change when there was an item
  bool _is_composite_same(const ConfigurableCompositeDynamicBase& other) const;

  void set_to_default() override { clear(); }
  bool _do_configure(XMLParser& parser, XMLWriter& writer) override;
  bool _do_configure_start(const std::string& name, XMLParser& parser, XMLWriter& writer) override;
  void _write_changes(XMLWriter& writer) const override;  // the whole list

 protected:
  static void _copy_flags(Configurable& to, const Configurable& from) { to._flags = from._flags; }

 private:
  bool _reset_on_first = false;  // no child element has come yet in this pass
  bool _unique = false;
};

// A list of T. T is made from its tag; its operator= takes another's values, and its operator== says whether
// two are the same item.
template <typename T>
class ConfigurableCompositeDynamic : public ConfigurableCompositeDynamicBase {
 public:
  using ConfigurableCompositeDynamicBase::ConfigurableCompositeDynamicBase;

  ConfigurableCompositeDynamic& operator=(const ConfigurableCompositeDynamic& other) {
    ConfigurableCompositeDynamicBase::operator=(other);
    return *this;
  }

  Configurable* new_item(const std::string& name) override { return new T(name); }

  void copy_item(Configurable& to, const Configurable& from) override {
    _copy_flags(to, from);
    static_cast<T&>(to) = static_cast<const T&>(from);
  }

  bool is_same(const Configurable& one, const Configurable& other) const override {
    return static_cast<const T&>(one) == static_cast<const T&>(other);
  }
};
