// ConfigurableComposite, which config/configurable.h declares.

#include <algorithm>

#include "config/configurable.h"
#include "config/configvisitor.h"

void ConfigurableComposite::add(Configurable& child) {
  _children.push_back(&child);
  child._parent = this;
  child._set_throw_on_error(_has(throw_flag));
}

void ConfigurableComposite::_add_all(std::initializer_list<Configurable*> children) {
  for (Configurable* child : children) add(*child);
}

Configurable* ConfigurableComposite::lookup(const std::string& name) const {
  const Position found = lookup_first(name);
  return found == _children.end() ? nullptr : *found;
}

ConfigurableComposite::Position ConfigurableComposite::lookup_first(const std::string& name) const {
  return std::find_if(_children.begin(), _children.end(),
                      [&name](const Configurable* child) { return child->get_name() == name; });
}

ConfigurableComposite::Position ConfigurableComposite::lookup_next(Position position, const std::string& name) const {
  if (position == _children.end()) return position;
  return std::find_if(std::next(position), _children.end(),
                      [&name](const Configurable* child) { return child->get_name() == name; });
}

void ConfigurableComposite::set_to_default() {
  for (Configurable* child : _children)
    if (child->is_enabled()) child->set_to_default();
}

void ConfigurableComposite::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurableCompositeBegin(*this);
  for (Configurable* child : _children) {
    child->do_accept(visitor);
    child->do_accept_attributes(visitor);
  }
  visitor.VisitConfigurableCompositeEnd(*this);
}

void ConfigurableComposite::_set_changed(bool changed) {
  Configurable::_set_changed(changed);
  if (changed) return;
  for (Configurable* child : _children) child->_set_changed(false);
}

void ConfigurableComposite::_set_locked(bool locked) {
  Configurable::_set_locked(locked);
  for (Configurable* child : _children) child->_set_locked(locked);
}

void ConfigurableComposite::_set_throw_on_error(bool throws) {
  Configurable::_set_throw_on_error(throws);
  for (Configurable* child : _children) child->_set_throw_on_error(throws);
}

// All children of the name receive the same tokens. Where they start is kept here and not in the parser's mark, for a
// child that has children of its own marks again. An unknown or disabled element is skipped without a word, and a
// child that failed loses the rest of its own element only.
bool ConfigurableComposite::_do_configure_start(const std::string& name, XMLParser& parser, XMLWriter& writer) {
  const XMLParser::Position start = parser.GetPosition();
  Position child = lookup_first(name);
  if (child == _children.end()) parser.RecoverFromError();
  for (; child != _children.end(); child = lookup_next(child, name)) {
    parser.SetPosition(start);
    if (!(*child)->is_enabled() || !(*child)->_do_configure(parser, writer)) parser.RecoverFromError();
  }
  return true;
}

void ConfigurableComposite::_write(XMLWriter& writer) const {
  for (const Configurable* child : _children)
    if (child->is_enabled()) child->_write_noparent(writer);
}

void ConfigurableComposite::_write_doctype(XMLWriter& writer) const {
  for (const Configurable* child : _children)
    if (child->is_enabled()) child->_write_doctype_noparent(writer);
}

void ConfigurableComposite::_write_changes(XMLWriter& writer) const {
  for (const Configurable* child : _children)
    if (child->has_changed() && child->is_enabled()) child->_write_changes_noparent(writer);
}

void ConfigurableComposite::_delete_back() {
  if (_children.empty()) return;
  const Configurable* const last = _children.back();
  _children.pop_back();
  delete last;
}

void ConfigurableComposite::_delete_all() {
  if (_children.empty()) return;
  while (!_children.empty()) _delete_back();
  _set_changed(true);
}
