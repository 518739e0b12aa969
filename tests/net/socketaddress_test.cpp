#include "net/socketaddress.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>

#include "tests/support/error_text.h"

namespace {

const std::string kLongestPath = "/" + std::string(106, 'p');

SocketAddress Make(const char* text, int port, unsigned int scope = 0) {
  SocketAddress address(text);
  address.Port(port);
  address.Scope(scope);
  return address;
}

TEST(SocketAddress, TextIsPresentedAgain) {
  const std::pair<std::string, std::string> rows[] = {
      {"192.168.1.1", "192.168.1.1"},        {"2001:0DB8:0:0:0:0:0:7", "2001:db8::7"}, {"10.0.0.1/24", "10.0.0.1/24"},
      {kLongestPath + "more", kLongestPath}, {std::string("/a\0b", 4), "/a"},
  };
  for (const auto& [text, shown] : rows) {
    SocketAddress address = Make("fe80::2", 5500);
    address.Presentation(text);
    EXPECT_EQ(shown, address.Presentation());
    const bool path = shown.find('/') != std::string::npos;
    EXPECT_EQ(path ? 0 : 5500, address.Port()) << text;
    EXPECT_EQ(path ? shown.size() + 2 : shown.find(':') == std::string::npos ? 16 : 28, address._SockLen()) << text;
  }
  SocketAddress shorter("/a/longer/path");
  shorter.Presentation("/a");
  EXPECT_EQ(0, std::memcmp(SocketAddress("/a")._SockAddr(), shorter._SockAddr(), SocketAddress::_StorageLen()));
}

TEST(SocketAddress, OtherTextIsRefusedAndChangesNothing) {
  for (const std::string& text :
       {std::string(), std::string("localhost"), std::string("256.1.1.1"), std::string("fe80::1%lo"),
        std::string("\xff\xfe:"), std::string("10.0.0.1\0x", 10)}) {
    SocketAddress address = Make("fe80::2", 5500);
    EXPECT_EQ(std::string(("SocketAddress: illegal address " + text).c_str()),
              ErrorText([&] { address.Presentation(text); }));
    EXPECT_EQ(Make("fe80::2", 5500), address);
  }
}

TEST(SocketAddress, PortAndScopeAreIndependentOfTheAddress) {
  EXPECT_EQ(0, std::memcmp("\x00\x50", Make("10.0.0.1", 80)._SockAddr()->sa_data, 2));
  SocketAddress ipv4 = Make("10.0.0.1", 65535, 3);
  ipv4.Wildcard();
  EXPECT_EQ(Make("0.0.0.0", 65535), ipv4);
  EXPECT_EQ(65535, ipv4.Port());
  SocketAddress ipv6 = Make("fe80::1", 80, 3);
  ipv6.Assign(in6addr_loopback);
  EXPECT_EQ(Make("::1", 80, 3), ipv6);
  EXPECT_EQ(3U, ipv6.Scope());
  ipv6.Reset(SocketAddress::FamilyIPv6);
  EXPECT_EQ(SocketAddress("::"), ipv6);
  SocketAddress netlink(1234, 5);
  netlink.Port(80);
  netlink.Wildcard();
  EXPECT_EQ(SocketAddress(1234, 5), netlink);
  EXPECT_EQ("NetLink Socket", netlink.Presentation());
}

TEST(SocketAddress, AssignTakesWholeRecordsButOfAPathTheFamilyAlone) {
  for (const SocketAddress& address : {Make("10.0.0.1", 80), Make("fe80::1", 5500, 2), SocketAddress(1234, 5)}) {
    SocketAddress target("/some/longer/path/that/has/to/go");
    target.Assign(*address._SockAddr());
    target.Assign(*target._SockAddr());
    EXPECT_EQ(address, target);
  }
  EXPECT_EQ(SocketAddress(SocketAddress::FamilyUnix), SocketAddress(*SocketAddress("/run/x")._SockAddr()));
}

TEST(SocketAddress, OrdersByFamilyThenBytes) {
  const SocketAddress ascending[] = {SocketAddress(SocketAddress::FamilyUnix),
                                     SocketAddress("/a"),
                                     SocketAddress("/a/b"),
                                     SocketAddress("10.0.0.1"),
                                     SocketAddress("10.0.0.2"),
                                     Make("10.0.0.1", 1),
                                     SocketAddress("::"),
                                     Make("::", 0, 1),
                                     SocketAddress(1, 0)};
  for (const SocketAddress& left : ascending)
    for (const SocketAddress& right : ascending) {
      EXPECT_EQ(&left < &right, left < right) << left.Presentation() << " " << right.Presentation();
      EXPECT_EQ(&left == &right, left == right) << left.Presentation() << " " << right.Presentation();
    }
}

TEST(SocketAddress, KnowsLinkLocalAddresses) {
  for (const char* text : {"169.254.0.1", "169.254.255.255", "fe80::1", "fe80:ffff::1"})
    EXPECT_TRUE(SocketAddress(text).IsLinkLocal()) << text;
  for (const char* text : {"169.253.0.1", "254.169.0.1", "fe81::1", "febf::1", "/169.254.0.1"})
    EXPECT_FALSE(SocketAddress(text).IsLinkLocal()) << text;
}

TEST(SocketAddress, MasksAndBroadcastAddresses) {
  const std::pair<const char*, unsigned int> rows[] = {
      {"0.0.0.1", 0},          {"0.0.1.0", 0},          {"0.1.0.0", 0},        {"1.0.0.0", 0},
      {"0.0.0.255", 0},        {"128.0.0.1", 1},        {"255.0.0.0", 8},      {"255.192.0.0", 10},
      {"255.255.0.0", 16},     {"255.255.0.1", 16},     {"255.255.255.0", 24}, {"255.255.255.128", 25},
      {"255.255.255.129", 25}, {"255.255.255.255", 32}, {"ffff::", 0}};
  for (const auto& [text, bits] : rows) EXPECT_EQ(bits, SocketAddress(text).NetmaskPrefixLen()) << text;

  SocketAddress mask("1.2.3.4");
  for (const unsigned int bits : {1U, 24U, 32U, 0U, 31U, 33U}) {
    mask.NetmaskPrefixLen(bits);
    EXPECT_EQ(bits <= 32 ? bits : 0, mask.NetmaskPrefixLen());
  }
  EXPECT_EQ("0.0.0.0", mask.Presentation());
  SocketAddress netlink(1234, 5);
  netlink.NetmaskPrefixLen(8);
  EXPECT_EQ(SocketAddress(0, 5), netlink);
  EXPECT_EQ(SocketAddress("192.168.1.255"), Make("192.168.1.7", 80).Broadcast(SocketAddress("255.255.255.0")));
  EXPECT_EQ(SocketAddress("::"), Make("fe80::1", 80, 1).Broadcast(mask));
}

TEST(SocketAddress, ResolvesHostNames) {
  EXPECT_EQ(SocketAddress("127.0.0.1"), SocketAddress("localhost", SocketAddress::FamilyIPv4));
  SocketAddress address("10.0.0.1");
  EXPECT_THROW(address.Name("::1", SocketAddress::FamilyIPv4), HostNotFound);
  EXPECT_EQ("SocketAddress: x not found: ai_family not supported",
            ErrorText([&] { address.Name("x", SocketAddress::FamilyNetlink); }));
  EXPECT_EQ(SocketAddress("10.0.0.1"), address);
}

TEST(SocketAddress, RefusesAFamilyThatItDoesNotKnow) {
  SocketAddress strange("10.0.0.1");
  strange._SockAddr()->sa_family = AF_PACKET;
  EXPECT_EQ("SocketAddress: unknown socket family", ErrorText([&] { strange.Presentation(); }));
  EXPECT_THROW(strange.Port(1), SocketError);
  EXPECT_THROW(strange._SockLen(), SocketError);
  EXPECT_THROW(SocketAddress{*strange._SockAddr()}, SocketError);
  EXPECT_THROW(SocketAddress{strange.Family()}, SocketError);
}

}  // namespace
