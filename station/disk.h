// The disk that the data goes to: is it there, and of which device?
//
// It is where `path` says when something is mounted there, be it a directory of a disk that is mounted elsewhere as
// well; with `board` a directory of that name will do. The kernel tells of each change of the mounts
// (/proc/self/mountinfo, proc(5)), so nothing is asked in between; but whoever opens a file there asks IsStillThere.
//
// Eject, for somebody who is about to take the disk away: it counts as gone until it has really been away, or until
// Use. Unmounting is the system's business.
//
// Thread: the poll loop's. The listener may call everything here; what it throws leaves the loop.

#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "runtime/pollprocessor.h"
#include "runtime/streamfile.h"

class Disk : public PollItem {
 public:
  // A disk in the place of another one is told as one that went, and isn't there, and one that came.
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void DiskCame() {}
    virtual void DiskWent() {}  // writing to its path would fill the board's own disk
  };

  // `ejected`: what is there at the beginning. Nobody is told of that. Throws ErrnoError where the kernel doesn't tell.
  Disk(std::string path, bool board, bool ejected = false);

  // Not owned, may be null; returns the one it replaces.
  Listener* RegisterListener(Listener* listener);

  const std::string& Path() const { return _path; }
  bool IsThere() const { return _there; }
  // Asks the system: between a change of the mounts and its event a new file would land on the board's own disk.
  bool IsStillThere() const { return _there && _Mounted() == _mount; }
  uint64_t Available() const;  // bytes, for everybody; 0 while it isn't there
  int Used() const;            // percent, cut to whole ones; likewise
  bool IsFull() const;         // less than a hundredth is left to everybody
  bool TakesNames() const;     // tried with a file; a directory of FAT ends at 65,536 of them
  // Has the system write all that it still keeps in memory, without waiting for it.
  void Sync() const;

  void Eject();
  bool IsEjected() const { return _ejected; }
  void Use();  // again

  int Fileno() const override { return _mounts.Fileno(); }
  void HandleError() override;  // the mounts have changed
  const char* Description() const override { return "Disk"; }

 private:
  void _Look();
  // Which mount it is, and of which device; zeros: none.
  struct _Mount {
    uint64_t id;
    dev_t device;
    bool operator==(const _Mount&) const = default;
  };
  _Mount _Mounted() const;

  const std::string _path;
  const bool _board;
  StreamFile _mounts;
  Listener* _listener = nullptr;
  _Mount _mount{};  // what was there at the last look
  bool _there = false;
  bool _ejected;
};
