// The name of this host, and what its network looks like: interfaces and bridges, as the kernel's sysfs tree
// ("/sys/class/net/") and the requests of netdevice(7) show them. Only SetHostname changes anything.
//
// The calls look when they are called and keep nothing. They block for no longer than a local system call.
// On the thread of the poll loop, but for the two functions on the host's name.

#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "net/socketaddress.h"

// At most 127 characters of the host's name; empty if it can't be read.
std::string Hostname();

// Until the next start only. False without the right to, or for a name that the system refuses.
bool SetHostname(const std::string& name);

// The interfaces can't be listed. That one can't be asked about is no error: it shows nothing.
class NetworkError : public std::runtime_error {
 public:
  explicit NetworkError(const std::string& text);
  // With ": " and the system's words for the error number (strerror(3)).
  NetworkError(const std::string& text, int error);
};

// Appends the names of all interfaces, up or down, sorted and each once; what was in the vector stays in front. The
// labels of further addresses ("eth0:1") are among them, as the system lists them. Throws NetworkError.
void EnumNetworkInterfaces(std::vector<std::string>& names);

// The file is there; its first word, such as "8000.0242ac110002", goes to `identifier`, which may be nullptr and is
// empty otherwise. `path` is below "/sys/class/net/": the name of an interface, or one followed by "/brport/bridge" for
// the bridge that it is a port of.
bool _BridgeExists(const std::string& path, std::string* identifier);

// What Refresh() could not learn is false, 0 or empty. An interface that is down shows nothing at all, not even its
// hardware address, and neither does one that isn't there: so it is for any name of more than 15 characters.
struct NetworkInterface {
  std::string name;  // the caller's

  bool up = false;
  bool running = false;  // has a carrier; the kernel takes a moment to notice
  bool hasAddress = false;
  int index = 0;  // from 1; that of its interface for a label
  SocketAddress address{SocketAddress::FamilyIPv4};
  std::string hardwareAddress;  // "02:42:ac:11:00:02", the first six bytes
  bool isBridge = false;
  bool isBridgeMember = false;  // a port of the bridge below
  std::string bridgeName;       // the first that has the identifier of the port's bridge

  // Throws NetworkError, with what was learned by then, if the interfaces can't be listed to find the bridge.
  void Refresh();
};

struct NetworkBridge {
  std::string name;  // the caller's

  bool exists = false;
  std::string bridgeId;  // priority and hardware address (IEEE 802.1D), "8000.0242ac110002"
  std::vector<std::string> interfaces;
  // Of the spanning tree, as the kernel has them (Documentation/ABI/testing/sysfs-class-net of Linux).
  bool topologyChange = false;
  bool topologyChangeDetected = false;
  int topologyChangeTimer = 0;

  // Throws NetworkError if the ports can't be listed.
  void Refresh();
};
