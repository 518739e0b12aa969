// How evenly the records of a sonic anemometer come: mean, range and spread of the time between them, in periods of ten
// seconds.
//
// A period ends with the first record that is later than ten seconds after the record that ended the one before; a new
// object's first record later than 1970 ends one at once. Its interval is counted from 1970, which is meant: the
// results of the first period mean nothing. When time steps back the period goes on until the moment is reached that
// would have ended it; its intervals are all kept meanwhile.
//
// Thread: any one.

#pragma once

#include <vector>

#include "runtime/timeval.h"
#include "serial/sonicdevice.h"

class SonicStats {
 public:
  SonicStats();

  // One more record; only its moment is looked at, with which the owner has stamped it.
  void Update(const SonicData& data);

  // Of the last whole period, in milliseconds; 0 before there is one.
  double MeanInterval() const { return _meanInterval; }
  // The longest less the shortest. The longest counts from -999.9 up and the shortest from 999.9 down, which is meant:
  // intervals that are all above 999.9 give a shortest of 999.9.
  double IntervalRange() const { return _intervalRange; }
  // The standard deviation, of the period itself and not of what it may be a sample of.
  double IntervalDeviation() const { return _intervalDeviation; }

 private:
  void _Report();

  double _meanInterval = 0;
  double _intervalRange = 0;
  double _intervalDeviation = 0;
  TimeVal _nextReport;
  TimeVal _lastTime;
  std::vector<double> _intervals;  // of this period, milliseconds; the storage is kept
};
