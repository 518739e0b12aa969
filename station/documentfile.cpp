#include "station/documentfile.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "runtime/filesystem.h"

namespace {

std::string TextOf(const DocMoorlog& document) {
  std::ostringstream text;
  document.configuration(text);
  return text.str();
}

// From the first tag to the last end tag, with nothing in it that is refused.
bool Apply(const std::string& text, DocMoorlog& document) {
  std::istringstream in(text);
  std::ostringstream answers;
  try {
    document.configure(in, answers);
  } catch (const std::exception&) {  // an address that is none
    return false;
  }
  const size_t end = text.find_last_not_of(" \t\r\n");
  return in && answers.str().empty() && end != std::string::npos &&
         std::string_view(text).substr(0, end + 1).ends_with("</" + document.get_name() + '>');
}

}  // namespace

void DocumentFile::Load(DocMoorlog& document) const {
  if (IsRegularFile(_path)) {
    std::ifstream file(_path, std::ios::binary);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    DocMoorlog trial;  // so that half of a damaged one changes nothing
    if (Apply(text, trial)) {
      Apply(text, document);
    } else {
      const std::string aside = _path + ".damaged";
      RenameFile(_path, aside);
      std::cout << "ERROR: " << _path << " is damaged; it is now " << aside << std::endl;
    }
  }
  document.moorlog.cmd.set_to_default();
  document._set_changed(false);
}

void DocumentFile::Save(const DocMoorlog& document) const {
  DocMoorlog copy;
  Apply(TextOf(document), copy);
  copy.moorlog.cmd.set_to_default();
  ReplaceFile(_path, TextOf(copy));
}
