// Stands in for a GPS receiver, a pulse source and a sonic anemometer that aren't attached: feeds the real device
// objects with what the instruments would send, so that all behind them behaves as in the field.
//
// The methane analyser's moments are the clock. For each record, and 10 ms after it:
//
//   at once     a pulse, when the record's moment is a whole second and the pulse device has a listener
//   10 ms late  a GGA, then an RMC when the moment's hundredths are 0, then a message of the anemometer
//
// A record that comes within the 10 ms takes the place of the one before. An analyser that stalls stops all of it.
//
// The texts go to ReceivedChars of the devices, not to their ports. What a device writes by itself, such as the restart
// of a GPS receiver that was just found, still goes to its port.
//
// Thread: the poll loop's. The devices are not owned and must outlive the simulator. Their listeners may do what they
// may in the field, and may hand in records; what they throw passes through.

#pragma once

#include <string>

#include "analyser/ch4device.h"
#include "runtime/pollprocessor.h"
#include "runtime/timeval.h"
#include "serial/gpsdevice.h"
#include "serial/ppsdevice.h"
#include "serial/sonicdevice.h"

class Simulator : public PollTimer {
 public:
  // None of them may be null.
  Simulator(GPSDevice* gps, PPSDevice* pps, SonicDevice* sonic);

  // For the owner, who passes each record of its analyser on.
  void GotCH4Data(const CH4Data& data);

  void HandleTimeout() override;
  const char* Description() const override { return "Simulator"; }

  // One sentence each, of constant place, speed and quality. `time`: hhmmss.ff; `date`: ddmmyy.
  void _SendGPGGA(const std::string& time);
  void _SendGPRMC(const std::string& time, const std::string& date);

 private:
  void _SendToGPS(const std::string& body);

  GPSDevice* const _gps;
  PPSDevice* const _pps;
  SonicDevice* const _sonic;
  TimeVal _lastData;  // the moment of the last record
};
