// Writes down what a listener of the analyser's document is told: one line an operation, its name and its arguments.

#pragma once

#include <functional>
#include <sstream>
#include <string>

#include "config/doc5500.h"

struct Doc5500Recorder : Doc5500::Listener {
  template <typename... Values>
  void Log(const char* name, const Values&... values) {
    log << name;
    ((log << ' ' << values), ...);
    log << '\n';
    if (then) then(name);
  }
  void GotTempRange(TempRange range) override { Log("GotTempRange", int(range)); }
  void GotOutputRate(int rate) override { Log("GotOutputRate", rate); }
  void GotCalCH4ZeroCmd() override { Log("GotCalCH4ZeroCmd"); }
  void GotCalCH4SpanCmd(float concentration) override { Log("GotCalCH4SpanCmd", concentration); }
  void GotCalCommitCmd() override { Log("GotCalCommitCmd"); }
  void GotCalRollbackCmd() override { Log("GotCalRollbackCmd"); }
  void GotCalAbortCmd() override { Log("GotCalAbortCmd"); }
  void GotCalChanged() override { Log("GotCalChanged"); }
  void GotPollCmd() override { Log("GotPollCmd"); }
  void GotPollTestCmd() override { Log("GotPollTestCmd"); }
  void GotLineLockCmd() override { Log("GotLineLockCmd"); }
  void GotLogUSBStartCmd() override { Log("GotLogUSBStartCmd"); }
  void GotLogUSBStopCmd() override { Log("GotLogUSBStopCmd"); }
  void GotTopHeaterConfig(int power, Control control, float delta, int on, int off) override {
    Log("GotTopHeaterConfig", power, int(control), delta, on, off);
  }
  void GotBottomHeaterConfig(int power, Control control, int level, int on, int off) override {
    Log("GotBottomHeaterConfig", power, int(control), level, on, off);
  }
  void GotSpinMotorConfig(Control control, int level, int on, int off, int duration, int repeat) override {
    Log("GotSpinMotorConfig", int(control), level, on, off, duration, repeat);
  }
  void GotLineLockConfig(LC_Control cooler, float temp, uint16_t count, BT_Control block, float block_temp,
                         uint16_t block_count) override {
    Log("GotLineLockConfig", int(cooler), temp, count, int(block), block_temp, block_count);
  }
  void GotClockSetting(long seconds) override { Log("GotClockSetting", seconds); }
  void GotTimezoneSetting(std::string zone) override { Log("GotTimezoneSetting", zone); }
  void GotPTPSetting(int index) override { Log("GotPTPSetting", index); }
  void GotNetworkSetting(std::string name, bool automatic, const SocketAddress& address, const SocketAddress& netmask,
                         const SocketAddress& gateway) override {
    Log("GotNetworkSetting", name, automatic, address.Presentation(), netmask.Presentation(), gateway.Presentation());
  }
  void GotAuxConfig(int number, AuxType type, float a0, float a1, float a2, float a3) override {
    Log("GotAuxConfig", number, int(type), a0, a1, a2, a3);
  }
  void GotFactoryChanged() override { Log("GotFactoryChanged"); }
  void GotFactoryCommitCmd() override { Log("GotFactoryCommitCmd"); }
  void GotFactoryRollbackCmd() override { Log("GotFactoryRollbackCmd"); }
  void GotRebootCmd() override { Log("GotRebootCmd"); }
  void StaticConfigChanged() override { Log("StaticConfigChanged"); }
  std::ostringstream log;
  std::function<void(std::string)> then;
};
