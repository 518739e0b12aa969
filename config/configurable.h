// The base of every setting, status value and command: a node of a tree that one XML dialect drives both ways.
//
// A document sent to the tree sets values; entities inside it ("&query;" and its relatives) make the tree answer in
// place, on the output stream of the same call. docs/configuration.md shows the dialect with worked documents.
//
// A tree belongs to one thread. Items are members of their sections and never copied. Errors go into the reply as
// `Error` elements, or are thrown as Configurable::Error once _set_throw_on_error(true) was called on the root.

#pragma once

#include <cstdint>
#include <initializer_list>
#include <iosfwd>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>

#include "config/xml_parser.h"
#include "config/xml_writer.h"

class Configurable;
class ConfigurableAttributes;
class ConfigurableVisitor;

// What a listener is told: built on the stack for each notification.
class ConfigurableEvent {
 public:
  explicit ConfigurableEvent(Configurable* item) : source(item) {}
  virtual ~ConfigurableEvent() = default;

  Configurable* source;
};

// Hears of one or more items. Not owned by them; it has to outlive them or be replaced. It may read and set items from
// within its callbacks; it may not destroy the item that calls, nor add to or take from a list that is being read.
class ConfigurableListener {
 public:
  virtual ~ConfigurableListener() = default;

  virtual void changed(ConfigurableEvent&) {}
  virtual void read_start_tag(ConfigurableEvent&) {}
  virtual void read_end_tag(ConfigurableEvent&) {}
  virtual void read_string(ConfigurableEvent&, const std::string& /*text*/) {}
  // The stream is that of the answers. Calls the form without it unless overridden.
  virtual void read_string(ConfigurableEvent& event, const std::string& text, std::ostream& out);
  virtual void wrote_start_tag(ConfigurableEvent&) {}
  virtual void wrote_end_tag(ConfigurableEvent&) {}
};

// One item. By itself it has no value: as an attribute it is a flag, present or absent.
//
// A value item overrides read, write, write_doctype and set_to_default; nothing else is needed for a new kind of leaf.
//
// A new item has changed_flag and enabled_flag set, so that a freshly built tree reports everything as changed until
// _set_changed(false) is called on its root.
class Configurable {
 public:
  // An error in a document, where errors are thrown: the text names the item.
  class Error : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  explicit Configurable(std::string name);
  Configurable(const Configurable&) = delete;
  Configurable& operator=(const Configurable&) = delete;
  virtual ~Configurable();

  // Reads one document, applies it, and writes all answers and error replies. On return the input has its failbit set
  // when the document failed, and clear when it did not. What follows the root's end tag is not read.
  // Throws Error where errors are thrown, and whatever an item's read throws.
  virtual std::istream& configure(std::istream& in, std::ostream& out);

  virtual void set_to_default();

  // The value as text, from and to streams in their default form. What read writes to the error stream becomes the
  // reply; a failbit that it leaves on `in` ends the element.
  virtual std::istream& read(std::istream& in, std::ostream& errors);
  virtual std::ostream& write(std::ostream& out) const;

  // The description of the value. Reading one is for items whose choices come in by document.
  virtual std::istream& read_doctype(std::istream& in, std::ostream& errors);
  virtual std::ostream& write_doctype(std::ostream& out) const;

  virtual void do_accept(ConfigurableVisitor& visitor);
  virtual void do_accept_attributes(ConfigurableVisitor& visitor);

  // Hooks for derived items, each called just before the listener's operation of that name.
  virtual void changed_event() {}
  virtual void read_start_tag_event() {}
  virtual void read_end_tag_event() {}
  virtual void read_string_event(const std::string& /*text*/, std::ostream& /*out*/) {}
  virtual void wrote_start_tag_event() {}
  virtual void wrote_end_tag_event() {}

  // true: marks this item and all its ancestors, and notifies on each, also when they were marked before.
  // false: clears this item, its attributes and everything below; never its ancestors.
  virtual void _set_changed(bool changed);

  // Both reach everything below, enabled or not. A locked item reports each value that a document brings, and takes it
  // all the same unless errors are thrown: the lock only reports.
  virtual void _set_locked(bool locked);
  virtual void _set_throw_on_error(bool throws);

  // The steps of configure and of the writers, for items that refine them. Those that return false have failed: the
  // rest of the element is skipped by whoever called.
  virtual bool _do_configure(XMLParser& parser, XMLWriter& writer);
  virtual bool _do_configure_start(const std::string& name, XMLParser& parser, XMLWriter& writer);
  virtual bool _do_configure_attribute(const std::string& name, XMLWriter& writer);
  virtual bool _do_configure_attribute_pair(const std::string& name, const std::string& value, XMLWriter& writer);
  virtual void _prepare_to_read();
  virtual bool _read(const std::string& text, XMLWriter& writer);
  virtual void _write(XMLWriter& writer) const;
  virtual bool _read_doctype(const std::string& text, XMLWriter& writer);
  virtual void _write_doctype(XMLWriter& writer) const;
  virtual void _write_changes(XMLWriter& writer) const;
  virtual void _write_context(XMLWriter& writer) const;
  virtual void _write_changes_context(XMLWriter& writer) const;
  virtual void _write_doctype_context(XMLWriter& writer) const;

  // Each writes to the stream and returns it. In context: inside the start tags of all ancestors.
  std::ostream& configuration(std::ostream& out) const;           // the item in context
  std::ostream& configuration_noparent(std::ostream& out) const;  // the item alone
  std::ostream& changed(std::ostream& out) const;                 // what has changed, in context; or nothing
  std::ostream& doctype(std::ostream& out) const;                 // the descriptions in context
  std::ostream& build_query(std::ostream& out) const;             // a document that asks for this item

  bool has_changed() const { return _has(changed_flag); }
  bool is_enabled() const { return _has(enabled_flag); }
  bool is_locked() const { return _has(locked_flag); }

  // None of these marks a change.
  void _set_enabled(bool enabled) { _set_flag(enabled_flag, enabled); }
  void _set_raw(bool raw) { _set_flag(raw_flag, raw); }
  void _set_read_only(bool read_only) { _set_flag(read_only_flag, read_only); }

  const std::string& get_name() const { return _name; }
  Configurable* get_parent() const { return _parent; }
  int get_change_count() const { return static_cast<int>(_change_count); }
  ConfigurableAttributes* get_attributes() const { return _attributes.get(); }

  // The attribute is not owned: it is usually a member beside the item, and has to live as long.
  void add_attribute(Configurable& attribute);

  // One listener at most; a further one replaces it.
  void register_configurable_listener(ConfigurableListener& listener) { _listener = &listener; }

  // Whether the public writers answer on this stream without line breaks and tabs.
  static void set_compact(std::ios_base& stream, bool compact);

  bool _do_configure_string(const std::string& text, XMLWriter& writer, bool noparent);
  bool _prestart_do_configure(XMLParser& parser, XMLWriter& writer);
  void _error(const std::string& message, XMLWriter& writer) const;
  void _write_header(XMLWriter& writer) const;
  void _write_footer(XMLWriter& writer) const;
  void _write_start_element(XMLWriter& writer) const;
  void _write_end_element(XMLWriter& writer) const;
  void _write_attr(XMLWriter& writer) const;
  void _write_attr_doctype(XMLWriter& writer) const;
  void _write_noparent(XMLWriter& writer) const;
  void _write_changes_noparent(XMLWriter& writer) const;
  void _write_doctype_noparent(XMLWriter& writer) const;

 protected:
  enum Flag : std::uint8_t {
    changed_flag = 1 << 0,    // differs from what was last acknowledged
    enabled_flag = 1 << 1,    // takes part in writing and configuring; of an attribute: is present
    prepared_flag = 1 << 2,   // _prepare_to_read already ran in this pass over the element
    raw_flag = 1 << 3,        // the text is written without entity translation
    throw_flag = 1 << 4,      // errors throw
    read_only_flag = 1 << 5,  // documents can't set the value; text for it is dropped without a word
    locked_flag = 1 << 6,     // setting from a document is an error
  };

  bool _has(Flag flag) const { return (_flags & flag) != 0; }
  void _set_flag(Flag flag, bool set) { _flags = static_cast<std::uint8_t>(set ? _flags | flag : _flags & ~flag); }

 private:
  friend class ConfigurableAttributes;
  friend class ConfigurableComposite;
  friend class ConfigurableCompositeDynamicBase;

  using ValueWriter = std::ostream& (Configurable::*)(std::ostream&) const;
  using Writer = void (Configurable::*)(XMLWriter&) const;

  bool _configure_document(XMLParser& parser, XMLWriter& writer);
  void _report_lock(XMLWriter& writer) const;
  bool _read_with(std::istream& (Configurable::*reader)(std::istream&, std::ostream&), const std::string& text,
                  XMLWriter& writer);
  // What write or write_doctype puts on a fresh stream in its default form; false when it left that stream failed.
  bool _text_of(ValueWriter value, std::string& text) const;
  std::ostream& _answer(std::ostream& out, Writer answer) const;
  void _write_query(XMLWriter& writer) const;
  void _write_element(XMLWriter& writer, Writer attributes, Writer body) const;
  void _write_in_context(XMLWriter& writer, Writer attributes, Writer body) const;
  void _notify(void (Configurable::*hook)(), void (ConfigurableListener::*operation)(ConfigurableEvent&));
  void _notify_written(void (Configurable::*hook)(), void (ConfigurableListener::*operation)(ConfigurableEvent&)) const;
  static bool _is_pretty(std::ios_base& stream);

  // The word of every stream whose bit 0 means compact output; taken at first use.
  static int _xalloc_index;

  const std::string _name;
  Configurable* _parent = nullptr;
  std::uint8_t _flags = changed_flag | enabled_flag;
  std::uint32_t _change_count = 0;  // one more at every _set_changed(true), never reset
  std::unique_ptr<ConfigurableAttributes> _attributes;
  ConfigurableListener* _listener = nullptr;
};

// An item with children, in the order of add, which is the order of every output. Children are not owned: they are
// usually members of the derived section. Several may bear one name; a document then reaches all of them.
class ConfigurableComposite : public Configurable {
 public:
  using Children = std::list<Configurable*>;
  using Position = Children::const_iterator;

  using Configurable::Configurable;

  // Marks no change. The child has to outlive this item, or this item's last use.
  virtual void add(Configurable& child);

  const Children& children() const { return _children; }

  Configurable* lookup(const std::string& name) const;  // the first child of that name, or null
  Position lookup_first(const std::string& name) const;
  Position lookup_next(Position position, const std::string& name) const;  // behind the position; or the list's end

  // On the enabled children; a disabled child keeps its value.
  void set_to_default() override;
  void do_accept(ConfigurableVisitor& visitor) override;
  void _set_changed(bool changed) override;
  void _set_locked(bool locked) override;
  void _set_throw_on_error(bool throws) override;
  bool _do_configure_start(const std::string& name, XMLParser& parser, XMLWriter& writer) override;
  void _write(XMLWriter& writer) const override;
  void _write_doctype(XMLWriter& writer) const override;
  void _write_changes(XMLWriter& writer) const override;

  // For lists that own their children, never for sections with members: take out and delete the last one, which marks
  // no change, or all of them, which marks one if there were any.
  void _delete_back();
  void _delete_all();

 protected:
  void _add_all(std::initializer_list<Configurable*> children);

  Children _children;
};
