// Shows the network interfaces of this host, and the bridges among them.
//
//   interfaces                       once
//   interfaces --watch               every second, until interrupted
//   interfaces --watch --seconds 10
//
// To have a bridge to look at, as root: ip link add br0 type bridge && ip link set br0 up

#include <iostream>
#include <string>
#include <vector>

#include "examples/commandline.h"
#include "examples/timer.h"
#include "net/net_util.h"

namespace {

void Show(const NetworkBridge& bridge) {
  std::cout << ", bridge " << bridge.bridgeId << " of";
  for (const std::string& port : bridge.interfaces) std::cout << ' ' << port;
  if (bridge.interfaces.empty()) std::cout << " nothing";
  if (bridge.topologyChange || bridge.topologyChangeDetected)
    std::cout << ", its topology changes (timer " << bridge.topologyChangeTimer << ')';
}

void Show(const NetworkInterface& interface) {
  std::cout << interface.name << ": ";
  if (!interface.up) {
    std::cout << "down";
  } else {
    std::cout << "index " << interface.index << (interface.running ? ", running" : ", up, not running") << ", "
              << (interface.hasAddress ? interface.address.Presentation() : "no IPv4 address");
    if (!interface.hardwareAddress.empty()) std::cout << ", " << interface.hardwareAddress;
    if (interface.isBridgeMember) std::cout << ", port of " << interface.bridgeName;
  }
  // A bridge that is down is there all the same.
  NetworkBridge bridge;
  bridge.name = interface.name;
  bridge.Refresh();
  if (bridge.exists) Show(bridge);
  std::cout << '\n';
}

int ShowAll() {
  std::vector<std::string> names;
  EnumNetworkInterfaces(names);
  NetworkInterface interface;
  for (const std::string& name : names) {
    interface.name = name;
    interface.Refresh();
    Show(interface);
  }
  std::cout.flush();
  return static_cast<int>(names.size());
}

}  // namespace

int main(int argc, char** argv) {
  CommandLine line("Shows the network interfaces of this host, and the bridges among them.");
  bool watch = false;
  int seconds = 0;
  line.add_flag("--watch", watch, "show them every second");
  line.AddSeconds(seconds);
  line.Read(argc, argv);
  try {
    int shown = ShowAll();
    if (watch) {
      Timer second(1'000, [&] {
        second.AddTimeout(1'000);
        std::cout << '\n';
        shown += ShowAll();
      });
      RunLoop(seconds);
    }
    return LastLine({{"interfaces", shown}});
  } catch (const NetworkError& error) {
    std::cerr << "ERROR: " << error.what() << std::endl;
    return 1;
  }
}
