#include "json/statefile.h"

#include <fcntl.h>
#include <jsoncpp/json/reader.h>
#include <jsoncpp/json/writer.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <ostream>

#include "runtime/errnoexcept.h"
#include "runtime/filesystem.h"
#include "runtime/streamfilebase.h"

namespace {

StreamFileBase Create(const std::string& path) {
  const int fileno = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fileno < 0) throw ErrnoError("Unable to open: " + path);
  return StreamFileBase(fileno);
}

}  // namespace

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

  const std::string beside = path + ".new";
  StreamFileBase file = Create(beside);
  Json::StreamWriterBuilder format;
  format["emitUTF8"] = true;  // bytes as they came: names in another encoding are found again
  const std::unique_ptr<Json::StreamWriter> writer(format.newStreamWriter());
  writer->write(state, &file.OStream());
  file.OStream() << '\n' << std::flush;
  if (!file.OStream().good()) throw std::runtime_error("Unable to write: " + beside);
  if (fsync(file.Fileno()) != 0) throw ErrnoError("Unable to sync: " + beside);
  file._close();
  RenameFile(beside, path);

  // The new name too has to reach the disk.
  SyncToDisk(directory.empty() ? "." : directory);
}
