// Any bytes, as documents into a tree with one of each kind of thing, beside a plain second form of the tree: the same
// answers and errors, the same values, presences, change marks and counts, and the same bytes left unread.
//
// The first byte chooses: pretty or compact, errors answered or thrown, nothing or everything marked as changed, as it
// is in a new tree, and which form of the tree is compared at the end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <list>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "config/configattributes.h"
#include "config/configbuiltin.h"
#include "config/configdynamic.h"
#include "config/xml_parser.h"
#include "fuzz/translated.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

const std::vector<std::string> kFruits = {"apple", "banana", "<&>"};

// The tree

struct Entry : ConfigurableInteger {
  explicit Entry(const std::string& name) : ConfigurableInteger(name, 0, 0, 9) { add_attribute(unit); }
  Entry& operator=(const Entry& other) { return set(other.get()), *this; }
  bool operator==(const Entry& other) const { return get() == other.get(); }
  ConfigurableString unit{"u", "m"};
};

struct Tree : ConfigurableComposite {
  Tree() : ConfigurableComposite("L") {
    add(text), add(number), add(fruit), add(section), add(fixed), add(sealed), add(raw), add(list);
    section.add(same[0]), section.add(same[1]), section.add(locked), section.add(same[2]);
    number.add_attribute(pitch), number.add_attribute(sticky);
    section.add_attribute(word);
    same[1]._set_enabled(false), sticky._set_enabled(false);
    fixed._set_read_only(true), raw._set_raw(true), locked._set_locked(true);
    sealed._set_read_only(true), sealed._set_locked(true);
  }
  ConfigurableString text{"a", "x"}, fixed{"f", "f"}, raw{"r", "'"}, locked{"k", ""}, word{"w", "v"}, sealed{"b", "b"};
  ConfigurableInteger number{"n", 5, 0, 9}, pitch{"p", 3, -9, 9};
  ConfigurableMultipleChoice fruit{"c", kFruits, 0};
  Configurable sticky{"s"};
  ConfigurableComposite section{"d"};
  ConfigurableInteger same[3] = {{"g", 1, 0, 9}, {"g", 2, 0, 9}, {"g", 3, 0, 9}};
  ConfigurableCompositeDynamic<Entry> list{"l"};
};

// Its second form

enum class Kind { kFlag, kText, kNumber, kFruit, kSection, kList };

struct Node {
  Kind kind;
  std::string name, value, description;
  std::list<Node> children = {};
  std::vector<Node> attributes = {};
  bool enabled = true, fixed = false, raw = false, locked = false;
  int least = 0;
  bool changed = true, attributes_changed = true, prepared = false, reset = false;
  int count = 0, attributes_count = 0;
  Node* parent = nullptr;
  Node* owner = nullptr;  // of an attribute
};

Node NumberNode(const std::string& name, int value, int least = 0) {
  const std::string number = std::to_string(value);
  Node node{Kind::kNumber, name, number, "integer:" + number + ";" + std::to_string(least) + "...9"};
  node.least = least;
  return node;
}

Node EntryNode(const std::string& name) {
  Node entry = NumberNode(name, 0);
  entry.attributes = {{Kind::kText, "u", "m", "string:m"}};
  return entry;
}

void Link(Node& node) {
  for (Node& attribute : node.attributes) attribute.owner = &node;
  for (Node& child : node.children) child.parent = &node, Link(child);
}

Node TreeNode() {
  Node number = NumberNode("n", 5), section{Kind::kSection, "d", "", ""};
  number.attributes = {NumberNode("p", 3, -9), {Kind::kFlag, "s", "", ""}};
  number.attributes[1].enabled = false;
  section.attributes = {{Kind::kText, "w", "v", "string:v"}};
  Node disabled = NumberNode("g", 2), locked{Kind::kText, "k", "", "string"};
  disabled.enabled = false;
  locked.locked = true;
  section.children = {NumberNode("g", 1), disabled, locked, NumberNode("g", 3)};
  Node fixed{Kind::kText, "f", "f", "string:f"}, raw{Kind::kText, "r", "'", "string:'"};
  Node sealed{Kind::kText, "b", "b", "string:b"};
  fixed.fixed = sealed.fixed = sealed.locked = true;
  raw.raw = true;
  Node root{Kind::kSection, "L", "", ""};
  root.children = {{Kind::kText, "a", "x", "string:x"},
                   number,
                   {Kind::kFruit, "c", "apple", "apple|banana|<&>"},
                   section,
                   fixed,
                   sealed,
                   raw,
                   {Kind::kList, "l", "", ""}};
  return root;
}

void MarkChanged(Node& node) {
  node.changed = true;
  ++node.count;
  if (node.owner != nullptr) {
    node.owner->attributes_changed = true;
    ++node.owner->attributes_count;
    MarkChanged(*node.owner);
  }
  if (node.parent != nullptr) MarkChanged(*node.parent);
}

void ClearChanged(Node& node) {
  node.changed = node.attributes_changed = false;
  for (Node& attribute : node.attributes) attribute.changed = false;
  for (Node& child : node.children) ClearChanged(child);
}

// What is written, piece by piece: a start tag is closed by whatever comes next.
class Page {
 public:
  explicit Page(bool pretty) : _pretty(pretty) {}

  const std::string& str() const { return _text; }

  void Start(const std::string& name) {
    _close_tag();
    _line();
    _text += "<" + name;
    _in_tag = _blank = _childless = true;
    ++_depth;
  }
  void Attribute(const std::string& text) {
    _text += (_blank ? " " : "") + text;
    _blank = true;
  }
  void Text(const std::string& text) {
    if (text.empty()) return;
    _close_tag();
    _text += (_blank ? " " : "") + text;
    _blank = true;
  }
  void End(const std::string& name) {
    --_depth;
    if (!_in_tag && !_childless) _line();
    _text += _in_tag ? "/>" : "</" + name + ">";
    _in_tag = _blank = _childless = false;
  }

 private:
  void _close_tag() {
    if (!_in_tag) return;
    _text += '>';
    _in_tag = _blank = false;
  }
  void _line() {
    if (_pretty) _text += '\n' + std::string(static_cast<std::size_t>(_depth), '\t');
  }

  const bool _pretty;
  std::string _text;
  int _depth = 0;
  bool _in_tag = false, _blank = false, _childless = false;
};

enum class Form { kWhole, kChanges, kDescription };

class Plain {
 public:
  Plain(Node& root, bool pretty, bool throws, std::istream& in)
      : _root(root), _throws(throws), _parser(in), _page(pretty) {}

  const std::string& Answers() const { return _page.str(); }

  // False when the document failed.
  bool Configure() {
    for (;;) switch (_parser.GetNextToken()) {
        case XMLParser::START_ELEMENT:
          if (_parser.GetTokenString() == _root.name) return _element(_root);
          return _error(_root.name, "Invalid start element: " + _parser.GetTokenString());
        case XMLParser::END_DOC:
          return true;
        case XMLParser::ERROR:
          return false;
        case XMLParser::STRING:
          _handle(_root, _parser.GetTokenString(), true);
          break;
        default:
          break;
      }
  }

  void WriteInContext(const Node& node, Form form) {
    if (form == Form::kChanges && !node.changed) return;
    std::vector<const Node*> ancestors;
    for (const Node* at = node.parent; at != nullptr; at = at->parent) ancestors.push_back(at);
    for (auto at = ancestors.rbegin(); at != ancestors.rend(); ++at) _page.Start((*at)->name);
    _write_element(node, form);
    for (const Node* at : ancestors) _page.End(at->name);
  }

 private:
  bool _error(const std::string& name, const std::string& message) {
    if (_throws) throw Configurable::Error("XML error in item \"" + name + "\": " + message);
    _page.Start("Error");
    _page.Attribute("Param=\"" + Translated(name) + "\"");
    _page.Text(Translated(message));
    _page.End("Error");
    return false;
  }

  bool _element(Node& node) {
    node.prepared = false;
    node.reset = true;
    for (bool good = true; good;) {
      const auto token = _parser.GetNextToken();
      const std::string name = _parser.GetTokenString();
      if (token == XMLParser::END_DOC) return true;
      if (token == XMLParser::ERROR) return false;
      if (token == XMLParser::END_ELEMENT)
        return name == node.name || _error(node.name, "Invalid End Element: " + name);
      if (token == XMLParser::STRING) good = _handle(node, name, false);
      if (token == XMLParser::START_ELEMENT) good = _child(node, name);
      if (token == XMLParser::ATTRIBUTE || token == XMLParser::ATTRIBUTE_VALUE_PAIR) {
        const bool pair = token == XMLParser::ATTRIBUTE_VALUE_PAIR;
        good = node.attributes.empty() ? _error(node.name, "This item has no attributes")
               : pair                  ? _handle_attribute(node, &name, _parser.GetTokenValue())
                                       : _handle_attribute(node, nullptr, name);
      }
    }
    return false;
  }

  bool _child(Node& node, const std::string& name) {
    if (node.kind == Kind::kList) {
      if (node.reset && !node.children.empty()) {
        node.children.clear();
        MarkChanged(node);
      }
      node.reset = false;
      node.children.push_back(EntryNode(name));
      Link(node);
      MarkChanged(node);
      try {
        if (_element(node.children.back())) return true;
      } catch (...) {
        node.children.pop_back();
        throw;
      }
      node.children.pop_back();
      _parser.RecoverFromError();
      return true;
    }
    if (node.kind != Kind::kSection) {
      _error(node.name, "Invalid configuration tag: " + name);
      _parser.RecoverFromError();  // its end tag is not the item's
      return false;
    }
    const auto start = _parser.GetPosition();
    bool known = false;
    for (Node& child : node.children) {
      if (child.name != name) continue;
      known = true;
      _parser.SetPosition(start);
      if (!child.enabled || !_element(child)) _parser.RecoverFromError();
    }
    if (!known) _parser.RecoverFromError();
    return true;
  }

  bool _handle(Node& node, const std::string& text, bool before_root) {
    XMLQueryStringParser pieces(text);
    for (;;) {
      const auto kind = pieces.GetNextToken();
      const std::string piece = pieces.GetTokenString();
      if (kind == XMLQueryStringParser::END_STRING) return true;
      if (kind == XMLQueryStringParser::ERROR) _error(node.name, "Invalid query: " + piece);
      if (kind == XMLQueryStringParser::STRING && !before_root && !_read(node, piece)) return false;
      if (kind == XMLQueryStringParser::DOCTYPE && !before_root) _check_lock(node);
      const auto form = _form(kind);
      if (!form) continue;
      if (_in_context(kind))
        WriteInContext(node, *form);
      else if (!before_root)
        _write_body(node, *form);
      else if (*form != Form::kChanges || node.changed)
        _write_element(node, *form);
    }
  }

  bool _handle_attribute(Node& node, const std::string* name, const std::string& text) {
    XMLQueryStringParser pieces(text);
    for (;;) {
      const auto kind = pieces.GetNextToken();
      const std::string piece = pieces.GetTokenString();
      const auto found = std::find_if(node.attributes.begin(), node.attributes.end(), [&](const Node& attribute) {
        return attribute.name == (name != nullptr ? *name : piece);
      });
      Node* const attribute = found == node.attributes.end() ? nullptr : &*found;
      if (kind == XMLQueryStringParser::END_STRING) return true;
      if (kind == XMLQueryStringParser::ERROR) _error("attr", "Invalid query: " + piece);
      if (kind == XMLQueryStringParser::STRING && attribute != nullptr) {
        if (!node.prepared) _prepare(node);
        if (!std::exchange(attribute->enabled, true)) MarkChanged(*attribute);
        if (name != nullptr && !_read(*attribute, piece)) return false;
      }
      if (kind == XMLQueryStringParser::DOCTYPE && attribute != nullptr && name != nullptr) _check_lock(*attribute);
      const auto form = _form(kind);
      if (!form) continue;
      if (_in_context(kind))
        WriteInContext(node, *form);
      else if (*form == Form::kChanges && !node.attributes_changed)
        continue;
      else if (name == nullptr)
        _write_attributes(node, *form);
      else if (attribute != nullptr && *form == Form::kDescription)
        _page.Text("{" + Translated(attribute->description) + "}");
      else if (attribute != nullptr)
        _page.Text(!attribute->enabled        ? "&disabled;"
                   : attribute->value.empty() ? "&enabled;"
                                              : Translated(attribute->value));
    }
  }

  static std::optional<Form> _form(XMLQueryStringParser::QueryTokenKind kind) {
    if (kind > XMLQueryStringParser::QUERY_DOCTYPE_CONTEXT) return {};
    return static_cast<Form>(kind / 2);
  }
  static bool _in_context(XMLQueryStringParser::QueryTokenKind kind) { return kind % 2 == 1; }

  void _check_lock(const Node& node) {
    if (node.locked) _error(node.name, "Configuration is locked");
  }

  void _prepare(Node& node) {
    node.prepared = true;
    for (Node& attribute : node.attributes)
      if (std::exchange(attribute.enabled, false)) MarkChanged(attribute);
  }

  bool _read(Node& node, const std::string& text) {
    _check_lock(node);
    if (node.fixed) return true;
    if (!node.prepared) _prepare(node);
    const std::string whole = text.substr(0, text.find('\0'));
    if (node.kind == Kind::kText) _set(node, whole);
    if (node.kind == Kind::kFruit && std::find(kFruits.begin(), kFruits.end(), whole) != kFruits.end())
      _set(node, whole);
    else if (node.kind == Kind::kFruit)
      _error(node.name, "invalid option: " + whole + "\n");
    if (node.kind == Kind::kNumber) {
      long long number = 0;
      if (!(std::istringstream(text) >> number)) return _error(node.name, "unable to read integer");
      _set(node, std::to_string(std::clamp<long long>(number, node.least, 9)));
    }
    return true;
  }

  static void _set(Node& node, const std::string& value) {
    if (std::exchange(node.value, value) != value) MarkChanged(node);
  }

  void _write_element(const Node& node, Form form) {
    _page.Start(node.name);
    _write_attributes(node, form);
    _write_body(node, form);
    _page.End(node.name);
  }

  void _write_body(const Node& node, Form form) {
    if (node.kind == Kind::kSection || node.kind == Kind::kList) {
      if (node.kind == Kind::kList && form == Form::kChanges) form = Form::kWhole;
      for (const Node& child : node.children)
        if (child.enabled && (child.changed || form != Form::kChanges)) _write_element(child, form);
    } else if (node.changed || form != Form::kChanges) {
      const std::string text = form == Form::kDescription ? "{" + node.description + "}" : node.value;
      _page.Text(node.raw ? text : Translated(text));
    }
  }

  void _write_attributes(const Node& node, Form form) {
    for (const Node& attribute : node.attributes) {
      if (!attribute.enabled && form != Form::kDescription) continue;
      const std::string text = form != Form::kDescription      ? attribute.value
                               : attribute.description.empty() ? ""
                                                               : "{" + attribute.description + "}";
      _page.Attribute(attribute.name + (text.empty() ? "" : "=\"" + Translated(text) + "\""));
    }
  }

  Node& _root;
  const bool _throws;
  XMLParser _parser;
  Page _page;
};

void RequireSame(const Configurable& item, const Node& node) {
  Require(item.get_name() == node.name && item.is_enabled() == node.enabled);
  Require(item.has_changed() == node.changed && item.get_change_count() == node.count);
  if (!node.attributes.empty()) {
    const ConfigurableAttributes& attributes = *item.get_attributes();
    Require(attributes.has_changed() == node.attributes_changed);
    Require(attributes.get_change_count() == node.attributes_count);
    for (const Node& attribute : node.attributes) RequireSame(*attributes._find(attribute.name), attribute);
  }
  if (node.kind != Kind::kSection && node.kind != Kind::kList) return;
  const auto& children = static_cast<const ConfigurableComposite&>(item).children();
  Require(children.size() == node.children.size());
  auto child = children.begin();
  for (const Node& other : node.children) RequireSame(**child++, other);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool pretty = (data[0] & 1) != 0;
  const bool throws = (data[0] & 2) != 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  std::istringstream in(text), in_again(text);
  Tree tree;
  Node node = TreeNode();
  Link(node);
  tree._set_throw_on_error(throws);
  const auto clear = [&] {
    tree._set_changed(false);
    ClearChanged(node);
  };
  if ((data[0] & 4) != 0) clear();

  for (int document = 0; document < 8 && in.peek() != EOF; ++document) {
    Plain plain(node, pretty, throws, in_again);
    std::ostringstream out;
    Configurable::set_compact(out, !pretty);
    std::string thrown, thrown_again;
    bool good = false;
    try {
      tree.configure(in, out);
    } catch (const Configurable::Error& error) {
      thrown = error.what();
    }
    try {
      good = plain.Configure();
    } catch (const Configurable::Error& error) {
      thrown_again = error.what();
    }
    Require(thrown == thrown_again && in.fail() == !good);
    Require(out.str() == plain.Answers());
    Require(in.rdbuf()->in_avail() == in_again.rdbuf()->in_avail());
    RequireSame(tree, node);
    in.clear();
    in_again.clear();
    if (document % 2 == 1) clear();
  }

  std::ostringstream out;
  Configurable::set_compact(out, !pretty);
  const Form form = static_cast<Form>(data[0] / 8 % 3);
  form == Form::kWhole ? tree.configuration(out) : form == Form::kChanges ? tree.changed(out) : tree.doctype(out);
  Plain plain(node, pretty, false, in_again);
  plain.WriteInContext(node, form);
  Require(out.str() == plain.Answers());
  return 0;
}
