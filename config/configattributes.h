// What an element carries in its start tag.

#pragma once

#include <list>
#include <string>

#include "config/configurable.h"

// The attributes of one item, made by its add_attribute and owned by it; the attributes themselves are not owned.
//
// Any item can be an attribute. Its enabled_flag means that it is present on the element; one that writes an empty
// text is a flag, written by its name alone. The first value or attribute that a pass over the element sets makes all
// attributes absent, so that a pass has to name each one that is to stay.
//
// An attribute's name and its value are handled like texts, so that a query may stand for either.
class ConfigurableAttributes : public Configurable {
 public:
  explicit ConfigurableAttributes(Configurable& owner);

  void add(Configurable& attribute);
  Configurable* _find(const std::string& name) const;  // null when there is none of that name

  // The attributes as they stand in a start tag: those that are present with their values, or all with their
  // descriptions.
  void _write_present(XMLWriter& writer) const;
  void _write_descriptions(XMLWriter& writer) const;

  // Walks the attributes only if the visitor's begin operation asks for it.
  void accept(ConfigurableVisitor& visitor);

  void _set_changed(bool changed) override;
  void _set_locked(bool locked) override;
  void _set_throw_on_error(bool throws) override;

  bool _do_configure_attribute(const std::string& name, XMLWriter& writer) override;
  bool _do_configure_attribute_pair(const std::string& name, const std::string& value, XMLWriter& writer) override;
  void _prepare_to_read() override;
  bool _read(const std::string& text, XMLWriter& writer) override;
  void _write(XMLWriter& writer) const override;
  bool _read_doctype(const std::string& text, XMLWriter& writer) override;
  void _write_doctype(XMLWriter& writer) const override;

  // A context query inside a start tag, for a name or a value, answers the whole element with its ancestors.
  void _write_context(XMLWriter& writer) const override;
  void _write_changes_context(XMLWriter& writer) const override;
  void _write_doctype_context(XMLWriter& writer) const override;

 private:
  Configurable& _owner() const { return *get_parent(); }

  std::list<Configurable*> _attributes_in_order;

  bool _pair_mode = false;  // the value of the attribute _pair_name is being handled
  std::string _pair_name;
};
