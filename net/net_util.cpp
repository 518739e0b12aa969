#include "net/net_util.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <set>
#include <system_error>

#include "net/socket.h"
#include "runtime/filesystem.h"

namespace {

const std::string kNetworkTree = "/sys/class/net/";
constexpr int kFirstAddressList = 960;  // bytes

// Requests of netdevice(7), each about an interface by its name. Without a socket all of them fail.
class Control {
 public:
  Control() {
    try {
      _socket.Open(Socket::FamilyIPv4, Socket::TypeDatagram, 0);
    } catch (const ErrnoError&) {
    }
  }

  std::optional<ifreq> Ask(unsigned long request, const std::string& name) const {
    ifreq record = {};
    // Cut to fit it would be the name of another one.
    if (name.size() >= sizeof record.ifr_name) return {};
    name.copy(record.ifr_name, name.size());
    if (::ioctl(_socket.Fileno(), request, &record) != 0) return {};
    return record;
  }

  // Empty when it fails.
  std::vector<ifreq> Addresses() const {
    for (std::vector<ifreq> records(kFirstAddressList / sizeof(ifreq));; records.resize(records.size() * 2)) {
      const int size = static_cast<int>(records.size() * sizeof(ifreq));
      ifconf list = {};
      list.ifc_len = size;
      list.ifc_req = records.data();
      if (::ioctl(_socket.Fileno(), SIOCGIFCONF, &list) != 0) return {};
      if (list.ifc_len == size) continue;  // there may be more
      records.resize(list.ifc_len / sizeof(ifreq));
      return records;
    }
  }

 private:
  Socket _socket;
};

// The links and directories in a directory, in the system's order.
std::vector<std::string> List(const std::string& path) {
  _DirList entries(path);
  if (!entries.IsOpen()) {
    const int error = errno;
    throw NetworkError("Unable to list directory contents of: " + path, error);
  }
  std::vector<std::string> names;
  std::string name;
  for (int type = DT_UNKNOWN; entries.GetNextEntry(name, &type);)
    if ((type == DT_LNK || type == DT_DIR) && name[0] != '.') names.push_back(name);
  return names;
}

// False, and `value` as it was, if there is none.
template <typename Value>
bool ReadFile(const std::string& path, Value& value) {
  std::ifstream file;
  file.imbue(std::locale::classic());
  file.open(path);
  Value read = {};
  if (!(file >> read)) return false;
  value = read;
  return true;
}

template <typename Named>
Named OnlyNamed(const std::string& name) {
  Named fresh;
  fresh.name = name;
  return fresh;
}

std::string HexBytes(const char* bytes, size_t count) {
  static const char* const digits = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    const auto byte = static_cast<unsigned char>(bytes[i]);
    if (i > 0) text += ':';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

}  // namespace

std::string Hostname() {
  char name[128]{};  // the last byte stays zero, and all of them if there is no name
  // A longer name is cut, and reported as an error.
  (void)gethostname(name, sizeof name - 1);
  return name;
}

bool SetHostname(const std::string& name) {
  return sethostname(name.data(), name.size()) == 0;
}

NetworkError::NetworkError(const std::string& text) : std::runtime_error(text) {}

NetworkError::NetworkError(const std::string& text, int error)
    : std::runtime_error(text + ": " + std::generic_category().message(error)) {}

// No source shows everything: an interface that is down has no address, and a label has no entry in the tree.
void EnumNetworkInterfaces(std::vector<std::string>& names) {
  std::set<std::string> found;
  const std::unique_ptr<struct if_nameindex, decltype(&if_freenameindex)> indexed(if_nameindex(), if_freenameindex);
  if (!indexed) throw NetworkError("Unable to enumerate network interfaces");
  for (const auto* entry = indexed.get(); entry->if_name != nullptr; ++entry) found.insert(entry->if_name);
  for (const ifreq& record : Control().Addresses())
    found.emplace(record.ifr_name, strnlen(record.ifr_name, sizeof record.ifr_name));
  for (const std::string& name : List(kNetworkTree)) found.insert(name);
  names.insert(names.end(), found.begin(), found.end());
}

bool _BridgeExists(const std::string& path, std::string* identifier) {
  std::string word;
  const bool exists = ReadFile(kNetworkTree + path + "/bridge/bridge_id", word);
  if (identifier != nullptr) *identifier = word;
  return exists;
}

void NetworkInterface::Refresh() {
  *this = OnlyNamed<NetworkInterface>(name);
  const Control control;
  const auto flags = control.Ask(SIOCGIFFLAGS, name);
  if (!flags || (flags->ifr_flags & IFF_UP) == 0) return;
  up = true;
  index = static_cast<int>(if_nametoindex(name.c_str()));
  running = (flags->ifr_flags & IFF_RUNNING) != 0;
  if (const auto record = control.Ask(SIOCGIFADDR, name)) {
    hasAddress = true;
    address.Assign(record->ifr_addr);
  }
  if (const auto record = control.Ask(SIOCGIFHWADDR, name)) hardwareAddress = HexBytes(record->ifr_hwaddr.sa_data, 6);
  isBridge = _BridgeExists(name, nullptr);
  std::string mine, its;
  if (!_BridgeExists(name + "/brport/bridge", &mine)) return;
  for (const std::string& entry : List(kNetworkTree)) {
    if (!_BridgeExists(entry, &its) || its != mine) continue;
    isBridgeMember = true;
    bridgeName = entry;
    return;
  }
}

void NetworkBridge::Refresh() {
  *this = OnlyNamed<NetworkBridge>(name);
  if (!_BridgeExists(name, &bridgeId)) return;
  exists = true;
  const std::string tree = kNetworkTree + name;
  interfaces = List(tree + "/brif");
  const auto is_set = [&tree](const char* file) {
    int flag = 0;
    ReadFile(tree + "/bridge/" + file, flag);
    return flag != 0;
  };
  topologyChange = is_set("topology_change");
  topologyChangeDetected = is_set("topology_change_detected");
  ReadFile(tree + "/bridge/topology_change_timer", topologyChangeTimer);
}
