// All that can be attached to a station: an instrument on each of its ports, as one object.
//
// Thread: the poll loop's.

#pragma once

#include <string>

#include "emulators/analyser.h"
#include "emulators/campbelllogger.h"
#include "emulators/daqmbus.h"
#include "emulators/gps_receiver.h"
#include "emulators/pulse_source.h"
#include "emulators/push_button.h"
#include "emulators/soilinstrument.h"
#include "emulators/sonic_anemometer.h"

struct Site {
  struct Plan {
    bool fast = false;               // analyser 40 Hz and GPS receiver 10 Hz, instead of 10 and 1
    int sonic_rate = 20;             // Hz
    int pace = 1;                    // seconds, in the place of one, of receiver and anemometer
    std::string soil = "127.0.0.1";  // the address of the chamber, one for each site on a machine
    SoilInstrument::Settings chamber = {};
    bool modules = true;  // the station is told of their bus
    DAQMBus::Settings bus = {};
  };
  explicit Site(const Plan& plan);

  // The lines of a station's configuration file that say where the instruments are. The modules, whose ports are the
  // board's, aren't among them: their bus is modules.Path().
  std::string Settings() const;
  // The document that tells the station of those on the network, of the modules, and of the receiver's type.
  std::string Document() const;

  const Plan plan;
  Analyser analyser;
  GPSReceiver gps;
  PulseSource pulse;
  SonicAnemometer sonic;
  PushButton button;
  SoilInstrument soil;
  DAQMBus modules;
  CampbellLogger campbell;
};
