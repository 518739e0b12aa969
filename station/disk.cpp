#include "station/disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <utility>

Disk::Disk(std::string path, bool board)
    : PollItem(POLLPRI, false),
      _path(std::move(path)),
      _board(board),
      _mounts("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC) {
  Register();
  _device = _MountedDevice();
  _there = _device != 0;
}

Disk::Listener* Disk::RegisterListener(Listener* listener) {
  return std::exchange(_listener, listener);
}

uint64_t Disk::Available() const {
  struct statvfs info {};
  return _there && statvfs(_path.c_str(), &info) == 0 ? uint64_t{info.f_bavail} * info.f_frsize : 0;
}

int Disk::Used() const {
  struct statvfs info {};
  if (!_there || statvfs(_path.c_str(), &info) != 0 || info.f_blocks == 0) return 0;
  return static_cast<int>(uint64_t{info.f_blocks - info.f_bfree} * 100 / info.f_blocks);
}

void Disk::Eject() {
  _ejected = true;
  _Look();
}

void Disk::Use() {
  _ejected = false;
  _Look();
}

// The event stays until the file is read from its beginning.
void Disk::HandleError() {
  char ignored[4096];
  lseek(_mounts.Fileno(), 0, SEEK_SET);
  while (read(_mounts.Fileno(), ignored, sizeof ignored) > 0) continue;
  _Look();
}

void Disk::_Look() {
  const dev_t device = std::exchange(_device, _MountedDevice());
  if (_device == 0) _ejected = false;
  const bool was_there = _there;
  _there = _device != 0 && !_ejected;
  if (was_there && (!_there || _device != device) && _listener != nullptr) _listener->DiskWent();
  if (_there && (!was_there || _device != device) && _listener != nullptr) _listener->DiskCame();
}

// A mount point is on another device than the directory above it.
dev_t Disk::_MountedDevice() const {
  struct stat here {
  }, above{};
  if (stat(_path.c_str(), &here) != 0 || !S_ISDIR(here.st_mode)) return 0;
  if (_board) return here.st_dev;
  return stat((_path + "/..").c_str(), &above) == 0 && here.st_dev != above.st_dev ? here.st_dev : 0;
}
