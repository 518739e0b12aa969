#include "serial/ptpcontrol.h"

#include <cstdlib>

#include "runtime/superuser.h"

void PTPControl::StartGPS() {
  _Run("systemctl start ptpd", true);
}

void PTPControl::RestartGPS() {
  _Run("systemctl restart ptpd", true);
}

void PTPControl::StartSlave() {
  _Run("systemctl start ptpd_slave", false);
}

void PTPControl::RestartSlave() {
  _Run("systemctl restart ptpd_slave", false);
}

void PTPControl::StopSlave() {
  _Run("systemctl stop ptpd_slave", _gpsMaster);
}

void PTPControl::_Run(const char* command, bool gpsMaster) {
  const SuperUser rights;
  [[maybe_unused]] const int status = std::system(command);
  _gpsMaster = gpsMaster;
}
