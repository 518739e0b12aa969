#include "net/socketaddress.h"

#include <arpa/inet.h>
#include <netdb.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kPathOffset = offsetof(sockaddr_un, sun_path);
constexpr std::size_t kPathMax = sizeof(sockaddr_un::sun_path) - 1;

[[noreturn]] void ThrowUnknownFamily() {
  throw SocketError("SocketAddress: unknown socket family");
}

void CheckFamily(SocketFamily family) {
  switch (family) {
    case SocketFamily::FamilyUnix:
    case SocketFamily::FamilyIPv4:
    case SocketFamily::FamilyIPv6:
    case SocketFamily::FamilyNetlink:
      return;
  }
  ThrowUnknownFamily();
}

// The path of the system may fill its field without a terminating zero.
std::size_t PathLength(const sockaddr_un& address) {
  return ::strnlen(address.sun_path, sizeof address.sun_path);
}

}  // namespace

SocketAddress::SocketAddress(const in_addr& address) {
  _Clear(FamilyIPv4);
  _storage.ipv4.sin_addr = address;
}

SocketAddress::SocketAddress(const in6_addr& address) {
  _Clear(FamilyIPv6);
  _storage.ipv6.sin6_addr = address;
}

SocketAddress::SocketAddress(int pid, unsigned int groups) {
  _Clear(FamilyNetlink);
  _storage.netlink.nl_pid = static_cast<unsigned int>(pid);
  _storage.netlink.nl_groups = groups;
}

SocketAddress::SocketAddress(const sockaddr& address) {
  Assign(address);
}

SocketAddress::SocketAddress(SocketFamily family) {
  Reset(family);
}

SocketAddress::SocketAddress(const std::string& text) {
  _Clear({});
  Presentation(text);
}

SocketAddress::SocketAddress(const std::string& host, SocketFamily family) {
  Name(host, family);
  Port(0);
}

void SocketAddress::_Clear(SocketFamily family) {
  std::memset(&_storage, 0, sizeof _storage);
  _storage.any.ss_family = static_cast<sa_family_t>(family);
}

void SocketAddress::Assign(const sockaddr& address) {
  SocketAddress fresh(static_cast<SocketFamily>(address.sa_family));
  // The length is that of the fresh target: nothing but the family for a Unix address.
  std::memcpy(&fresh._storage, &address, fresh._SockLen());
  *this = fresh;  // which may be where the address comes from
}

void SocketAddress::Assign(const in_addr& address) {
  _storage.ipv4.sin_family = AF_INET;
  _storage.ipv4.sin_addr = address;
}

void SocketAddress::Assign(const in6_addr& address) {
  _storage.ipv6.sin6_family = AF_INET6;
  _storage.ipv6.sin6_addr = address;
}

void SocketAddress::Reset(SocketFamily family) {
  CheckFamily(family);
  _Clear(family);
  Wildcard();
}

void SocketAddress::Wildcard() {
  switch (Family()) {
    case FamilyUnix:
      std::memset(_storage.local.sun_path, 0, sizeof _storage.local.sun_path);
      return;
    case FamilyIPv4:
      _storage.ipv4.sin_addr.s_addr = htonl(INADDR_ANY);
      return;
    case FamilyIPv6:
      _storage.ipv6.sin6_addr = in6addr_any;
      return;
    case FamilyNetlink:
      return;
  }
  ThrowUnknownFamily();
}

void SocketAddress::Port(int port) {
  const in_port_t network = htons(static_cast<in_port_t>(port));
  switch (Family()) {
    case FamilyIPv4:
      _storage.ipv4.sin_port = network;
      return;
    case FamilyIPv6:
      _storage.ipv6.sin6_port = network;
      return;
    case FamilyUnix:
    case FamilyNetlink:
      return;
  }
  ThrowUnknownFamily();
}

int SocketAddress::Port() const {
  switch (Family()) {
    case FamilyIPv4:
      return ntohs(_storage.ipv4.sin_port);
    case FamilyIPv6:
      return ntohs(_storage.ipv6.sin6_port);
    case FamilyUnix:
    case FamilyNetlink:
      return 0;
  }
  ThrowUnknownFamily();
}

void SocketAddress::Scope(unsigned int scope) {
  CheckFamily(Family());
  if (Family() == FamilyIPv6) _storage.ipv6.sin6_scope_id = scope;
}

unsigned int SocketAddress::Scope() const {
  CheckFamily(Family());
  return Family() == FamilyIPv6 ? _storage.ipv6.sin6_scope_id : 0;
}

bool SocketAddress::IsLinkLocal() const {
  switch (Family()) {
    case FamilyIPv4:
      return ntohl(_storage.ipv4.sin_addr.s_addr) >> 16 == 0xA9FE;
    case FamilyIPv6:
      return _storage.ipv6.sin6_addr.s6_addr[0] == 0xFE && _storage.ipv6.sin6_addr.s6_addr[1] == 0x80;
    case FamilyUnix:
    case FamilyNetlink:
      return false;
  }
  ThrowUnknownFamily();
}

std::string SocketAddress::Presentation() const {
  char text[INET6_ADDRSTRLEN];
  switch (Family()) {
    case FamilyUnix:
      return {_storage.local.sun_path, PathLength(_storage.local)};
    case FamilyIPv4:
      return ::inet_ntop(AF_INET, &_storage.ipv4.sin_addr, text, sizeof text);
    case FamilyIPv6:
      if (::inet_ntop(AF_INET6, &_storage.ipv6.sin6_addr, text, sizeof text) == nullptr)
        throw SocketError("SocketAddress: bad IPv6 address");
      return text;
    case FamilyNetlink:
      return "NetLink Socket";
  }
  ThrowUnknownFamily();
}

void SocketAddress::Presentation(const std::string& text) {
  if (text.find('/') != std::string::npos) {
    _storage.local.sun_family = AF_UNIX;
    // Fills up with zeros, so that nothing of an older path stays behind the new one.
    std::strncpy(_storage.local.sun_path, text.c_str(), kPathMax);
    _storage.local.sun_path[kPathMax] = '\0';
    return;
  }
  // A NUL inside would end the text for inet_pton too early and let the rest of it pass unseen.
  if (text.find('\0') == std::string::npos) {
    if (text.find(':') != std::string::npos) {
      in6_addr address;
      if (::inet_pton(AF_INET6, text.c_str(), &address) == 1) return Assign(address);
    } else {
      in_addr address;
      if (::inet_pton(AF_INET, text.c_str(), &address) == 1) return Assign(address);
    }
  }
  throw SocketError("SocketAddress: illegal address " + text);
}

void SocketAddress::Name(const std::string& host, SocketFamily family) {
  addrinfo hints{};
  hints.ai_family = family;
  addrinfo* list = nullptr;
  const int error = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
  if (error != 0) throw HostNotFound("SocketAddress: " + host + " not found: " + ::gai_strerror(error));

  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, ::freeaddrinfo);
  for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next)
    if (entry->ai_socktype == SOCK_STREAM || entry->ai_socktype == SOCK_DGRAM) return Assign(*entry->ai_addr);
  throw HostNotFound("SocketAddress: " + host + " not found");
}

unsigned int SocketAddress::NetmaskPrefixLen() const {
  CheckFamily(Family());
  if (Family() != FamilyIPv4) return 0;
  return static_cast<unsigned int>(std::countl_one(ntohl(_storage.ipv4.sin_addr.s_addr)));
}

void SocketAddress::NetmaskPrefixLen(unsigned int bits) {
  CheckFamily(Family());
  const bool mask = Family() == FamilyIPv4 && bits >= 1 && bits <= 32;
  _storage.ipv4.sin_addr.s_addr = mask ? htonl(0xFFFFFFFFU << (32 - bits)) : 0;
}

SocketAddress SocketAddress::Broadcast(const SocketAddress& mask) const {
  SocketAddress result(Family());
  if (Family() == FamilyIPv4) {
    const in_addr_t bits = mask._storage.ipv4.sin_addr.s_addr;
    result._storage.ipv4.sin_addr.s_addr = (_storage.ipv4.sin_addr.s_addr & bits) | ~bits;
  }
  return result;
}

socklen_t SocketAddress::_SockLen() const {
  switch (Family()) {
    case FamilyUnix:
      return static_cast<socklen_t>(kPathOffset + PathLength(_storage.local));
    case FamilyIPv4:
      return sizeof(sockaddr_in);
    case FamilyIPv6:
      return sizeof(sockaddr_in6);
    case FamilyNetlink:
      return sizeof(sockaddr_nl);
  }
  ThrowUnknownFamily();
}

// Only within one family. Over the longer length, so that a path is never taken for the longer one it begins.
int SocketAddress::_Compare(const SocketAddress& other) const {
  return std::memcmp(&_storage, &other._storage, std::max(_SockLen(), other._SockLen()));
}

bool SocketAddress::operator==(const SocketAddress& other) const {
  return Family() == other.Family() && _Compare(other) == 0;
}

bool SocketAddress::operator<(const SocketAddress& other) const {
  if (Family() != other.Family()) return _storage.any.ss_family < other._storage.any.ss_family;
  return _Compare(other) < 0;
}
