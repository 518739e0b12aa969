#include "config/configurable.h"

#include <locale>
#include <sstream>
#include <utility>

#include "config/configattributes.h"
#include "config/configvisitor.h"

int Configurable::_xalloc_index = -1;

void ConfigurableListener::read_string(ConfigurableEvent& event, const std::string& text, std::ostream&) {
  read_string(event, text);
}

Configurable::Configurable(std::string name) : _name(std::move(name)) {}

Configurable::~Configurable() = default;

// Reading a document

std::istream& Configurable::configure(std::istream& in, std::ostream& out) {
  bool succeeded = false;
  try {
    XMLParser parser(in);
    XMLWriter writer(out, _is_pretty(out));
    succeeded = _configure_document(parser, writer);
  } catch (...) {
    in.setstate(std::ios_base::failbit);
    throw;
  }
  // A document that ends with the input leaves the failbit behind, and so may a reply to an error that was passed over.
  if (succeeded)
    in.clear(in.rdstate() & ~std::ios_base::failbit);
  else
    in.setstate(std::ios_base::failbit);
  return in;
}

bool Configurable::_configure_document(XMLParser& parser, XMLWriter& writer) {
  if (!_prestart_do_configure(parser, writer)) return false;
  if (parser.GetCurrToken() != XMLParser::START_ELEMENT) return true;
  const std::string name = parser.GetTokenString();
  if (name != _name) {
    _error("Invalid start element: " + name, writer);
    return false;
  }
  return _do_configure(parser, writer);
}

// Takes what stands before the first element. Only queries count there, and they don't fail.
bool Configurable::_prestart_do_configure(XMLParser& parser, XMLWriter& writer) {
  for (;;) switch (parser.GetNextToken()) {
      case XMLParser::START_ELEMENT:
      case XMLParser::END_DOC:
        return true;
      case XMLParser::ERROR:
        return false;
      case XMLParser::STRING:
        _do_configure_string(parser.GetTokenString(), writer, true);
        break;
      default:
        break;
    }
}

// One pass over an element, from behind its name to its end tag. A document that is cut off is accepted as far as it
// went. A syntax error has no reply.
bool Configurable::_do_configure(XMLParser& parser, XMLWriter& writer) {
  _set_flag(prepared_flag, false);
  _notify(&Configurable::read_start_tag_event, &ConfigurableListener::read_start_tag);
  for (bool good = true; good;) {
    switch (parser.GetNextToken()) {
      case XMLParser::ERROR:
        return false;
      case XMLParser::END_DOC:
        return true;
      case XMLParser::END_ELEMENT:
        if (const std::string name = parser.GetTokenString(); name != _name) {
          _error("Invalid End Element: " + name, writer);
          return false;
        }
        _notify(&Configurable::read_end_tag_event, &ConfigurableListener::read_end_tag);
        return true;
      case XMLParser::START_ELEMENT:
        good = _do_configure_start(parser.GetTokenString(), parser, writer);
        break;
      case XMLParser::ATTRIBUTE:
        good = _do_configure_attribute(parser.GetTokenString(), writer);
        break;
      case XMLParser::ATTRIBUTE_VALUE_PAIR:
        good = _do_configure_attribute_pair(parser.GetTokenString(), parser.GetTokenValue(), writer);
        break;
      case XMLParser::STRING: {
        const std::string text = parser.GetTokenString();
        read_string_event(text, writer.stream());
        if (_listener != nullptr) {
          ConfigurableEvent event(this);
          _listener->read_string(event, text, writer.stream());
        }
        good = _do_configure_string(text, writer, false);
        break;
      }
      case XMLParser::START_DOC:
        break;
    }
  }
  return false;
}

// A leaf has no children. The foreign element is skipped here, so that the caller's own recovery ends at this item's
// end tag.
bool Configurable::_do_configure_start(const std::string& name, XMLParser& parser, XMLWriter& writer) {
  _error("Invalid configuration tag: " + name, writer);
  parser.RecoverFromError();
  return false;
}

bool Configurable::_do_configure_attribute(const std::string& name, XMLWriter& writer) {
  if (_attributes) return _attributes->_do_configure_attribute(name, writer);
  _error("This item has no attributes", writer);
  return false;
}

bool Configurable::_do_configure_attribute_pair(const std::string& name, const std::string& value, XMLWriter& writer) {
  if (_attributes) return _attributes->_do_configure_attribute_pair(name, value, writer);
  _error("This item has no attributes", writer);
  return false;
}

bool Configurable::_do_configure_string(const std::string& text, XMLWriter& writer, bool noparent) {
  XMLQueryStringParser parser(text);
  for (;;) switch (parser.GetNextToken()) {
      case XMLQueryStringParser::QUERY:
        noparent ? _write_noparent(writer) : _write(writer);
        break;
      case XMLQueryStringParser::QUERY_CONTEXT:
        _write_context(writer);
        break;
      case XMLQueryStringParser::QUERY_CHANGES:
        noparent ? _write_changes_noparent(writer) : _write_changes(writer);
        break;
      case XMLQueryStringParser::QUERY_CHANGES_CONTEXT:
        _write_changes_context(writer);
        break;
      case XMLQueryStringParser::QUERY_DOCTYPE:
        noparent ? _write_doctype_noparent(writer) : _write_doctype(writer);
        break;
      case XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT:
        _write_doctype_context(writer);
        break;
      case XMLQueryStringParser::STRING:
        if (!noparent && !_read(parser.GetTokenString(), writer)) return false;
        break;
      case XMLQueryStringParser::DOCTYPE:
        if (!noparent && !_read_doctype(parser.GetTokenString(), writer)) return false;
        break;
      case XMLQueryStringParser::ERROR:
        _error("Invalid query: " + parser.GetTokenString(), writer);
        break;
      case XMLQueryStringParser::START_STRING:
        break;
      case XMLQueryStringParser::END_STRING:
        return true;
    }
}

// The first value or attribute that a pass sets drops every attribute that the pass doesn't name again.
void Configurable::_prepare_to_read() {
  _set_flag(prepared_flag, true);
  if (_attributes) _attributes->_prepare_to_read();
}

bool Configurable::_read(const std::string& text, XMLWriter& writer) {
  _report_lock(writer);
  if (_has(read_only_flag)) return true;
  if (!_has(prepared_flag)) _prepare_to_read();
  return _read_with(&Configurable::read, text, writer);
}

bool Configurable::_read_doctype(const std::string& text, XMLWriter& writer) {
  _report_lock(writer);
  if (_has(read_only_flag)) return true;
  return _read_with(&Configurable::read_doctype, text, writer);
}

// A lock lets the value through, unless errors are thrown; that is meant.
void Configurable::_report_lock(XMLWriter& writer) const {
  if (_has(locked_flag)) _error("Configuration is locked", writer);
}

bool Configurable::_read_with(std::istream& (Configurable::*reader)(std::istream&, std::ostream&),
                              const std::string& text, XMLWriter& writer) {
  std::istringstream in(text);
  in.imbue(std::locale::classic());
  std::ostringstream errors;
  errors.imbue(std::locale::classic());
  (this->*reader)(in, errors);
  if (const std::string message = errors.str(); !message.empty()) _error(message, writer);
  return !in.fail();
}

void Configurable::_error(const std::string& message, XMLWriter& writer) const {
  if (_has(throw_flag)) throw Error("XML error in item \"" + _name + "\": " + message);
  writer.WriteStartElement("Error");
  writer.WriteAttributeValuePair("Param", _name);
  writer.write_string(message, true);
  writer.WriteEndElement("Error");
}

// Values that do nothing: what an item without a value answers

void Configurable::set_to_default() {}
std::istream& Configurable::read(std::istream& in, std::ostream&) {
  return in;
}
std::ostream& Configurable::write(std::ostream& out) const {
  return out;
}
std::istream& Configurable::read_doctype(std::istream& in, std::ostream&) {
  return in;
}
std::ostream& Configurable::write_doctype(std::ostream& out) const {
  return out;
}

// Flags and events

void Configurable::_set_changed(bool changed) {
  _set_flag(changed_flag, changed);
  if (changed) {
    ++_change_count;
    _notify(&Configurable::changed_event, &ConfigurableListener::changed);
    if (_parent != nullptr) _parent->_set_changed(true);
  } else if (_attributes) {
    _attributes->_set_changed(false);
  }
}

void Configurable::_set_locked(bool locked) {
  _set_flag(locked_flag, locked);
  if (_attributes) _attributes->_set_locked(locked);
}

void Configurable::_set_throw_on_error(bool throws) {
  _set_flag(throw_flag, throws);
  if (_attributes) _attributes->_set_throw_on_error(throws);
}

void Configurable::add_attribute(Configurable& attribute) {
  if (!_attributes) _attributes = std::make_unique<ConfigurableAttributes>(*this);
  _attributes->add(attribute);
}

void Configurable::_notify(void (Configurable::*hook)(), void (ConfigurableListener::*operation)(ConfigurableEvent&)) {
  (this->*hook)();
  if (_listener == nullptr) return;
  ConfigurableEvent event(this);
  (_listener->*operation)(event);
}

// Writing is const for those who call it, and the hooks are not: an item may count or log what was written. The one
// place where the two meet.
void Configurable::_notify_written(void (Configurable::*hook)(),
                                   void (ConfigurableListener::*operation)(ConfigurableEvent&)) const {
  const_cast<Configurable*>(this)->_notify(hook, operation);
}

void Configurable::do_accept(ConfigurableVisitor& visitor) {
  visitor.VisitConfigurable(*this);
}

void Configurable::do_accept_attributes(ConfigurableVisitor& visitor) {
  if (_attributes) _attributes->accept(visitor);
}

// Writing

void Configurable::set_compact(std::ios_base& stream, bool compact) {
  if (_xalloc_index < 0) _xalloc_index = std::ios_base::xalloc();
  long& word = stream.iword(_xalloc_index);
  word = compact ? word | 1 : word & ~1L;
}

bool Configurable::_is_pretty(std::ios_base& stream) {
  if (_xalloc_index < 0) _xalloc_index = std::ios_base::xalloc();
  return (stream.iword(_xalloc_index) & 1) == 0;
}

std::ostream& Configurable::configuration(std::ostream& out) const {
  return _answer(out, &Configurable::_write_context);
}

std::ostream& Configurable::configuration_noparent(std::ostream& out) const {
  return _answer(out, &Configurable::_write_noparent);
}

std::ostream& Configurable::changed(std::ostream& out) const {
  return has_changed() ? _answer(out, &Configurable::_write_changes_context) : out;
}

std::ostream& Configurable::doctype(std::ostream& out) const {
  return _answer(out, &Configurable::_write_doctype_context);
}

std::ostream& Configurable::build_query(std::ostream& out) const {
  return _answer(out, &Configurable::_write_query);
}

std::ostream& Configurable::_answer(std::ostream& out, Writer answer) const {
  XMLWriter writer(out, _is_pretty(out));
  (this->*answer)(writer);
  return out;
}

void Configurable::_write_query(XMLWriter& writer) const {
  _write_header(writer);
  writer.write_string("&query;", true);
  _write_footer(writer);
}

bool Configurable::_text_of(ValueWriter value, std::string& text) const {
  std::ostringstream out;
  out.imbue(std::locale::classic());
  (this->*value)(out);
  const bool good = !out.fail();
  text = std::move(out).str();
  return good;
}

void Configurable::_write(XMLWriter& writer) const {
  std::string text;
  _text_of(&Configurable::write, text);
  writer.write_string(text, !_has(raw_flag));
}

void Configurable::_write_doctype(XMLWriter& writer) const {
  std::string text;
  _text_of(&Configurable::write_doctype, text);
  writer.write_string("{" + text + "}", !_has(raw_flag));
}

void Configurable::_write_changes(XMLWriter& writer) const {
  if (has_changed()) _write(writer);
}

void Configurable::_write_context(XMLWriter& writer) const {
  _write_in_context(writer, &Configurable::_write_attr, &Configurable::_write);
}

void Configurable::_write_changes_context(XMLWriter& writer) const {
  if (has_changed()) _write_in_context(writer, &Configurable::_write_attr, &Configurable::_write_changes);
}

void Configurable::_write_doctype_context(XMLWriter& writer) const {
  _write_in_context(writer, &Configurable::_write_attr_doctype, &Configurable::_write_doctype);
}

void Configurable::_write_noparent(XMLWriter& writer) const {
  _write_element(writer, &Configurable::_write_attr, &Configurable::_write);
}

void Configurable::_write_changes_noparent(XMLWriter& writer) const {
  if (has_changed()) _write_element(writer, &Configurable::_write_attr, &Configurable::_write_changes);
}

// Fires no events, unlike all others.
void Configurable::_write_doctype_noparent(XMLWriter& writer) const {
  writer.WriteStartElement(_name);
  _write_attr_doctype(writer);
  _write_doctype(writer);
  writer.WriteEndElement(_name);
}

void Configurable::_write_in_context(XMLWriter& writer, Writer attributes, Writer body) const {
  if (_parent != nullptr) _parent->_write_header(writer);
  _write_element(writer, attributes, body);
  if (_parent != nullptr) _parent->_write_footer(writer);
}

void Configurable::_write_element(XMLWriter& writer, Writer attributes, Writer body) const {
  _write_start_element(writer);
  (this->*attributes)(writer);
  (this->*body)(writer);
  _write_end_element(writer);
}

// The start tags from the root down to this item, without attributes.
void Configurable::_write_header(XMLWriter& writer) const {
  if (_parent != nullptr) _parent->_write_header(writer);
  _write_start_element(writer);
}

void Configurable::_write_footer(XMLWriter& writer) const {
  _write_end_element(writer);
  if (_parent != nullptr) _parent->_write_footer(writer);
}

void Configurable::_write_start_element(XMLWriter& writer) const {
  writer.WriteStartElement(_name);
  _notify_written(&Configurable::wrote_start_tag_event, &ConfigurableListener::wrote_start_tag);
}

void Configurable::_write_end_element(XMLWriter& writer) const {
  writer.WriteEndElement(_name);
  _notify_written(&Configurable::wrote_end_tag_event, &ConfigurableListener::wrote_end_tag);
}

void Configurable::_write_attr(XMLWriter& writer) const {
  if (_attributes) _attributes->_write_present(writer);
}

void Configurable::_write_attr_doctype(XMLWriter& writer) const {
  if (_attributes) _attributes->_write_descriptions(writer);
}
