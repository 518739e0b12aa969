// A sonic anemometer on a serial line: reads what it sends by itself, one record a message. Nothing is sent to it.
//
// A message stands between STX (2) and ETX (3), followed by the sum of what stands between them, and ends at the
// carriage return:
//
//   <STX>Q,-000.12,+001.50,+000.03,M,+346.66,+025.19,00,+0.013,<ETX>3B
//        |    U       V       W    |    |       |    |    analogue inputs, none to four
//        unit                  units    |       |    status
//                          speed of sound   sonic temperature
//
// Only metres per second, the units M, are accepted. Bad input is dropped without a word: other units, a wrong sum, a
// field that is no number. An empty field counts as 0. A message without end is gathered without limit.
//
// Thread: the poll loop's.
//
// Callbacks: the listener may change the listener, the rate and the reader's listener, and may feed characters itself;
// it must not destroy the device. What it throws passes through, and the next message starts afresh.
//
// Errors: the constructor and SetBps throw std::runtime_error "Unable to configure Sonic: " and the path when the line
// is refused, and pass on LinuxTTYBase::DeviceError. Where the port itself has gone Reader().IsHungUp() tells the
// owner, who makes the device anew.

#pragma once

#include <string>

#include "runtime/measurementrecord.h"
#include "serial/linuxtty.h"
#include "serial/messageframer.h"

// One message. The moment is left 0: whoever receives the record stamps it.
//
//   values  0 U, 1 V and 2 W axis, m/s    3 speed of sound, m/s    4 sonic temperature, degrees Celsius
//           5 to 8 analogue inputs 1 to 4, as sent; 0 for one that isn't there or is no number, and for all behind it
//   errorFlags  0 for a status of 0, 0x440 for 1 to 9, 0x40 for 10 and more
struct SonicData : MeasurementRecord<9> {};

class SonicDeviceListener {
 public:
  virtual ~SonicDeviceListener() noexcept(false) = default;
  // The record is gone when the call returns.
  virtual void GotSonicData(int unitNumber, const SonicData& data);
};

class SonicDevice : public LinuxTTYReader::Listener {
 public:
  // `unitNumber`: handed to the listener with each record. `bps`: as LinuxTTYControl knows them. `verbose`: each
  // message goes to standard output.
  SonicDevice(const std::string& device, int unitNumber, int bps, bool verbose);

  // With 1 stop bit, no parity, 8 data bits and no flow control.
  void SetBps(int bps);
  // Not owned, may be null; returns the one it replaces.
  SonicDeviceListener* RegisterListener(SonicDeviceListener* listener);
  LinuxTTYReader& Reader() { return _reader; }

  void ReceivedChars(LinuxTTYReader& reader, const char* data, int length) override;

 private:
  void _EndMessage(const std::string& message);
  void _HandleMessage(const std::string& message);

  const std::string _devicePath;
  const int _unitNumber;
  MessageFramer _framer;
  LinuxTTYControl _control;
  LinuxTTYWriter _writer;  // queues nothing so far
  LinuxTTYReader _reader;
  SonicDeviceListener* _listener = nullptr;
  const bool _verbose;
};
