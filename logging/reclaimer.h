// Keeps a directory from taking more than a given share of its disk: deletes its oldest files on a thread of its own.
//
// What is measured is the size of the files against the size of the whole partition, not the free space. Symbolic
// links count as files, with the size of the link itself; everything else in the directory, directories included, is
// passed over. Age is the time of the last change, in whole seconds; of equal ones the first in the directory's own
// order goes first.
//
// Nothing here asks by itself: the owner decides when, and with which share. Requests are served one after the other
// and nothing is kept between them. A request holds one record for each file in the directory while it is served.
//
// Threads: any thread may call Reclaim, Relieve and Abandon. A file that a writer still has open is deleted like any
// other: spare it by its ending, ".part" for the files of Logger.
//
// Errors: what goes wrong within a request ends it, with an "ERROR: Unable to reclaim files from " line on standard
// output; what was deleted before stays deleted, and the next request is served. A path that is no directory is
// passed over without a word.

#pragma once

#include <atomic>
#include <boost/thread/sync_queue.hpp>
#include <cstdint>
#include <string>
#include <thread>

class Reclaimer {
 public:
  struct q_item {
    std::string path;
    std::string except;
    int32_t percent = 0;
    bool relieves = false;  // whatever the share
  };

  // `verbose`: every request lists its files, its sums and what it deletes on standard output.
  explicit Reclaimer(bool verbose);
  Reclaimer(const Reclaimer&) = delete;
  Reclaimer& operator=(const Reclaimer&) = delete;
  // As Quit, but prints an error instead of throwing it; after an earlier Quit there is one.
  ~Reclaimer();

  // Asks for the directory `path` to be brought down to `percent` whole percent of its partition, and returns at once.
  // Files whose names end in `except` count, but are not deleted; an empty one spares nothing. A share is cut to whole
  // percent before it is compared, and the file that tips the balance is deleted too.
  // After Quit these throw boost::sync_queue_is_closed.
  void Reclaim(const std::string& path, int percent);
  void Reclaim(const std::string& path, int percent, const std::string& except);

  // Asks for the oldest hundredth of the files to be deleted, one at least, whatever their share: for a disk that has
  // no room although they haven't taken it. Small files take more than they have bytes, and others' may lie there as
  // well.
  void Relieve(const std::string& path, const std::string& except) { _queue.push({path, except, 0, true}); }

  // From now on what is queued is passed over, and what is being served ends behind the file it is at: for an owner who
  // has to end soon. There is no way back.
  void Abandon() { _abandoned = true; }

  // Serves what is queued, then ends the thread; there is no restart. A second call throws std::system_error.
  void Quit();

 private:
  static void _reclaim(Reclaimer* reclaimer);

  boost::sync_queue<q_item> _queue;
  std::thread _thread;
  const bool _verbose;
  std::atomic<bool> _abandoned = false;
};
