#include "serial/linuxclock.h"

#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "runtime/errnoexcept.h"
#include "runtime/filesystem.h"
#include "runtime/streamfilebase.h"
#include "runtime/superuser.h"

namespace {

timeval Now() {
  timeval now{};
  if (gettimeofday(&now, nullptr) != 0) throw ErrnoError("Unable to get current time");
  return now;
}

int OpenClock(const std::string& path, int flags) {
  const int fd = open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) ThrowErrno("Unable to open clock device: ", path);
  return fd;
}

}  // namespace

LinuxClock::LinuxClock(std::string zoneRoot, std::string zoneLink, std::string zoneFile, std::string rtcDevice)
    : _zoneRoot(std::move(zoneRoot)),
      _zoneLink(std::move(zoneLink)),
      _zoneFile(std::move(zoneFile)),
      _rtcDevice(std::move(rtcDevice)) {
  _timezone_iterate(_zones, _zoneRoot, "");
  RefreshZone();
}

// --- the clocks ---

Timestamp LinuxClock::Time() const {
  Timestamp now;
  now.assign_local_time();
  return now;
}

void LinuxClock::Time(long& seconds, long& nanoseconds) const {
  const timeval now = Now();
  seconds = now.tv_sec;
  nanoseconds = now.tv_usec * 1000;
}

time_t LinuxClock::TimeT() const {
  return Now().tv_sec;
}

void LinuxClock::SetTime(long seconds) {
  SetTime(seconds, 0);
}

void LinuxClock::SetTime(long seconds, long nanoseconds) {
  _set_time({seconds, nanoseconds / 1000});
}

void LinuxClock::SetTime(Timestamp local) {
  const double sec = local.sec();
  // Beyond what a Timestamp can count its fields don't fit together.
  if (!(sec > -1 && sec < 60)) throw ErrnoError("Unable to set system time", EINVAL);
  const int whole = static_cast<int>(sec);
  tm fields{};
  fields.tm_year = local.year() - 1900;
  fields.tm_mon = local.month() - 1;
  fields.tm_mday = local.day();
  fields.tm_hour = local.hour();
  fields.tm_min = local.min();
  fields.tm_sec = whole;
  fields.tm_isdst = -1;
  SetTime(mktime(&fields), static_cast<long>((sec - whole) * 1'000'000'000));
}

void LinuxClock::_set_time(const timeval& time) {
  const SuperUser rights;
  if (settimeofday(&time, nullptr) != 0) throw ErrnoError("Unable to set system time");
  SetHardwareTime(time.tv_sec);
}

void LinuxClock::SetHardwareTime(long seconds) const {
  const SuperUser rights;
  const StreamFileBase device(OpenClock(_rtcDevice, O_RDWR));
  const time_t moment = seconds;
  tm utc{};
  const bool broken_down = gmtime_r(&moment, &utc) != nullptr;
  const rtc_time hardware = {utc.tm_sec,  utc.tm_min,  utc.tm_hour, utc.tm_mday, utc.tm_mon,
                             utc.tm_year, utc.tm_wday, utc.tm_yday, utc.tm_isdst};
  if (broken_down && ioctl(device.Fileno(), RTC_SET_TIME, &hardware) == 0) return;
  const int error = errno;
  std::cout << "Unable to set hardware clock: " << _rtcDevice << ": " << std::generic_category().message(error) << '\n';
}

time_t LinuxClock::_read_hw_time() const {
  const SuperUser rights;
  const StreamFileBase device(OpenClock(_rtcDevice, O_RDONLY));
  rtc_time hardware{};
  if (ioctl(device.Fileno(), RTC_RD_TIME, &hardware) != 0) ThrowErrno("Unable to read hardware clock: ", _rtcDevice);
  tm utc{};
  utc.tm_sec = hardware.tm_sec;
  utc.tm_min = hardware.tm_min;
  utc.tm_hour = hardware.tm_hour;
  utc.tm_mday = hardware.tm_mday;
  utc.tm_mon = hardware.tm_mon;
  utc.tm_year = hardware.tm_year;
  errno = 0;  // timegm doesn't set it for a moment that is -1 by right
  const time_t seconds = timegm(&utc);
  if (seconds == -1) ThrowErrno("Invalid time returned from hardware clock: ", _rtcDevice);
  return seconds;
}

// --- the zone ---

void LinuxClock::_timezone_iterate(std::vector<std::string>& list, const std::string& dir, const std::string& prefix) {
  std::vector<std::string> names;
  {
    _DirList entries(dir);
    if (!entries.IsOpen()) ThrowErrno("Unable to open timezone directory: ", dir);
    for (std::string name; entries.GetNextEntry(name, nullptr);)
      if (name[0] != '.') names.push_back(name);
    if (errno != 0) ThrowErrno("Unable to read timezone directory: ", dir);
  }
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string path = std::string(dir).append("/").append(name);
    if (IsDirectory(path))
      _timezone_iterate(list, path, prefix + name + "/");
    else
      list.push_back(prefix + name);
  }
}

bool LinuxClock::_validate_zone(const std::string& zone) const {
  return std::find(_zones.begin(), _zones.end(), zone) != _zones.end();
}

void LinuxClock::RefreshZone() {
  std::ifstream file(_zoneFile);
  std::string zone;
  if (std::getline(file, zone) && _validate_zone(zone)) _currentZone = zone;
}

long LinuxClock::ZoneOffsetFromUTC() const {
  tzset();
  return -timezone;
}

void LinuxClock::SetZone(std::string zone) {
  if (!zone.empty() && zone[0] == '/') zone.erase(0, 1);
  if (!_validate_zone(zone)) throw std::runtime_error("Invalid timezone \"" + zone + "\"");
  const std::string target = ".." + _zoneRoot + "/" + zone;

  const SuperUser rights;
  struct stat ignored {};
  // A link that leads nowhere is not removed, and so the next call fails; that is meant.
  if (stat(_zoneLink.c_str(), &ignored) == 0) unlink(_zoneLink.c_str());
  if (symlink(target.c_str(), _zoneLink.c_str()) != 0) throw ErrnoError("Unable to set timezone");
  tzset();
  _currentZone = zone;

  std::ofstream file(_zoneFile);
  file << zone << '\n' << std::flush;
  if (!file) throw std::runtime_error("Unable to save timezone string to file: " + _zoneFile);
}
