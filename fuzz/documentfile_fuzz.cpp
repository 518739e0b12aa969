// Any bytes as the stored document: they are put aside as they are, with the document as it was, or taken. What is
// taken is stored as its text, without commands, and comes back the same, but not when something is missing from its
// end, or stands behind it.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>

#include "bench/silence.h"
#include "station/documentfile.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

const std::string kPath = "/tmp/moorlog-document-" + std::to_string(getpid()) + ".xml", kAside = kPath + ".damaged";

std::string BytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string TextOf(const DocMoorlog& document) {
  std::ostringstream text;
  document.configuration(text);
  return text.str();
}

// Whether the file with these bytes was put aside, which leaves the document as it was.
bool IsPutAside(DocumentFile& file, const std::string& bytes, DocMoorlog& document) {
  const std::string before = TextOf(document);
  std::ofstream(kPath, std::ios::binary) << bytes;
  file.Load(document);
  Require(!document.has_changed() && !document.moorlog.cmd.reboot.get());
  if (access(kPath.c_str(), F_OK) == 0) return false;
  Require(BytesOf(kAside) == bytes && TextOf(document) == before);
  unlink(kAside.c_str());
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Silence silence;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  DocumentFile file(kPath);
  if (bytes.find('{') != std::string::npos) return 0;  // a description would change what all documents can choose from
  DocMoorlog document, again;
  document.moorlog.cfg.head.set("before");
  if (IsPutAside(file, bytes, document)) return 0;
  const std::string text = TextOf(document);
  document.moorlog.cmd.reboot.set(true);
  file.Save(document);
  Require(BytesOf(kPath) == text);
  Require(!IsPutAside(file, text, again) && TextOf(again) == text);
  const size_t cut = std::hash<std::string>()(bytes) % text.rfind('>');
  for (const std::string& damaged : {text.substr(0, cut), text + 'x'}) Require(IsPutAside(file, damaged, again));
  return 0;
}
