// The board's clocks and its time zone: read, and set with root rights (runtime/superuser.h) for exactly the calls that
// need them.
//
// The system clock is set together with the hardware clock, which is kept in UTC, to the whole second (rtc(4)). The
// zone is a symbolic link into a tree of zone files, as /etc/localtime is (tzset(3)), with a text file beside it that
// records the zone's name.
//
// Lives on the poll thread, as its zone is that of the whole process. Times are seconds since 1970-01-01 00:00:00 UTC
// unless they are a Timestamp, which is local time here.
//
// Errors are thrown, ErrnoError where a call of the system failed. What sets something and _read_hw_time also throw the
// std::runtime_error of SuperUser for rights that can't be had, with nothing touched.

#pragma once

#include <sys/time.h>

#include <string>
#include <vector>

#include "runtime/timestamp.h"

class LinuxClock {
 public:
  // On a board: "/usr/share/zoneinfo", "/etc/localtime", "/etc/timezone" and "/dev/rtc0". Reads the tree, or throws
  // ErrnoError for the directory in it that can't be read, and the present zone. The link has to stand one directory
  // below the root of the file system, and the tree's path has to be absolute: the link is written as
  // "../usr/share/zoneinfo/..." for a system that is mounted elsewhere.
  LinuxClock(std::string zoneRoot, std::string zoneLink, std::string zoneFile, std::string rtcDevice);

  // These three throw ErrnoError.
  Timestamp Time() const;                             // local time, to the microsecond
  void Time(long& seconds, long& nanoseconds) const;  // to the microsecond
  time_t TimeT() const;                               // whole seconds

  // Set both clocks. ErrnoError: with nothing changed where the system clock can't be set or the Timestamp is no
  // moment; with the system clock set where the hardware clock can't be opened. One that refuses is told on standard
  // output only.
  void SetTime(long seconds);
  void SetTime(long seconds, long nanoseconds);  // cut to microseconds
  void SetTime(Timestamp local);                 // cut to microseconds; daylight saving as the zone has it
  // The hardware clock alone. ErrnoError where it can't be opened; one that refuses is told as above.
  void SetHardwareTime(long seconds) const;

  // Of the hardware clock, in seconds. ErrnoError where it can't be opened or read, or holds no moment.
  time_t _read_hw_time() const;

  // A name of Zones(), one "/" before it is skipped. std::runtime_error for an unknown one, with nothing touched;
  // ErrnoError for a link that can't be made, with the old one gone or, where it leads nowhere, in the way; and last
  // std::runtime_error for a file that can't be written, with the zone in force.
  void SetZone(std::string zone);
  // Takes the zone that the file records; CurrentZone stays as it was where the file has no known one.
  void RefreshZone();
  // Seconds, positive east of Greenwich. Daylight saving is left out; that is meant.
  long ZoneOffsetFromUTC() const;

  const std::string& CurrentZone() const { return _currentZone; }  // "UTC" until a file said otherwise
  // Every name below the tree's root, such as "Europe/Berlin": depth first, in byte order.
  const std::vector<std::string>& Zones() const { return _zones; }

 private:
  // Links are followed. One that leads back up the tree ends where the system gives up on it (ELOOP).
  static void _timezone_iterate(std::vector<std::string>& list, const std::string& dir, const std::string& prefix);
  bool _validate_zone(const std::string& zone) const;
  void _set_time(const timeval& time);

  const std::string _zoneRoot;
  const std::string _zoneLink;
  const std::string _zoneFile;
  const std::string _rtcDevice;
  std::vector<std::string> _zones;
  std::string _currentZone = "UTC";
};
