#include "station/documentfile.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <utility>

#include "runtime/filesystem.h"

namespace {

std::string TextOf(const DocMoorlog& document) {
  std::ostringstream text;
  document.configuration(text);
  return text.str();
}

// Of the moment only.
void Forget(DocMoorlog& document) {
  document.moorlog.cmd.set_to_default();
  document.moorlog.cfg.clock.time.set_to_default();
  document.moorlog.cfg.clock.date.set_to_default();
}

// From the first tag to the last end tag, and text throughout: a power cut may leave zeros. What is refused in it
// stands in the answers.
bool Apply(const std::string& text, DocMoorlog& document, std::ostream& answers) {
  std::istringstream in(text);
  try {
    document.configure(in, answers);
  } catch (const std::exception&) {  // an address that is none
    return false;
  }
  const size_t end = text.find_last_not_of(" \t\r\n");
  return in && text.find('\0') == std::string::npos && end != std::string::npos &&
         std::string_view(text).substr(0, end + 1).ends_with("</" + document.get_name() + '>');
}

}  // namespace

void Copy(const DocMoorlog& from, DocMoorlog& to) {
  std::istringstream text(TextOf(from));
  std::ostringstream ignored;
  to.configure(text, ignored);
}

// A zone that the system no longer has, after an update, damages nothing.
void DocumentFile::Load(DocMoorlog& document) {
  if (IsRegularFile(_path)) {
    std::ifstream file(_path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    DocMoorlog trial;  // so that half of a damaged one changes nothing
    trial.moorlog.cfg.clock.zone._set_read_only(true);
    std::ostringstream damages, refused;
    if (Apply(text, trial, damages) && damages.str().empty()) {
      Configurable::set_compact(refused, true);
      Apply(text, document, refused);
      if (!refused.str().empty()) std::cout << "ERROR: " << _path << ": " << refused.str() << std::endl;
      _stored = text;
    } else {
      const std::string aside = _path + ".damaged";
      RenameFile(_path, aside);
      std::cout << "ERROR: " << _path << " is damaged; it is now " << aside << std::endl;
    }
  }
  Forget(document);
  document._set_changed(false);
}

void DocumentFile::Save(const DocMoorlog& document) {
  DocMoorlog copy;
  Copy(document, copy);
  Forget(copy);
  std::string text = TextOf(copy);
  if (text == _stored) return;
  ReplaceFile(_path, text);
  _stored = std::move(text);
}
