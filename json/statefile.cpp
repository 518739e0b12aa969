#include "json/statefile.h"

#include <jsoncpp/json/reader.h>
#include <jsoncpp/json/writer.h>

#include <fstream>
#include <string>

#include "runtime/filesystem.h"

Json::Value ReadStateFile(const std::string& path) {
  // What isn't a regular file could block, or never end.
  if (IsRegularFile(path)) {
    std::ifstream file(path, std::ios::binary);
    Json::Value state;
    try {
      // A failed parse leaves what it had.
      if (Json::parseFromStream(Json::CharReaderBuilder(), file, &state, nullptr) && state.isObject()) return state;
    } catch (const Json::Exception&) {  // nested too deep
    }
  }
  return Json::objectValue;
}

void WriteStateFile(const std::string& path, const Json::Value& state) {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  if (!directory.empty()) MkDirectory(directory);

  Json::StreamWriterBuilder format;
  format["emitUTF8"] = true;  // bytes as they came: names in another encoding are found again
  ReplaceFile(path, Json::writeString(format, state) + '\n');
}
