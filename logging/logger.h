// Writes the station's tab-separated lines into text files on a removable disk.
//
// A file is open under BASE.txt.part, becomes BASE.txt when it is finished and, where the table below says so, BASE.zip
// by a zip(1) of its own, which is started and not waited for. BASE is the mount path, "/", the host name, "-", the
// date, "T" and the time without its colons, all as they are when the file opens. docs/data-files.md tells what is
// inside.
//
//   what ends a file                                           packed
//   another host name, serial number, version or time zone     yes
//   the split time, seen by WriteDATA                          yes
//   StopLogging                                                no
//   destruction                                                no
//
// Only WriteDATA opens a file, and only while logging is on and mount path, host name, date and time are known. A line
// that finds no file is lost without a message; the next one tries again. Lines are not flushed one by one: they go to
// the disk as whole lines, 8 KiB at a time and when the file ends.
//
// A failed write (the disk is full, or has gone) leaves the file open and in the error state, which only the end of
// the file clears: the lines until then are lost. A failed renaming leaves the name as it was. Neither throws, and
// nothing else here does either; a disk that goes shows in USBState alone.
//
// The names go into zip's command line as they are: mount path, host name, date and time have no blanks in them.
//
// Thread: the poll loop's.

#pragma once

#include <cstdint>
#include <fstream>
#include <string>

#include "runtime/pollprocessor.h"

class Logger : public PollTimer {
 public:
  // What USBState answers.
  enum { StateNoDisk, StateLogging, StateNotLogging, StateError };

  // `device_text` and `flag` are kept, and read by nothing.
  Logger(const std::string& device_text, std::string zone, bool flag);
  ~Logger() override;

  // Once a minute, for ever; nothing is done.
  void HandleTimeout() override;

  // Logging is on at first. Opens no file.
  void StartLogging();
  void StopLogging();

  // Another value than the stored one ends the file; the next line opens one with the new header.
  void SetHostname(const std::string& hostname);
  void SetSN(const std::string& sn);
  void SetVersion(const std::string& version);
  void SetTimezone(const std::string& zone);

  // Texts for the next file's name and header, in the caller's own format. Leaves an open file as it is.
  void SetDateTime(const std::string& date, const std::string& time);
  // The line of column names, with its line end. Goes into each file behind the header, and into an open one at once.
  void SetDATAH(const std::string& line);
  // One data line, with its line end. `seconds` is ignored.
  void WriteDATA(const std::string& line, long seconds);

  // The directory of the mounted disk; empty: none. Leaves an open file as it is.
  void SetMountPath(const std::string& path);
  // The present, in seconds since 1970. A file ends when WriteDATA finds the split time reached.
  void SetSeconds(long seconds);
  // The length of a file in seconds, 0 or less: unlimited. Files end at whole multiples of it since 1970, not that long
  // after they began. Computes the next split time from the present, so SetSeconds comes first.
  void SetSplitSeconds(int seconds);
  // The present has reached the split time: the next line goes into another file.
  bool IsSplitDue() const { return _split_seconds > 0 && _seconds >= _next_split_seconds; }

  // StateNoDisk: no mount path; StateNotLogging: no file is open; StateError: a write has failed. A change is told on
  // standard output.
  int USBState();

  // Accepted without effect; for stations that learn about disks in their own way.
  void DiskMounted(const std::string& path);
  void DiskUnmounted();

 private:
  bool _OpenLogFile();
  void _CloseLogFile(bool zip);
  void _WriteToLogFile(const std::string& line, bool open_if_closed);
  void _WriteToFile(std::ofstream& file, const std::string& text);
  void _FlushPending(std::ofstream& file);
  void _ComputeNextSplitSeconds();
  void _UpdateUSBSpace();  // no effect
  void _SetHeaderText(std::string& stored, const std::string& text);

  const std::string _device_text;
  int32_t _usb_state = -1;  // as USBState last told; -1: not asked yet
  std::string _mount_path;
  std::string _hostname;
  std::string _file_base;  // of the file that is open, or was last
  bool _logging = true;
  std::ofstream _file;  // without a buffer of its own, see _pending
  [[maybe_unused]] float _usb_total = 0;
  float _usb_space = 0;  // bytes; goes down with each good write
  int32_t _seconds = 0;
  std::string _date;
  std::string _time;
  int32_t _next_split_seconds = 0;
  int32_t _split_seconds = 0;
  [[maybe_unused]] const bool _construct_flag;
  std::string _datah;
  std::string _sn;
  std::string _version;
  std::string _timezone;
  // Whole lines on their way to the file. A stream's own buffer would cut them anywhere, and after a failed write would
  // offer what has half gone out again when the file is closed, into the middle of a line.
  std::string _pending;
};
