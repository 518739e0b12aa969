// Packs single files into ".zip" archives on a thread of its own, so that the poll loop never waits for compression.
//
// /a/b/x.txt goes into /a/b/x.zip, by zip(1) as it is found on the search path, and is deleted once the archive and its
// name have reached the disk: whatever ends this process or the board, one of the two is there, and whole. What zip had
// begun may stay behind under a name of its own, such as zi4XDmOw.
//
//   - The text behind the last "." of the path is what goes, wherever it stands: /data.d/file goes into /data.zip.
//   - An archive that exists takes the file up: x.txt and x.csv share x.zip, and a name that is packed again takes the
//     place of its entry. Hand in finished files only, as what is written behind the packer's back goes with the file.
//   - The path reaches the shell as it stands, without quotes: no blanks in it, nor anything else the shell knows.
//
// Threads: any thread may call Zip. The worker blocks all signals, which its zip inherits: one that is under way goes
// on to its end when the service is stopped. For as long as a zip runs system(3) has SIGINT and SIGQUIT ignored in the
// whole process.
//
// Errors: when zip fails the file stays, with a line "Unable to zip " on standard output that ends, on purpose, in the
// words for zip's wait status as if it were an error number. What fails around it is a line "ERROR: Unable to zip ".
// Nothing is tried again. What is no regular file by the time its turn comes, or has no "." in its path, is passed over
// without a word.

#pragma once

#include <boost/thread/sync_queue.hpp>
#include <string>
#include <thread>

class Zipper {
 public:
  Zipper();
  Zipper(const Zipper&) = delete;
  Zipper& operator=(const Zipper&) = delete;
  // As Quit, but prints an error instead of throwing it; after an earlier Quit there is one.
  ~Zipper();

  // Queues the full path of a file and returns at once. After Quit this throws boost::sync_queue_is_closed.
  void Zip(const std::string& path);

  // Packs what is queued, then ends the thread; there is no restart. A second call throws std::system_error.
  void Quit();

 private:
  static void _zipper(Zipper* zipper);

  boost::sync_queue<std::string> _queue;
  std::thread _thread;
};
