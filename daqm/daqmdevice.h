// The serial bus of the data acquisition modules: its port, its power line, and the cutting of its bytes into lines.
//
// A line, in either direction, is a JSON object without a line feed, the checksum of its covered part in 8 hexadecimal
// digits (upper case when we send), and a line feed. Nothing stands between object and checksum. The first key is the
// address: a module's identifier such as "0", "drm" for the unit of that name, or "all". It is not covered, so a unit
// that passes a line on may change it. docs/modules.md has worked examples.
//
// 115200 baud, 8 data bits, 1 stop bit, no parity, no flow control.
//
// The modules have power exactly while a DAQMDevice exists. A line stays as it is when the process dies.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/gpio.h"
#include "serial/linuxtty.h"

// --- the line format; nothing here looks at more than its argument, and any thread may call ---

// The exclusive-or of the text's big-endian 32-bit words, the last one filled up with zero bytes. 0 for no text.
uint32_t _CalculateChecksum(std::string_view text);

// The covered part of a line, or of a bare body: from the second double quote on, which closes the first key and is
// itself covered; from the first byte on where there are not two. `has_checksum`: the last 9 bytes don't count. Empty
// when the second quote stands among those.
std::string_view _SkipHopCount(std::string_view line, bool has_checksum);

// A body with its checksum and line feed, as we send it.
std::string FrameDAQMLine(std::string_view body);

// Whether the sum that the line carries is its own. A wrong or unreadable one, shown as 0 then, is told on standard
// output, with the line. A line of fewer than 9 bytes is a std::out_of_range.
bool ValidateChecksum(std::string_view line);

// The text with each "nan", for which JSON has no word, as "null": wherever it stands, inside of strings too, and that
// is meant. A column named "finance" is known as "finullce".
std::string _SanitizeJSON(std::string_view text);

// --- the bus ---

class DAQMDevice : public LinuxTTYReader::Listener {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    // With its line feed; a carriage return has no meaning and stays. May do anything but destroy the device. What it
    // throws leaves Poll, behind the other lines of the same read; of several exceptions the first.
    virtual void GotDAQMLine(std::string line);
  };

  // Opens and configures the port, and powers the bus. `gpio`: the number of the power line. The listener isn't owned
  // and outlives the device. `verbose`: received lines go to standard output.
  //
  // Needs the right to open the port and to export the line, and to become user 0 for the power, which it gives back
  // (see SuperUser). Throws std::runtime_error, with the line exported and its direction set to "out", which drops it
  // should it have been up.
  DAQMDevice(const std::string& device, int gpio, Listener* listener, bool verbose);
  DAQMDevice(const DAQMDevice&) = delete;
  DAQMDevice& operator=(const DAQMDevice&) = delete;
  // Takes the power off. Throws as the constructor does, with everything closed all the same; but not while another
  // exception is under way.
  ~DAQMDevice() noexcept(false) override;

  bool IsVerbose() const { return _verbose; }
  bool IsHungUp() const { return _reader.IsHungUp(); }  // the port has gone: make the device anew

  // Queues the whole line, with its checksum and line feed, or nothing: half a line would spoil the next one. One that
  // doesn't fit into what is left of the port's 4,096 bytes is told on standard output.
  void Write(const std::string& line);

  // The port's error counters, in one line on standard output.
  void DumpTTYErrors() const;

  void ReceivedChars(LinuxTTYReader& reader, const char* data, int count) override;

 private:
  void _SetPower(bool on);
  void _GotLine(std::string line);

  const std::string _tty_name;
  GpioOut _power;
  std::vector<char> _line;  // received so far; without limit
  LinuxTTYControl _control;
  LinuxTTYWriter _writer;
  LinuxTTYReader _reader;
  Listener* const _listener;
  const bool _verbose;
};
