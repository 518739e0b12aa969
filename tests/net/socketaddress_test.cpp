#include "net/socketaddress.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <vector>

#include "tests/support/error_text.h"

// Texts and bytes are held against plain rules in fuzz/socketaddress_fuzz.cpp.

namespace {
std::vector<int> kinds;  // of the next answer's entries, the resolver's own if empty; the last byte tells them apart
bool unpresentable = false;
}  // namespace

extern "C" int __real_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** list);
extern "C" int __wrap_getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** list) {
  const int error = __real_getaddrinfo(host, service, hints, list);
  addrinfo* entry = *list;
  for (size_t i = 0; i < kinds.size() && error == 0; ++i, entry = entry->ai_next) {
    entry->ai_socktype = kinds[i];
    entry->ai_addr->sa_data[0] = 21;  // the port may be anything where no service is asked for
    entry->ai_addr->sa_data[5] = static_cast<char>(i);
  }
  return error;
}
extern "C" const char* __real_inet_ntop(int family, const void* address, char* text, socklen_t size);
extern "C" const char* __wrap_inet_ntop(int family, const void* address, char* text, socklen_t size) {
  return unpresentable ? nullptr : __real_inet_ntop(family, address, text, size);
}

namespace {

TEST(SocketAddress, IsMadeOfAddressesAndNames) {
  EXPECT_EQ("127.0.0.1", SocketAddress(in_addr{htonl(INADDR_LOOPBACK)}).Presentation());
  EXPECT_EQ("::1", SocketAddress(in6addr_loopback).Presentation());
  EXPECT_EQ("::1", SocketAddress("::1", SocketAddress::FamilyIPv6).Presentation());
  const SocketAddress netlink(-2, 5);
  const auto& record = reinterpret_cast<const sockaddr_nl&>(*netlink._SockAddr());
  EXPECT_TRUE(record.nl_family == AF_NETLINK && record.nl_pid == 0xFFFFFFFE && record.nl_groups == 5);
  EXPECT_EQ("SocketAddress: ::1 not found: Address family for hostname not supported",
            ErrorText([] { SocketAddress("::1", SocketAddress::FamilyIPv4); }));
  EXPECT_THROW(SocketAddress("", SocketAddress::FamilyIPv4), HostNotFound);
  // The first entry of the answer that is for a stream or datagram socket.
  for (const auto& [second, taken] : {std::pair(SOCK_STREAM, "127.0.0.1"), {SOCK_RAW, "127.0.0.2"}}) {
    kinds = {SOCK_RAW, second, SOCK_DGRAM};
    const SocketAddress found("127.0.0.9", SocketAddress::FamilyIPv4);
    EXPECT_EQ(taken, found.Presentation());
    EXPECT_EQ(0, found.Port());
  }
  kinds = {SOCK_RAW, SOCK_RAW, SOCK_RAW};
  EXPECT_EQ("SocketAddress: 127.0.0.9 not found",
            ErrorText([] { SocketAddress("127.0.0.9", SocketAddress::FamilyIPv4); }));
  kinds.clear();
  unpresentable = true;
  EXPECT_EQ("SocketAddress: bad IPv6 address", ErrorText([] { SocketAddress("::1").Presentation(); }));
  unpresentable = false;
}

}  // namespace
