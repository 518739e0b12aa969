#include "logging/zipper.h"

#include <cstdlib>
#include <cstring>

#include "logging/worker.h"
#include "runtime/filesystem.h"

namespace {

std::string DirectoryOf(const std::string& path) {
  const std::string directory = path.substr(0, path.size() - ExtractFilename(path).size());
  return directory.empty() ? "." : directory;
}

void Pack(const std::string& path) {
  if (!IsRegularFile(path)) return;
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos) return;
  const std::string archive = path.substr(0, dot) + ".zip";
  const int status = std::system(("zip -q -j " + archive + ' ' + path).c_str());
  if (status != 0) {
    PrintLine("Unable to zip " + path + ": " + std::strerror(status));
    return;
  }
  // In this order, or a power cut could take archive and file both.
  SyncToDisk(archive);
  SyncToDisk(DirectoryOf(archive));
  DeleteFile(path);
}

}  // namespace

Zipper::Zipper() {
  _thread = StartWorker(_zipper, this);
}

Zipper::~Zipper() {
  StopWorkerAtEnd(_queue, _thread);
}

void Zipper::Zip(const std::string& path) {
  _queue.push(path);
}

void Zipper::Quit() {
  StopWorker(_queue, _thread);
}

void Zipper::_zipper(Zipper* zipper) {
  ServeQueue(zipper->_queue, [](const std::string& path) {
    try {
      Pack(path);
    } catch (const std::exception& error) {
      PrintLine("ERROR: Unable to zip " + path + ": " + error.what());
    }
  });
}
