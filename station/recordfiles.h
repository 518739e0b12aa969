// The files of one family of records on the disk: what an instrument sends goes there, line by line, into files that
// end with the period, are packed then, and are called after the station and the family ("bog-1-sonic-...").
//
// Nothing is written while the disk isn't there: lines are counted as lost then, and never land on the board's own
// disk. What a kill or a power cut has left under its working name is finished when the disk is found: renamed, so that
// it is packed off or reclaimed like others, also where the station had another name then. It, and a file that a write
// has failed in, is cut behind its last whole line, and deleted where there is none.
//
// Names and heads of files, and the moments when they end, go by the system's clock in UTC. Where that goes back, the
// file ends, so that times in one file only go on; and no file gets the name of another one that is there: it is called
// after the next second that is free.
//
// Thread: the poll loop's. Nothing here throws for the disk's sake.

#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "logging/logger.h"
#include "station/disk.h"

// A file without a whole line is deleted. One that has gone with its disk is nobody's trouble.
void CutBehindLastLine(const std::string& path);

class RecordFiles {
 public:
  // `station`: its name, which that of the family follows: "-sonic". Leftovers of the family are finished whatever the
  // station was called; without a family, those of this very name. `split`: seconds. The disk isn't owned and outlives
  // this.
  RecordFiles(const Disk& disk, const std::string& station, std::string family, int split);

  // The names of the columns, as a line; another one than the last goes into the open file at once.
  void SetHeader(const std::string& line);
  void Write(const std::string& line);

  // For the owner to call: when the disk comes or goes, and once a minute. A failed write, as on a full disk, loses the
  // lines until then; it ends the file, and the next one finds the room that has been made meanwhile.
  void LookAtDisk();

  // Ends the file; the next line opens another one.
  void Finish() { _EndFile(); }

  void Start();  // it is so at first
  void Stop();   // lines are dropped from now on; the file ends
  bool IsStopped() const { return _stopped; }

  // The path of the file that is open; empty: none.
  const std::string& File() const { return _file; }

  // Lines since the beginning. Written are those that were handed to a file: the last 8 KiB of them are in memory yet.
  int64_t Written() const { return _written; }
  int64_t Lost() const { return _lost; }

 private:
  void _SetTime();
  void _FollowDisk();
  void _NameNextFile();
  void _EndFile();
  void _FinishLeftovers();

  const Disk& _disk;
  const std::string _name, _family;
  const int _split;  // seconds
  Logger _logger{"", "UTC", false};
  std::string _header;
  std::string _file;
  int64_t _moment = 0;  // nanoseconds since 1970
  int64_t _now = 0;     // seconds since 1970, of the logger's date and time
  bool _there = false;  // the disk, as the logger has it
  bool _left = false;   // a file may stand under its working name
  bool _stopped = false;
  int64_t _written = 0;
  int64_t _lost = 0;
};
