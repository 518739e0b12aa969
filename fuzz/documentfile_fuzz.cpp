// Any bytes as the stored document: they are put aside as they are, with the document as it was, or taken; and what is
// taken, once it was stored again, is the same from then on. Commands never come back.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static std::ostringstream ignored;
  static const bool silent = std::cout.rdbuf(ignored.rdbuf()) != nullptr;
  Require(silent);
  ignored.str("");
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  const DocumentFile file(kPath);
  if (bytes.find('{') != std::string::npos) return 0;  // a description would change what all documents can choose from
  DocMoorlog document, second, third;
  document.moorlog.cfg.head.set("before");
  const std::string before = TextOf(document);

  std::ofstream(kPath, std::ios::binary) << bytes;
  file.Load(document);
  Require(!document.has_changed() && !document.moorlog.cmd.reboot.get());
  if (access(kPath.c_str(), F_OK) != 0) {
    Require(BytesOf(kAside) == bytes && TextOf(document) == before);
    unlink(kAside.c_str());
    return 0;
  }
  file.Save(document);
  file.Load(second);
  Require(access(kPath.c_str(), F_OK) == 0);
  file.Save(second);
  const std::string stored = BytesOf(kPath);
  file.Load(third);
  Require(access(kPath.c_str(), F_OK) == 0);
  file.Save(third);
  Require(BytesOf(kPath) == stored);
  unlink(kPath.c_str());
  return 0;
}
