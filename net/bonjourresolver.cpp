#include <algorithm>
#include <utility>

#include "net/bonjourclient.h"
#include "runtime/str_util.h"

const BonjourResolver::HostInfo* BonjourResolver::Lookup(const std::string& name) const {
  for (const auto& host : _hosts)
    if (CaseInsensitiveStringCompare(host->name, name) == 0) return host.get();
  return nullptr;
}

void BonjourResolver::ExcludeType(const std::string& type) {
  _excluded_types.insert(type);
}

void BonjourResolver::AddService(std::string name, std::string type, std::string domain, unsigned int interface,
                                 std::string host, const SocketAddress& address,
                                 const std::map<std::string, std::string>& txt) {
  if (_excluded_types.contains(type)) {
    _excluded_names.insert(name);
    RemoveService(std::move(name), std::move(type), std::move(domain));
    return;
  }
  if (_excluded_names.contains(name)) return;
  _changed = true;
  const auto known = std::ranges::find(_hosts, name, [](const auto& info) { return info->name; });
  if (known != _hosts.end()) {
    (*known)->addresses.insert(address);
    return;
  }
  const auto& info = _hosts.emplace_back(std::make_shared<HostInfo>());
  info->name = std::move(name);
  info->type = std::move(type);
  info->domain = std::move(domain);
  info->interface = interface;
  info->host = std::move(host);
  info->addresses = {address};
  info->txt = txt;
}

void BonjourResolver::RemoveService(std::string name, std::string, std::string) {
  const auto gone = std::ranges::find(_hosts, name, [](const auto& info) { return info->name; });
  if (gone == _hosts.end()) return;
  _hosts.erase(gone);
  _changed = true;
}
