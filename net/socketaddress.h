// One value type for every endpoint the system meets: IPv4, IPv6, Unix-domain and netlink.
//
// It turns text into addresses and back, resolves host names, and does the little subnet arithmetic of the network
// settings. It knows nothing of sockets, so that configuration items can hold addresses without them.
//
// The storage is the system's own record (ip(7), ipv6(7), unix(7), netlink(7)), so an address goes to the system as it
// stands. Invariant: the storage is zeroed before it is given a family. Comparison looks at raw bytes and rests on it.
// The operations that promise to leave the rest as it was also do so when they change the family: Reset() first, where
// the result is to be compared with a fresh address.
//
// Every operation that has a rule for each family throws SocketError "SocketAddress: unknown socket family" for any
// other one. What throws leaves the address as it was.
//
// A plain value, usable on any thread.

#pragma once

#include <linux/netlink.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "runtime/errnoexcept.h"

// Stands here and not in Socket, so that an address needs no socket; Socket calls it Socket::Family. Converts to int.
enum SocketFamily : int {
  FamilyUnix = AF_UNIX,
  FamilyIPv4 = AF_INET,
  FamilyIPv6 = AF_INET6,
  FamilyNetlink = AF_NETLINK
};

// What is wrong with an address or a socket without a system error behind it.
class SocketError : public StreamFileBaseError {
 public:
  using StreamFileBaseError::StreamFileBaseError;
};

class HostNotFound : public SocketError {
 public:
  using SocketError::SocketError;
};

class SocketAddress {
 public:
  using enum SocketFamily;

  // Of IPv4 and IPv6, with port 0 and scope 0.
  explicit SocketAddress(const in_addr& address);
  explicit SocketAddress(const in6_addr& address);
  // Of netlink: the port id (the process, as a rule) and the mask of multicast groups.
  SocketAddress(int pid, unsigned int groups);
  // As Assign(), Reset() and Presentation() do it, on zeroed storage.
  explicit SocketAddress(const sockaddr& address);
  explicit SocketAddress(SocketFamily family);
  explicit SocketAddress(const std::string& text);
  // Resolves with Name(); the port is 0.
  SocketAddress(const std::string& host, SocketFamily family);

  SocketFamily Family() const { return static_cast<SocketFamily>(_storage.any.ss_family); }

  // Copies the whole record, which has to be as long as its family says; only of a Unix address it takes the family
  // alone and leaves the path empty. That is meant.
  void Assign(const sockaddr& address);
  // These set the family and the address; port, scope and everything else stay.
  void Assign(const in_addr& address);
  void Assign(const in6_addr& address);
  // The wildcard address of the family, with port 0.
  void Reset(SocketFamily family);
  // The wildcard address of the family it has: empty path, 0.0.0.0 or ::. Netlink, and any port, stays as it is.
  void Wildcard();

  // In host byte order. Unix and netlink have none: there the setter does nothing and the getter gives 0.
  void Port(int port);
  int Port() const;

  // IPv6 scope: the index of the interface a link-local address belongs to. The other families have none, as above.
  void Scope(unsigned int scope);
  unsigned int Scope() const;

  // 169.254.0.0/16 (RFC 3927), and fe80::/16: narrower than RFC 4291's fe80::/10, on purpose.
  bool IsLinkLocal() const;

  // The path, dotted form, the form of RFC 5952, or "NetLink Socket"; never with a port.
  std::string Presentation() const;
  // Sets family and address from text, as inet_pton(3) reads it; a port that was set survives. Text with a "/" is a
  // Unix path, of which the first 107 characters up to a NUL count. Any other text that isn't an address throws
  // SocketError "SocketAddress: illegal address " and the text.
  void Presentation(const std::string& text);

  // Takes the first address of the host that getaddrinfo(3) gives for a stream or datagram socket. Blocks as long as
  // the resolver does. Throws HostNotFound.
  void Name(const std::string& host, SocketFamily family);

  // The leading one bits of an IPv4 address seen as a mask, whatever follows them; 0 for the other families.
  unsigned int NetmaskPrefixLen() const;
  // Makes an IPv4 address the mask with 1 to 32 leading ones. Any other length, and any other family, clears the 32
  // bits where an IPv4 address would stand.
  void NetmaskPrefixLen(unsigned int bits);

  // The broadcast address of an IPv4 subnet, with port 0; for the other families their wildcard address.
  SocketAddress Broadcast(const SocketAddress& mask) const;

  // Port and scope count. Of Unix addresses the longer path decides how many bytes are compared.
  bool operator==(const SocketAddress& other) const;
  bool operator!=(const SocketAddress& other) const { return !(*this == other); }
  // By family number, then byte by byte.
  bool operator<(const SocketAddress& other) const;

  // For system calls: the record, its length as the family has it, and the size of the storage behind it.
  const sockaddr* _SockAddr() const { return &_storage.generic; }
  sockaddr* _SockAddr() { return &_storage.generic; }
  socklen_t _SockLen() const;
  static constexpr socklen_t _StorageLen() { return sizeof(sockaddr_storage); }

 private:
  void _Clear(SocketFamily family);
  int _Compare(const SocketAddress& other) const;

  union {
    sockaddr_storage any;
    sockaddr generic;
    sockaddr_un local;
    sockaddr_in ipv4;
    sockaddr_in6 ipv6;
    sockaddr_nl netlink;
  } _storage;
};
