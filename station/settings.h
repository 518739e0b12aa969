// The settings of the board: what is attached where, which directories and ports are used, what is recorded. They come
// from a configuration file in TOML (toml.io) and from the command line, which wins; what the instruments are called,
// and how they are set, stands in the logger's document (config/docmoorlog.h).
//
// station/station.toml is the file with everything at its default, and a comment for each key.

#pragma once

#include <stdexcept>
#include <string>
#include <vector>

struct Settings {
  std::string name;                        // what the data files' names begin with; the host's name if it is empty
  std::string user = "moorlog";            // whose rights the station works with, if it is started as root
  std::string state = "/var/lib/moorlog";  // the directory of what has to survive a restart
  bool verbose = false;                    // the parts tell what they do

  struct {
    std::string path = "/media/moorlog";  // where the disk is mounted
    bool board = false;                   // or a directory on the board's own disk
    int split = 3'600;                    // seconds, the length of a file
    int percent = 90;                     // of the disk, for all files together
  } disk;

  struct {
    int port = 5510;
    std::string interface = "lo";  // from where it can be reached; all if it is empty
  } control;

  struct {
    int port = 5500;                   // of one that is given by its address
    std::string record = "all";        // its lines as they come, "some" of their columns, or "none"
    std::vector<std::string> columns;  // those of "some"
  } analyser;

  struct {
    std::string device;  // of the receiver; none if it is empty. The same for the others
    std::string pulse;
    bool record = true;
  } gps;

  struct {
    std::string device;
    bool record = true;
  } sonic;

  struct {
    std::string device;
  } button;

  struct {
    bool record = true;
  } soil;

  struct {
    bool record = true;
  } modules;

  struct {
    int port = 80;          // of its web interface
    std::string directory;  // where the rows are put for the upload; the disk if it is empty
  } campbell;

  struct {
    std::string mode = "set";  // "watch": only tells the offset
    int proportional = 4;      // divisors of serial/linuxclocksync.h
    int integral = 8;
    std::string rtc = "/dev/rtc0";
  } clock;
};

// A key, a value or a file that can't be taken: the text names it, with its line where it stands in a file.
class SettingsError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What the command line asks for besides.
struct Command {
  bool check = false;  // read the settings and say what would run
  int seconds = 0;     // end after so many; 0: never
};

// Prints the help, or the version, and ends the program where it is asked for. Throws SettingsError.
Command ReadSettings(int argc, const char* const* argv, Settings& settings);
