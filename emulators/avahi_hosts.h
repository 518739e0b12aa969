// Two hosts joined by a network cable, each with a system bus and a real Avahi daemon of its own, in namespaces out of
// which nothing gets. Time is real here.
//
// The program itself is on whichever host Use() has named last, as far as the bus goes: a BonjourClient belongs to that
// host for its whole life. Sockets belong to the host in whose network they were made, see InNetwork().
//
//   if (const std::string why = AvahiHosts::Missing(); !why.empty()) GTEST_SKIP() << why;
//
// All other programs die with it. Errors throw std::runtime_error with what the program in question has printed.

#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "emulators/temp_directory.h"

class AvahiHosts {
 public:
  // What this machine lacks for it; empty when nothing.
  static std::string Missing();

  // From now on clients find no bus at all. Needs no rights.
  static void UseNone();

  AvahiHosts();
  ~AvahiHosts();

  // Hosts are 0 and 1. Host 0 is the one in use at first.
  void Use(int host) const;

  // Calls `body` in the network of that host, where the end of the cable is "eth0".
  void InNetwork(int host, const std::function<void()>& body) const;
  // Its addresses as text, and the host's name.
  static std::string IPv4(int host) { return "10.77.0." + std::to_string(host + 1); }
  static std::string LinkLocal(int host) { return "fe80::77:" + std::to_string(host + 1); }
  static std::string Name(int host) { return "moorlog-" + std::to_string(host); }
  // A name that its daemon gives for a global IPv6 address, which is on no interface.
  static constexpr const char* kFarName = "far.local";
  static constexpr const char* kFarAddress = "2001:db8::7";
  // The host gets the addresses of the given number instead of its own, without a word from its services.
  void Readdress(int host, int number) const;

  // Puts a service that no program registers into the daemon's folder, or takes it out again. TXT strings as they are,
  // in which all behind a "=" is given in hexadecimal digits: "key=414243". `at`: the host the service is on, the
  // publishing one if empty.
  void Publish(int host, const std::string& name, const std::string& type, int port,
               const std::vector<std::string>& txt, const std::string& at = {}) const;
  void Withdraw(int host, const std::string& name) const;

  // The daemon says goodbye, and can be started again; the bus just goes away. Both run at first.
  void StopDaemon(int host);
  void StartDaemon(int host);
  void StopBus(int host);

 private:
  struct Program;

  struct Host {
    std::string folder;                // what the host has in /etc/avahi, and its bus
    std::unique_ptr<Program> machine;  // does nothing, and keeps the namespaces
    std::unique_ptr<Program> bus;
    std::unique_ptr<Program> daemon;
  };

  std::string _On(int host) const;
  void _LaunchDaemon(int host);

  TempDirectory _folder;
  std::vector<Host> _hosts;
};
