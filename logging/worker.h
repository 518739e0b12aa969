// What the workers of this room share: one thread that serves requests from a blocking queue, in the order they came.
//
// The owner holds queue and thread as members. Any thread may push; a closed queue throws
// boost::sync_queue_is_closed to the caller who pushes, and still hands out what it holds, so nothing queued is lost.

#pragma once

#include <boost/thread/sync_queue.hpp>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

#include "runtime/signalprocessor.h"

// One line on standard output, from any thread. It is written in one piece, so that lines of two threads don't mix,
// and without the formatting state of std::cout, which belongs to others.
inline void PrintLine(std::string line) {
  line += '\n';
  std::cout.write(line.data(), static_cast<std::streamsize>(line.size())).flush();
}

// The worker's thread, which gets no signals: those are for the poll loop.
template <class Work, class... Arguments>
std::thread StartWorker(Work&& work, Arguments&&... arguments) {
  const SignalsBlocked inherited;
  return std::thread(std::forward<Work>(work), std::forward<Arguments>(arguments)...);
}

// The worker's loop: returns when the queue is closed and empty. `serve` must not throw.
template <class Item, class Serve>
void ServeQueue(boost::sync_queue<Item>& queue, Serve serve) {
  for (Item item; queue.wait_pull(item) == boost::queue_op_status::success;) serve(item);
}

// Blocks until all that is queued has been served. A second call throws std::system_error "Invalid argument".
template <class Item>
void StopWorker(boost::sync_queue<Item>& queue, std::thread& thread) {
  queue.close();
  thread.join();
}

// The same for a destructor. After an earlier StopWorker the message is the normal case, on purpose.
template <class Item>
void StopWorkerAtEnd(boost::sync_queue<Item>& queue, std::thread& thread) noexcept {
  try {
    StopWorker(queue, thread);
  } catch (const std::exception& error) {
    PrintLine(std::string("ERROR: Unable to stop thread: ") + error.what());
  }
}
