#include "net/bonjourclient.h"

#include <avahi-common/address.h>
#include <avahi-common/error.h>

#include <cstring>
#include <limits>
#include <utility>

#include "net/avahipoll.h"
#include "net/bonjourclientimpl.h"

namespace {

constexpr const char* kDomain = "local";

// Whether the bus takes these bytes as a string (RFC 3629, without NUL). With others it ends the process.
bool IsBusText(const std::string& text) {
  static constexpr unsigned int kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // code point by length
  for (size_t i = 0; i < text.size();) {
    const unsigned int lead = static_cast<unsigned char>(text[i]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 0;
    if (lead == 0 || length == 0 || length > text.size() - i) return false;
    unsigned int code = length == 1 ? lead : lead & (0x7FU >> length);
    for (size_t k = 1; k < length; ++k) {
      const unsigned int next = static_cast<unsigned char>(text[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = code << 6 | (next & 0x3F);
    }
    if (code < kLeast[length] || code > 0x10FFFF || (code >= 0xD800 && code < 0xE000)) return false;
    i += length;
  }
  return true;
}

SocketAddress AddressOf(const AvahiAddress& answer, AvahiIfIndex interface, uint16_t port) {
  SocketAddress address(SocketAddress::FamilyIPv4);
  if (answer.proto == AVAHI_PROTO_INET6) {
    in6_addr bytes;
    static_assert(sizeof bytes == sizeof answer.data.ipv6.address);
    std::memcpy(&bytes, answer.data.ipv6.address, sizeof bytes);
    address = SocketAddress(bytes);
    if (address.IsLinkLocal()) address.Scope(static_cast<unsigned int>(interface));
  } else {
    address = SocketAddress(in_addr{answer.data.ipv4.address});
  }
  address.Port(port);
  return address;
}

std::map<std::string, std::string> TxtPairs(AvahiStringList* list) {
  std::map<std::string, std::string> pairs;
  for (; list != nullptr; list = avahi_string_list_get_next(list)) {
    const std::string text(reinterpret_cast<const char*>(avahi_string_list_get_text(list)),
                           avahi_string_list_get_size(list));
    const size_t equals = text.find('=');
    if (equals != std::string::npos) pairs[text.substr(0, equals)] = text.substr(equals + 1);
  }
  return pairs;
}

}  // namespace

void BonjourClientListener::ServiceRegistered(std::string, std::string, std::string) {}

void BonjourClientListener::ServiceError(std::string) {}

void _AvahiStringList::AddString(const std::string& text) {
  if (text.empty()) return;
  _list = avahi_string_list_add_arbitrary(_list, reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

// Each operation that may call the listener starts with an AvahiCall, so that this object outlives the call even if
// the listener destroys the client.

BonjourClientImpl::~BonjourClientImpl() {
  _Withdraw();
  // Frees its browsers and resolvers with it.
  if (_client != nullptr) avahi_client_free(_client);
}

void BonjourClientImpl::Retire(std::unique_ptr<BonjourClientImpl> impl) {
  // At once: the daemon would refuse the same names to the next life. No frame of the library works on the group now.
  impl->_Withdraw();
  AvahiCall::Bury(std::move(impl));
}

void BonjourClientImpl::Open() {
  const AvahiCall call;
  if (_listener == nullptr) return;
  _client = avahi_client_new(_avahi_poll_get(), AvahiClientFlags{}, _ClientChanged, this, nullptr);
  if (_client == nullptr) _Error("Unable to create Avahi client\n");
}

void BonjourClientImpl::Browse(const std::string& type) {
  const AvahiCall call;
  if (_client == nullptr) return;
  if (!IsBusText(type) || avahi_service_browser_new(_client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, type.c_str(), kDomain,
                                                    AvahiLookupFlags{}, _Browsed, this) == nullptr)
    _Error("Unable to browse service type: " + type);
}

void BonjourClientImpl::Register(const std::string& name, const std::string& type, int port,
                                 const std::map<std::string, std::string>& txt, bool commit) {
  const AvahiCall call;
  if (_client == nullptr) return;
  if (_group == nullptr) _group = avahi_entry_group_new(_client, _GroupChanged, this);
  if (_group == nullptr) return;
  _AvahiStringList strings;
  for (const auto& [key, value] : txt) strings.AddString(std::string(key).append("=").append(value));
  if (!IsBusText(name) || !IsBusText(type) || port < 0 || port > std::numeric_limits<uint16_t>::max() ||
      avahi_entry_group_add_service_strlst(_group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, AvahiPublishFlags{},
                                           name.c_str(), type.c_str(), kDomain, nullptr, static_cast<uint16_t>(port),
                                           strings.Get()) < 0)
    _Error("Unable to add service type: " + type);
  if (commit) Commit();
}

void BonjourClientImpl::Commit() {
  const AvahiCall call;
  if (_group != nullptr && avahi_entry_group_commit(_group) < 0) _Error("Unable to register services");
}

// Neither the state of the daemon nor that of the registrations is followed, on purpose.
void BonjourClientImpl::_ClientChanged(AvahiClient*, AvahiClientState, void*) {}

void BonjourClientImpl::_GroupChanged(AvahiEntryGroup*, AvahiEntryGroupState, void*) {}

void BonjourClientImpl::_Browsed(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                                 AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                                 AvahiLookupResultFlags, void* impl) {
  AvahiCall::Guard([=] {
    auto& self = *static_cast<BonjourClientImpl*>(impl);
    if (event == AVAHI_BROWSER_NEW) {
      if (avahi_service_resolver_new(self._client, interface, protocol, name, type, domain, protocol,
                                     AvahiLookupFlags{}, _Resolved, impl) == nullptr)
        self._Error(std::string("Unable to resolve service: ") + name);
    } else if (event == AVAHI_BROWSER_REMOVE) {
      self._listener->RemoveService(name, type, domain);
    }
  });
}

void BonjourClientImpl::_Resolved(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol,
                                  AvahiResolverEvent event, const char* name, const char* type, const char* domain,
                                  const char* host, const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                                  AvahiLookupResultFlags, void* impl) {
  AvahiCall::Guard([=] {
    auto& self = *static_cast<BonjourClientImpl*>(impl);
    if (event == AVAHI_RESOLVER_FOUND)
      self._listener->AddService(name, type, domain, static_cast<unsigned int>(interface), host,
                                 AddressOf(*address, interface, port), TxtPairs(txt));
    else
      self._Error(std::string("Unable to resolve service: ") + name + ": " +
                  avahi_strerror(avahi_client_errno(self._client)) + "\n");
  });
  // Each event resolves once, on purpose: what changes behind a name that stays is not heard of.
  avahi_service_resolver_free(resolver);
}

void BonjourClientImpl::_Withdraw() {
  if (_group != nullptr) avahi_entry_group_free(std::exchange(_group, nullptr));
}

void BonjourClientImpl::_Error(const std::string& message) {
  _listener->ServiceError(message);
}

BonjourClient::BonjourClient(BonjourClientListener* listener)
    : _listener(listener), _impl(std::make_unique<BonjourClientImpl>(listener)) {
  _impl->Open();
}

BonjourClient::~BonjourClient() {
  BonjourClientImpl::Retire(std::move(_impl));
}

void BonjourClient::Browse(const std::string& type) {
  _impl->Browse(type);
}

void BonjourClient::Register(const std::string& name, const std::string& type, const std::string&, int port,
                             const std::map<std::string, std::string>& txt, bool commit) {
  _impl->Register(name, type, port, txt, commit);
}

void BonjourClient::Commit() {
  _impl->Commit();
}

void BonjourClient::Clear() {
  BonjourClientImpl::Retire(std::exchange(_impl, std::make_unique<BonjourClientImpl>(_listener)));
  _impl->Open();
}

void BonjourClient::Confirm(const std::string&, const SocketAddress&) {}

void BonjourClient::Debug() {}
