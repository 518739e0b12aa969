#include "net/socketaddress.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "tests/support/error_text.h"

namespace {

SocketAddress Make(const char* text, int port, unsigned int scope = 0) {
  SocketAddress address(text);
  address.Port(port);
  address.Scope(scope);
  return address;
}

TEST(SocketAddress, TextIsPresentedAgainOrRefused) {
  const std::string longest = "/" + std::string(106, 'p');
  const std::pair<std::string, std::string> rows[] = {
      {"192.168.1.1", "192.168.1.1"}, {"2001:0DB8:0:0:0:0:0:7", "2001:db8::7"}, {longest + "more", longest}};
  for (const auto& [text, shown] : rows) {
    SocketAddress address = Make("fe80::2", 5500);
    address.Presentation(text);
    EXPECT_EQ(shown, address.Presentation());
    EXPECT_EQ(shown == longest ? 0 : 5500, address.Port());
    EXPECT_EQ(shown == longest ? 109 : shown == text ? 16 : 28, address._SockLen()) << text;
  }
  SocketAddress shorter(longest);
  shorter.Presentation("/a");
  EXPECT_EQ(0, std::memcmp(SocketAddress("/a")._SockAddr(), shorter._SockAddr(), SocketAddress::_StorageLen()));
  EXPECT_EQ("SocketAddress: illegal address fe80::1%lo", ErrorText([&] { shorter.Presentation("fe80::1%lo"); }));
  EXPECT_THROW(SocketAddress(std::string("10.0.0.1\0x", 10)), SocketError);
}

TEST(SocketAddress, KeepsPortAndScopeButAssignsWholeRecords) {
  EXPECT_EQ(0, std::memcmp("\x00\x50", Make("10.0.0.1", 80)._SockAddr()->sa_data, 2));
  SocketAddress ipv4 = Make("10.0.0.1", 65535, 3), ipv6 = Make("fe80::1", 80, 3);
  ipv4.Wildcard();
  EXPECT_TRUE(ipv4 == Make("0.0.0.0", 65535) && ipv4.Port() == 65535);
  ipv6.Assign(in6addr_loopback);
  EXPECT_TRUE(ipv6 == Make("::1", 80, 3) && ipv6.Scope() == 3);
  // Whole records are assigned, but of a path the family alone.
  for (const SocketAddress& address : {Make("10.0.0.1", 80), Make("fe80::1", 5500, 2), SocketAddress(1234, 5)}) {
    SocketAddress target("/some/longer/path/that/has/to/go");
    target.Assign(*address._SockAddr());
    target.Assign(*target._SockAddr());
    EXPECT_EQ(address, target);
  }
  EXPECT_EQ(SocketAddress(SocketAddress::FamilyUnix), SocketAddress(*SocketAddress("/run/x")._SockAddr()));
}

TEST(SocketAddress, OrdersByFamilyThenBytes) {
  const SocketAddress rising[] = {SocketAddress("/a"), SocketAddress("/a/b"), Make("10.0.0.2", 0), Make("10.0.0.1", 1),
                                  Make("::", 0),       Make("::", 0, 1),      SocketAddress(1, 0)};
  for (const SocketAddress& left : rising)
    for (const SocketAddress& right : rising)
      EXPECT_TRUE((&left < &right) == (left < right) && (&left == &right) == (left == right))
          << left.Presentation() << " " << right.Presentation();
}

TEST(SocketAddress, KnowsLinkLocalAddressesMasksAndBroadcastAddresses) {
  for (const char* text : {"169.254.255.255", "fe80:ffff::1"}) EXPECT_TRUE(SocketAddress(text).IsLinkLocal()) << text;
  for (const char* text : {"169.253.0.1", "254.169.0.1", "fe81::1", "/169.254.0.1"})
    EXPECT_FALSE(SocketAddress(text).IsLinkLocal()) << text;
  for (const auto& [text, bits] : {std::pair("127.255.0.0", 0U), {"255.192.0.1", 10U}, {"ffff::", 0U}})
    EXPECT_EQ(bits, SocketAddress(text).NetmaskPrefixLen()) << text;
  SocketAddress mask("1.2.3.4");
  for (const unsigned int bits : {1U, 32U, 0U, 31U, 33U}) {
    mask.NetmaskPrefixLen(bits);
    EXPECT_EQ(bits <= 32 ? bits : 0, mask.NetmaskPrefixLen());
  }
  EXPECT_EQ(SocketAddress("192.168.1.255"), Make("192.168.1.7", 80).Broadcast(SocketAddress("255.255.255.0")));
  EXPECT_EQ(SocketAddress("::"), Make("fe80::1", 80, 1).Broadcast(mask));
}

}  // namespace
