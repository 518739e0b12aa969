// Counts the messages from a serial instrument whose sum is wrong, of which its driver says nothing: stands between the
// port and the driver, and hands on what comes.
//
//   SumCounter sums('$', '*', tally);  // what a message begins with, and what stands in front of its sum
//   sums.Listen(device.Reader());      // each time the device is made
//
// Thread: the poll loop's. The tally outlives this, and this outlives the device.

#pragma once

#include <cstddef>
#include <string>

#include "serial/linuxtty.h"
#include "serial/messageframer.h"
#include "serial/serial_fields.h"
#include "station/tally.h"

class SumCounter : private LinuxTTYReader::Listener {
 public:
  SumCounter(char begin, char mark, Tally& tally) : _begin(begin), _mark(mark), _tally(tally) {}

  void Listen(LinuxTTYReader& reader) {
    _framer = MessageFramer(kRoom);
    _driver = reader.RegisterListener(this);
  }

 private:
  static constexpr size_t kRoom = 256;  // bytes
  static constexpr size_t kDigits = 2;  // of a sum

  void ReceivedChars(LinuxTTYReader& reader, const char* data, int length) override {
    _framer.Take(data, length, [this](const std::string& message) {
      const bool is_whole =
          message.size() > kDigits + 1 && message.front() == _begin && message[message.size() - kDigits - 1] == _mark;
      if (is_whole && !ChecksumAgrees(message)) _tally.CountBadSum();
    });
    _driver->ReceivedChars(reader, data, length);
  }

  const char _begin, _mark;
  Tally& _tally;
  MessageFramer _framer{kRoom};
  LinuxTTYReader::Listener* _driver = nullptr;  // set before anything comes
};
