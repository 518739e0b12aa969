// Cuts what arrives on a serial line into messages: a carriage return ends one, line feeds are dropped, all else is
// gathered without limit. The chunks may fall where they like.

#pragma once

#include <cstddef>
#include <string>
#include <utility>

class MessageFramer {
 public:
  // Messages of up to `room` bytes allocate nothing.
  explicit MessageFramer(size_t room) {
    _message.reserve(room);
    _spare.reserve(room);
  }

  // Calls handle(const std::string& message), without the carriage return, for each message that ends in here. A
  // message is taken out of the way first: `handle` may throw, and the next message starts afresh; or take characters
  // itself, whose messages are then handled from inside its call.
  template <class Handle>
  void Take(const char* data, int length, Handle handle) {
    for (const char* const end = data + length; data != end; ++data) {
      const char* const run = data;
      while (data != end && *data != '\r' && *data != '\n') ++data;
      _message.append(run, data);
      if (data == end) return;
      if (*data == '\n') continue;
      std::string message = std::exchange(_message, std::move(_spare));
      handle(std::as_const(message));
      message.clear();
      _spare = std::move(message);
    }
  }

 private:
  std::string _message;  // what has come of it so far
  std::string _spare;    // the storage that the next one is gathered in
};
