#include "net/socketaddress.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/error_text.h"

// Texts and bytes are held against plain rules in fuzz/socketaddress_fuzz.cpp.

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
}

TEST(SocketAddress, RefusesAFamilyItDoesNotKnow) {
  SocketAddress address("10.0.0.1");
  const SocketAddress strange = [] {
    SocketAddress made("10.0.0.1");
    made._SockAddr()->sa_family = AF_PACKET;
    return made;
  }();
  SocketAddress copy = strange;
  const std::function<void()> calls[] = {[&] { SocketAddress(*strange._SockAddr()); },
                                         [&] { address.Assign(*strange._SockAddr()); },
                                         [&] { address.Reset(SocketFamily(AF_PACKET)); },
                                         [&] { copy.Wildcard(); },
                                         [&] { copy.Port(1); },
                                         [&] { copy.Port(); },
                                         [&] { copy.Scope(1); },
                                         [&] { copy.Scope(); },
                                         [&] { copy.IsLinkLocal(); },
                                         [&] { copy.Presentation(); },
                                         [&] { copy.NetmaskPrefixLen(); },
                                         [&] { copy.NetmaskPrefixLen(1); },
                                         [&] { copy.Broadcast(address); },
                                         [&] { copy._SockLen(); },
                                         [&] { static_cast<void>(copy == strange); },
                                         [&] { static_cast<void>(copy < strange); }};
  for (const auto& call : calls) EXPECT_EQ("SocketAddress: unknown socket family", ErrorText(call));
  EXPECT_EQ(SocketAddress("10.0.0.1"), address);
}

}  // namespace
