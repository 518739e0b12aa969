// Starts and stops the system's PTP services, and keeps in mind whether this board is meant to be the master whose
// clock follows the GPS receiver.
//
// Each operation runs systemctl(1) with root rights (runtime/superuser.h) and waits for it; how that ended isn't looked
// at, and nothing here ever stops the unit ptpd. The command runs in a shell, which drops an effective root whose real
// user is another one: for a command that gets through the program has to run with root as its *real* user. systemctl
// is looked for on the search path.
//
// Thread: the poll loop's, which stands still meanwhile. The rights are those of the whole process, and so is what
// system(3) does: SIGINT and SIGQUIT are ignored, SIGCHLD waits.
//
// Errors: std::runtime_error "Unable to gain super user priviledges: " where the rights can't be had; no command is run
// then and IsGPSMaster stays as it is.

#pragma once

#include <string>

class PTPControl {
 public:
  // The unit ptpd; the board is the master from now on.
  void StartGPS();
  void RestartGPS();
  // The unit ptpd_slave; the board is no master from now on.
  void StartSlave();
  void RestartSlave();
  // The unit ptpd_slave; who is the master stays as it is.
  void StopSlave();

  // What was last started; false at first.
  bool IsGPSMaster() const { return _gpsMaster; }

 private:
  void _Run(const char* command, bool gpsMaster);

  // No operation looks at these two.
  std::string _text;
  [[maybe_unused]] int _number = 0;
  bool _gpsMaster = false;
};
