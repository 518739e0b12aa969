#include "station/disk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <iostream>
#include <utility>

#include "runtime/runprogram.h"

Disk::Disk(std::string path, bool board, bool ejected)
    : PollItem(POLLPRI, true),
      _path(std::move(path)),
      _board(board),
      _mounts("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC),
      _ejected(ejected) {
  _Look();
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

bool Disk::IsFull() const {
  struct statvfs info {};
  return _there && statvfs(_path.c_str(), &info) == 0 && info.f_bavail < info.f_blocks / 100;
}

bool Disk::TakesNames() const {
  const std::string name = _path + "/moorlog-room.part";
  const int file = open(name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  if (file < 0) return errno != ENOSPC;
  close(file);
  unlink(name.c_str());
  return true;
}

void Disk::Sync() const {
  try {
    RunProgramAsDaemon("/bin/sync -f " + _path);
  } catch (const std::exception& error) {
    std::cout << "ERROR: " << error.what() << std::endl;
  }
}

void Disk::Eject() {
  _ejected = true;
  _Look();
}

void Disk::Use() {
  _ejected = false;
  _Look();
}

// The poll that tells it takes the event back (proc(5)).
void Disk::HandleError() {
  _Look();
}

void Disk::_Look() {
  const _Mount before = std::exchange(_mount, _Mounted());
  const bool none = _mount == _Mount{}, same = _mount == before;
  if (none) _ejected = false;
  const bool is_there = !none && !_ejected, was_there = std::exchange(_there, _there && is_there && same);
  if (was_there && !_there && _listener != nullptr) _listener->DiskWent();
  if (is_there && !std::exchange(_there, true) && _listener != nullptr) _listener->DiskCame();
}

// Kernels before 5.8 don't tell the root of a mount from another directory: there a disk is on another device than the
// directory above it.
Disk::_Mount Disk::_Mounted() const {
  struct statx here {
  }, above{};
  if (statx(AT_FDCWD, _path.c_str(), 0, STATX_TYPE | STATX_MNT_ID, &here) != 0 || !S_ISDIR(here.stx_mode)) return {};
  const auto device = [](const struct statx& of) { return makedev(of.stx_dev_major, of.stx_dev_minor); };
  const bool is_root =
      (here.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0
          ? (here.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0
          : statx(AT_FDCWD, (_path + "/..").c_str(), 0, STATX_TYPE, &above) == 0 && device(here) != device(above);
  if (!is_root && !_board) return {};
  return {(here.stx_mask & STATX_MNT_ID) != 0 ? here.stx_mnt_id : 0, device(here)};
}
