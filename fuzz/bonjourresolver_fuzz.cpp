// The table of found services beside a plain list, through any order of arrivals and departures.
//
// Input: two bytes for each event.

#include <strings.h>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "net/bonjourclient.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) std::abort()

const std::string kNames[] = {"one", "ONE", "two", "Two"};
const std::string kTypes[] = {"_a._tcp", "_b._tcp", "_c._tcp", "_A._tcp"};
const SocketAddress kAddresses[] = {SocketAddress("fe80::2"), SocketAddress("10.77.0.2"), SocketAddress("fe80::1"),
                                    SocketAddress("10.77.0.1")};

struct Plain {
  std::vector<BonjourResolver::HostInfo> hosts;
  std::set<std::string> types, names;
  bool changed = false;

  void Add(const BonjourResolver::HostInfo& host) {
    if (types.contains(host.type)) {
      names.insert(host.name);
      return Remove(host.name);
    }
    if (names.contains(host.name)) return;
    changed = true;
    for (auto& known : hosts)
      if (known.name == host.name)
        return static_cast<void>(known.addresses.insert(host.addresses.begin(), host.addresses.end()));
    hosts.push_back(host);
  }
  void Remove(const std::string& name) {
    for (size_t i = 0; i < hosts.size(); ++i)
      if (hosts[i].name == name) {
        hosts.erase(hosts.begin() + static_cast<long>(i));
        changed = true;
        return;
      }
  }
};

bool Same(const BonjourResolver::HostInfo& left, const BonjourResolver::HostInfo& right) {
  return left.name == right.name && left.type == right.type && left.domain == right.domain &&
         left.interface == right.interface && left.host == right.host && left.addresses == right.addresses &&
         left.txt == right.txt;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  BonjourResolver table;
  Plain plain;
  for (size_t i = 0; i + 1 < size; i += 2) {
    const unsigned int deed = data[i] & 15U, detail = data[i + 1];
    const std::string &name = kNames[detail & 3], &type = kTypes[detail >> 2 & 3];
    const SocketAddress& address = kAddresses[detail >> 4 & 3];
    const std::string other = std::to_string(data[i] >> 4);
    if (deed == 0) {
      table.ExcludeType(type);
      plain.types.insert(type);
    } else if (deed < 5) {
      table.RemoveService(name, type, other);
      plain.Remove(name);
    } else {
      table.AddService(name, type, "domain" + other, data[i], "host" + other, address, {{"key", other}});
      plain.Add({name, type, "domain" + other, data[i], "host" + other, {address}, {{"key", other}}});
    }
    REQUIRE(table.Changed() == plain.changed && table.Hosts().size() == plain.hosts.size());
    size_t index = 0;
    for (const auto& host : table.Hosts()) REQUIRE(Same(*host, plain.hosts[index++]));
    for (const std::string& wanted : kNames) {
      const BonjourResolver::HostInfo* first = nullptr;
      for (const auto& host : plain.hosts)
        if (first == nullptr && strcasecmp(host.name.c_str(), wanted.c_str()) == 0) first = &host;
      const BonjourResolver::HostInfo* found = table.Lookup(wanted);
      REQUIRE((found == nullptr) == (first == nullptr));
      if (found != nullptr) REQUIRE(Same(*found, *first));
    }
  }
  return 0;
}
