#include "net/socketaddress.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <utility>
#include <vector>

namespace {

using Family = SocketFamily;

std::string ErrorOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const SocketError& error) {
    return error.what();
  }
  return "nothing thrown";
}

const std::string kIllegal = "SocketAddress: illegal address ";
const std::string kLongestPath = "/" + std::string(106, 'p');

TEST(SocketAddress, TextIsPresentedAgainOrRefusedWhole) {
  const std::pair<std::string, std::string> rows[] = {
      {"192.168.1.1", "192.168.1.1"},
      {"2001:0DB8:0:0:0:0:0:7", "2001:db8::7"},
      {"::ffff:10.0.0.1", "::ffff:10.0.0.1"},
      {"10.0.0.1/24", "10.0.0.1/24"},
      {"/run/a:b", "/run/a:b"},
      {kLongestPath, kLongestPath},
      {kLongestPath + "more", kLongestPath},
      {std::string("/a\0b", 4), "/a"},
      {"", kIllegal},
      {"localhost", kIllegal + "localhost"},
      {"256.1.1.1", kIllegal + "256.1.1.1"},
      {"1.2.3.4 ", kIllegal + "1.2.3.4 "},
      {"fe80::1%lo", kIllegal + "fe80::1%lo"},
      {"\xff\xfe:", kIllegal + "\xff\xfe:"},
      {std::string("10.0.0.1\0x", 10), kIllegal + "10.0.0.1"},  // what() ends at the NUL, the check does not
      {std::string("::1\0", 4), kIllegal + "::1"},
  };
  for (const auto& [text, shown] : rows) {
    SocketAddress address("fe80::2");
    address.Port(5500);
    const SocketAddress before = address;
    if (shown.rfind(kIllegal, 0) == 0) {
      EXPECT_EQ(shown, ErrorOf([&, bad = text] { address.Presentation(bad); }));
      EXPECT_EQ(before, address) << text;
      continue;
    }
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

TEST(SocketAddress, PortAndScopeStandWhereTheSystemLooks) {
  SocketAddress ipv4("10.0.0.1");
  ipv4.Port(80);
  ipv4.Scope(3);
  EXPECT_EQ(80, ipv4.Port());
  EXPECT_EQ(0, std::memcmp("\x00\x50", ipv4._SockAddr()->sa_data, 2));
  EXPECT_EQ(0U, ipv4.Scope());
  ipv4.Wildcard();
  EXPECT_EQ("0.0.0.0", ipv4.Presentation());
  EXPECT_EQ(80, ipv4.Port());

  SocketAddress ipv6("fe80::1");
  ipv6.Port(65535);
  ipv6.Scope(3);
  ipv6.Assign(in6addr_loopback);
  EXPECT_EQ("::1", ipv6.Presentation());
  EXPECT_EQ(65535, ipv6.Port());
  EXPECT_EQ(3U, ipv6.Scope());
  ipv6.Reset(Family::FamilyIPv6);
  EXPECT_EQ(SocketAddress("::"), ipv6);

  SocketAddress netlink(1234, 5);
  netlink.Port(80);
  netlink.Wildcard();
  EXPECT_EQ(SocketAddress(1234, 5), netlink);
  EXPECT_EQ(0, netlink.Port());
  EXPECT_EQ(12U, netlink._SockLen());
  EXPECT_EQ("NetLink Socket", netlink.Presentation());
}

TEST(SocketAddress, AssignTakesWholeRecordsButOfAPathTheFamilyAlone) {
  SocketAddress ipv6("fe80::1");
  ipv6.Port(5500);
  ipv6.Scope(2);
  for (const SocketAddress& address : {SocketAddress("10.0.0.1"), ipv6, SocketAddress(1234, 5)}) {
    SocketAddress target("/some/longer/path/that/has/to/go");
    target.Assign(*address._SockAddr());
    EXPECT_EQ(address, target);
  }
  EXPECT_EQ(SocketAddress(Family::FamilyUnix), SocketAddress(*SocketAddress("/run/x")._SockAddr()));
}

TEST(SocketAddress, OrdersByFamilyThenBytes) {
  SocketAddress port("10.0.0.1");
  port.Port(1);
  const std::vector<SocketAddress> ascending = {SocketAddress(Family::FamilyUnix),
                                                SocketAddress("/a"),
                                                SocketAddress("/a/b"),
                                                SocketAddress("10.0.0.1"),
                                                SocketAddress("10.0.0.2"),
                                                port,
                                                SocketAddress("::"),
                                                SocketAddress("ff02::1"),
                                                SocketAddress(1, 0)};
  for (std::size_t left = 0; left < ascending.size(); ++left)
    for (std::size_t right = 0; right < ascending.size(); ++right) {
      EXPECT_EQ(left < right, ascending[left] < ascending[right]) << left << " " << right;
      EXPECT_EQ(left == right, ascending[left] == ascending[right]) << left << " " << right;
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
  for (const unsigned int bits : {1U, 24U, 31U, 32U, 0U, 33U, 0xFFFFFFFFU}) {
    mask.NetmaskPrefixLen(bits);
    EXPECT_EQ(bits <= 32 ? bits : 0, mask.NetmaskPrefixLen());
  }
  EXPECT_EQ("0.0.0.0", mask.Presentation());
  SocketAddress netlink(1234, 5);
  netlink.NetmaskPrefixLen(8);
  EXPECT_EQ(SocketAddress(0, 5), netlink);

  SocketAddress host("192.168.1.7");
  host.Port(80);
  EXPECT_EQ(SocketAddress("192.168.1.255"), host.Broadcast(SocketAddress("255.255.255.0")));
  EXPECT_EQ(SocketAddress("::"), SocketAddress("fe80::1").Broadcast(mask));
}

TEST(SocketAddress, ResolvesHostNames) {
  EXPECT_EQ(SocketAddress("127.0.0.1"), SocketAddress("localhost", Family::FamilyIPv4));
  EXPECT_EQ(SocketAddress("::1"), SocketAddress("::1", Family::FamilyIPv6));
  SocketAddress address("10.0.0.1");
  EXPECT_EQ(0U, ErrorOf([&] { address.Name("::1", Family::FamilyIPv4); }).find("SocketAddress: ::1 not found: "));
  EXPECT_THROW(address.Name("localhost", Family::FamilyUnix), HostNotFound);
  EXPECT_EQ(SocketAddress("10.0.0.1"), address);
}

TEST(SocketAddress, RefusesAFamilyThatItDoesNotKnow) {
  SocketAddress strange("10.0.0.1");
  strange._SockAddr()->sa_family = AF_PACKET;
  const std::function<void()> calls[] = {
      [&] { SocketAddress{*strange._SockAddr()}; },
      [&] { SocketAddress{static_cast<Family>(AF_PACKET)}; },
      [&] { strange.Wildcard(); },
      [&] { strange.Port(1); },
      [&] { strange.Scope(); },
      [&] { strange.IsLinkLocal(); },
      [&] { strange.Presentation(); },
      [&] { strange.NetmaskPrefixLen(8); },
      [&] { strange.Broadcast(strange); },
      [&] { strange._SockLen(); },
  };
  for (std::size_t row = 0; row < std::size(calls); ++row)
    EXPECT_EQ("SocketAddress: unknown socket family", ErrorOf(calls[row])) << row;
}

}  // namespace
