// A GPS receiver on a serial line: sets it up, finds its rate, and reports position, time and satellites.
//
// The receiver speaks NMEA 0183; only sentences of the talker GP are understood. A Garmin unit is looked for at 38400,
// 4800, 9600 and 19200 bps, 5 s each, told to use 38400 and restarted; a Hemisphere unit is taken to be at 57600. After
// a search without success the port stays at 38400, and sentences are taken as ever. A receiver for several systems,
// with the talker GN, may well end the search, as its list of GPS satellites has the talker GP; no position and no time
// of it is ever told.
//
// Thread: the poll loop's. Nothing blocks: the set-up is queued.
//
// Bad input is dropped without a word: what is no sentence, carries a wrong sum or isn't known. A sentence without end
// is gathered without limit.
//
// Callbacks: the listener may change the listener, the type and the reader's listener, and may feed characters itself,
// which are then told from inside its call; the record and the list that it was given stay as they are until it
// returns, while the moment becomes the newest one. It must not destroy the device. What it throws passes through, and
// the next sentence starts afresh. While there is no listener nothing is looked at, so no search comes to an end
// either.
//
// Errors: the constructor and the timer throw std::runtime_error "Unable to configure GPS: " and the path when the line
// is refused, and pass on LinuxTTYBase::DeviceError. Where the port itself has gone the search ends without a word:
// Reader().IsHungUp() tells the owner, who makes the device anew.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "runtime/measurementrecord.h"
#include "runtime/pollprocessor.h"
#include "runtime/timeval.h"
#include "serial/linuxtty.h"
#include "serial/messageframer.h"

class FieldStream;

// One GGA. Its moment rests on the date of the last valid RMC; before the first one it means nothing.
//
//   values  0 latitude and 1 longitude in degrees, south and west negative
//           2 altitude, m    3 satellites in use    4 horizontal dilution    5 geoid separation, m
//           6 speed, m/s, and 7 course, degrees as sent, both of the last valid RMC
//           8 age of the differential data, s    9 differential station
//   errorFlags  0x880 for a quality byte of 0, 0x80 for one of 1; otherwise 0, so for every digit, which is meant
//
// A sentence without a fix comes too, as latitude 0, longitude 0 and errorFlags 0: whether there is one is told by
// GotGPSTime and GotGPSNoFix alone.
struct GPSData : MeasurementRecord<10> {};

class GPSDevice : public LinuxTTYReader::Listener, public PollTimer {
 public:
  // In the order of a GSV sentence: the satellite's number, degrees, degrees, dB.
  struct SatStatus {
    int prn;
    int elevation;
    int azimuth;
    int snr;
  };

  // What is passed is gone when the call returns.
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotGPSData(const GPSData& data);
    // The moment of an RMC with a fix, UTC since 1970.
    virtual void GotGPSTime(const TimeVal& time);
    // An RMC without a fix, or one that can't be read.
    virtual void GotGPSNoFix();
    // A whole group of GSV sentences. The list is what they hold, so it can end in entries that are all zero.
    virtual void GotGPSSatellites(const std::vector<SatStatus>& satellites);
  };

  enum { TypeHemisphere, TypeGarmin };  // any other type is listened to as it is

  // `verbose`: the search and each sentence go to standard output. `wantSatellites`: has a Garmin unit send GSV.
  GPSDevice(const std::string& device, int type, bool verbose, bool wantSatellites);

  // Not owned, may be null; returns the one it replaces.
  Listener* RegisterListener(Listener* listener);
  // Sends nothing: the next step of the search that looks at the type finds the new one.
  void SetType(int type);
  LinuxTTYReader& Reader() { return _reader; }

  void ReceivedChars(LinuxTTYReader& reader, const char* data, int length) override;
  void HandleTimeout() override;

 private:
  enum BaudSearch { BaudIdle, BaudSearching, BaudResetting };

  void _ConfigGPS();
  void _ConfigGarmin();
  void _ConfigHemisphere();
  void _SetBps(int bps);
  void _SearchStep();
  void _BPSDetected();
  void _RestartAt38400();
  template <class Step>
  void _UnlessGone(Step step);

  void _EndSentence(const std::string& sentence);
  void _HandleMessage(std::string_view sentence);
  void _HandleRMC(FieldStream& fields);
  void _HandleGGA(FieldStream& fields);
  void _HandleGSV(FieldStream& fields);
  void _GPSTimeToTv(int hours, int minutes, int seconds, int milliseconds);
  void _KeepTime(double packed);

  const std::string _devicePath;
  int _gpsType;
  MessageFramer _framer;
  LinuxTTYControl _control;
  LinuxTTYWriter _writer;
  LinuxTTYReader _reader;
  Listener* _listener = nullptr;
  // The date of the last valid RMC.
  unsigned int _rmcYear = 0;
  unsigned int _rmcMonth = 0;
  unsigned int _rmcDay = 0;
  TimeVal _gpsTime;    // what the last sentence's time came to
  double _speed = 0;   // m/s, of the last valid RMC
  double _course = 0;  // degrees, likewise
  BaudSearch _baudSearch = BaudSearching;
  const bool _verbose;
  const bool _wantSatellites;
  std::vector<SatStatus> _satellites;  // of the group that is coming in, or of the last one
};
