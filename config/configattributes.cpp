#include "config/configattributes.h"

#include <algorithm>

#include "config/configvisitor.h"

ConfigurableAttributes::ConfigurableAttributes(Configurable& owner) : Configurable("attr") {
  _parent = &owner;
  _set_flag(throw_flag, owner._has(throw_flag));
}

void ConfigurableAttributes::add(Configurable& attribute) {
  _attributes_in_order.push_back(&attribute);
  attribute._parent = this;
  attribute._set_throw_on_error(_has(throw_flag));
}

Configurable* ConfigurableAttributes::_find(const std::string& name) const {
  const auto found = std::find_if(_attributes_in_order.begin(), _attributes_in_order.end(),
                                  [&name](const Configurable* attribute) { return attribute->get_name() == name; });
  return found == _attributes_in_order.end() ? nullptr : *found;
}

void ConfigurableAttributes::accept(ConfigurableVisitor& visitor) {
  if (visitor.VisitConfigurableAttributesBegin())
    for (Configurable* attribute : _attributes_in_order) {
      attribute->do_accept(visitor);
      attribute->do_accept_attributes(visitor);
    }
  visitor.VisitConfigurableAttributesEnd();
}

void ConfigurableAttributes::_set_changed(bool changed) {
  Configurable::_set_changed(changed);
  if (changed) return;
  for (Configurable* attribute : _attributes_in_order) attribute->_set_changed(false);
}

void ConfigurableAttributes::_set_locked(bool locked) {
  Configurable::_set_locked(locked);
  for (Configurable* attribute : _attributes_in_order) attribute->_set_locked(locked);
}

void ConfigurableAttributes::_set_throw_on_error(bool throws) {
  Configurable::_set_throw_on_error(throws);
  for (Configurable* attribute : _attributes_in_order) attribute->_set_throw_on_error(throws);
}

bool ConfigurableAttributes::_do_configure_attribute(const std::string& name, XMLWriter& writer) {
  return _do_configure_string(name, writer, false);
}

bool ConfigurableAttributes::_do_configure_attribute_pair(const std::string& name, const std::string& value,
                                                          XMLWriter& writer) {
  // As it was, also when something throws, or when a listener sends a document of its own meanwhile.
  struct Restored {
    ConfigurableAttributes& list;
    const bool mode = list._pair_mode;
    std::string name = list._pair_name;
    ~Restored() {
      list._pair_mode = mode;
      list._pair_name.swap(name);
    }
  } restored{*this};
  _pair_mode = true;
  _pair_name = name;
  return _do_configure_string(value, writer, false);
}

void ConfigurableAttributes::_prepare_to_read() {
  for (Configurable* attribute : _attributes_in_order) {
    if (!attribute->is_enabled()) continue;
    attribute->_set_enabled(false);
    attribute->_set_changed(true);
  }
}

// An unknown attribute is no error.
bool ConfigurableAttributes::_read(const std::string& text, XMLWriter& writer) {
  Configurable* const attribute = _find(_pair_mode ? _pair_name : text);
  if (attribute == nullptr) return true;
  if (!_owner()._has(prepared_flag)) _owner()._prepare_to_read();
  if (!attribute->is_enabled()) {
    attribute->_set_enabled(true);
    attribute->_set_changed(true);
  }
  return !_pair_mode || attribute->_read(text, writer);
}

bool ConfigurableAttributes::_read_doctype(const std::string& text, XMLWriter& writer) {
  Configurable* const attribute = _pair_mode ? _find(_pair_name) : nullptr;
  return attribute == nullptr || attribute->_read_doctype(text, writer);
}

// Inside the start tag only the attribute that is being handled answers.
void ConfigurableAttributes::_write(XMLWriter& writer) const {
  if (!_pair_mode) return _write_present(writer);
  const Configurable* const attribute = _find(_pair_name);
  if (attribute == nullptr) return;
  std::string text;
  attribute->_text_of(&Configurable::write, text);
  if (!attribute->is_enabled()) text = "&disabled;";
  writer.write_string(text.empty() ? "&enabled;" : text, true);
}

void ConfigurableAttributes::_write_doctype(XMLWriter& writer) const {
  if (!_pair_mode) return _write_descriptions(writer);
  const Configurable* const attribute = _find(_pair_name);
  if (attribute == nullptr) return;
  std::string text;
  attribute->_text_of(&Configurable::write_doctype, text);
  writer.write_string("{" + text + "}", true);
}

void ConfigurableAttributes::_write_present(XMLWriter& writer) const {
  std::string text;
  for (const Configurable* attribute : _attributes_in_order) {
    if (!attribute->is_enabled() || !attribute->_text_of(&Configurable::write, text)) continue;
    if (text.empty())
      writer.WriteAttribute(attribute->get_name());
    else
      writer.WriteAttributeValuePair(attribute->get_name(), text);
  }
}

void ConfigurableAttributes::_write_descriptions(XMLWriter& writer) const {
  std::string text;
  for (const Configurable* attribute : _attributes_in_order) {
    if (!attribute->_text_of(&Configurable::write_doctype, text)) continue;
    if (text.empty())
      writer.WriteAttribute(attribute->get_name());
    else
      writer.WriteAttributeValuePair(attribute->get_name(), "{" + text + "}");
  }
}

void ConfigurableAttributes::_write_context(XMLWriter& writer) const {
  _owner()._write_context(writer);
}

void ConfigurableAttributes::_write_changes_context(XMLWriter& writer) const {
  _owner()._write_changes_context(writer);
}

void ConfigurableAttributes::_write_doctype_context(XMLWriter& writer) const {
  _owner()._write_doctype_context(writer);
}
