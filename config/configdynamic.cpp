#include "config/configdynamic.h"

#include <algorithm>
#include <memory>

ConfigurableCompositeDynamicBase::~ConfigurableCompositeDynamicBase() {
  for (const Configurable* item : _children) delete item;
}

ConfigurableCompositeDynamicBase& ConfigurableCompositeDynamicBase::operator=(
    const ConfigurableCompositeDynamicBase& other) {
  if (this == &other) return *this;
  _flags = other._flags;
  if (_is_composite_same(other)) return *this;
  _delete_all();
  _set_changed(true);
  for (const Configurable* from : other._children) {
    std::unique_ptr<Configurable> item(new_item(from->get_name()));
    copy_item(*item, *from);
    add(*item.release());
  }
  return *this;
}

void ConfigurableCompositeDynamicBase::add(Configurable& item) {
  if (_unique) remove(item);
  ConfigurableComposite::add(item);
  _set_changed(true);
}

Configurable* ConfigurableCompositeDynamicBase::find(const Configurable& like) const {
  const auto found =
      std::find_if(_children.begin(), _children.end(), [&](const Configurable* item) { return is_same(*item, like); });
  return found == _children.end() ? nullptr : *found;
}

void ConfigurableCompositeDynamicBase::remove(const Configurable& like) {
  // Taken out first and deleted afterwards: `like` may be one of them.
  Children same;
  for (auto item = _children.begin(); item != _children.end();) {
    const auto next = std::next(item);
    if (is_same(**item, like)) same.splice(same.end(), _children, item);
    item = next;
  }
  for (const Configurable* item : same) delete item;
}

void ConfigurableCompositeDynamicBase::clear() {
  _delete_all();
}

bool ConfigurableCompositeDynamicBase::_is_composite_same(const ConfigurableCompositeDynamicBase& other) const {
  return std::equal(_children.begin(), _children.end(), other._children.begin(), other._children.end(),
                    [this](const Configurable* one, const Configurable* two) { return is_same(*one, *two); });
}

bool ConfigurableCompositeDynamicBase::_do_configure(XMLParser& parser, XMLWriter& writer) {
  _reset_on_first = true;
  return ConfigurableComposite::_do_configure(parser, writer);
}

bool ConfigurableCompositeDynamicBase::_do_configure_start(const std::string& name, XMLParser& parser,
                                                           XMLWriter& writer) {
  if (_reset_on_first) _delete_all();
  _reset_on_first = false;
  Configurable& item = *new_item(name);
  add(item);
  try {
    if (item._do_configure(parser, writer)) return true;
  } catch (...) {
    _delete_back();
    throw;
  }
  _delete_back();
  parser.RecoverFromError();
  return true;
}

void ConfigurableCompositeDynamicBase::_write_changes(XMLWriter& writer) const {
  _write(writer);
}
