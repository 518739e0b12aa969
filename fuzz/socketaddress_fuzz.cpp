// Addresses held against plain rules for their bytes. Texts of any bytes: taken, and then presented in a form that is
// taken again for the same address, or refused with the text in the error and the address as it was. And every
// operation on two addresses made of the same bytes, the first byte picking their families.

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <string>
#include <tuple>
#include <vector>

#include "net/socketaddress.h"

namespace {

#define REQUIRE(condition) \
  if (!(condition)) std::abort()

constexpr SocketFamily kFamilies[] = {SocketAddress::FamilyUnix, SocketAddress::FamilyIPv4, SocketAddress::FamilyIPv6,
                                      SocketAddress::FamilyNetlink};

// The whole storage, as the system sees it: the family in the first two, then those of its record.
using Bytes = std::array<std::uint8_t, SocketAddress::_StorageLen()>;

Bytes BytesOf(const SocketAddress& address) {
  Bytes bytes;
  std::memcpy(bytes.data(), address._SockAddr(), bytes.size());
  return bytes;
}

std::size_t RecordSize(SocketFamily family) {
  return family == SocketAddress::FamilyIPv4 ? 16 : family == SocketAddress::FamilyIPv6 ? 28 : 12;
}

SocketAddress Made(SocketFamily family, const std::string& bytes) {
  if (family == SocketAddress::FamilyUnix) return SocketAddress("/" + bytes);
  SocketAddress address(family);
  bytes.copy(address._SockAddr()->sa_data, RecordSize(family) - 2);
  return address;
}

void CheckText(const std::string& text) {
  SocketAddress address("fe80::2");
  address.Port(5500);
  const SocketAddress before = address;
  try {
    address.Presentation(text);
  } catch (const SocketError& error) {
    REQUIRE(std::strcmp(error.what(), ("SocketAddress: illegal address " + text).c_str()) == 0);
    REQUIRE(BytesOf(before) == BytesOf(address));
    return;
  }
  const SocketAddress fresh(text);
  REQUIRE(fresh.Presentation() == address.Presentation());
  if (fresh.Family() == SocketFamily::FamilyUnix) {
    const std::string path = std::string(text.c_str()).substr(0, 107);
    REQUIRE(fresh.Presentation() == path && fresh == address && fresh._SockLen() == 2 + path.size());
  } else {
    char shown[64];
    std::uint8_t parsed[16];
    REQUIRE(::inet_pton(fresh.Family(), text.c_str(), parsed) == 1);
    REQUIRE(fresh.Presentation() == ::inet_ntop(fresh.Family(), parsed, shown, sizeof shown));
    REQUIRE(address.Port() == 5500 && fresh.Port() == 0 && fresh == SocketAddress(fresh.Presentation()));
  }
}

void CheckOne(const SocketAddress& address, unsigned int number) {
  const SocketFamily family = address.Family();
  const bool ipv4 = family == SocketAddress::FamilyIPv4, ipv6 = family == SocketAddress::FamilyIPv6;
  const Bytes bytes = BytesOf(address);
  if (family != SocketAddress::FamilyUnix) REQUIRE(address._SockLen() == RecordSize(family));
  if (family == SocketAddress::FamilyNetlink) REQUIRE(address.Presentation() == "NetLink Socket");
  std::uint32_t scope;
  std::memcpy(&scope, &bytes[24], sizeof scope);
  REQUIRE(address.Port() == (ipv4 || ipv6 ? bytes[2] * 256 + bytes[3] : 0));
  REQUIRE(address.Scope() == (ipv6 ? scope : 0));
  REQUIRE(address.IsLinkLocal() ==
          ((ipv4 && bytes[4] == 169 && bytes[5] == 254) || (ipv6 && bytes[8] == 0xFE && bytes[9] == 0x80)));
  unsigned int ones = 0;
  while (ipv4 && ones < 32 && (bytes[4 + ones / 8] & (0x80 >> ones % 8)) != 0) ++ones;
  REQUIRE(address.NetmaskPrefixLen() == ones);

  // The setters change their own bytes alone.
  SocketAddress changed = address;
  Bytes expected = bytes;
  const auto require = [&] { REQUIRE(BytesOf(changed) == expected); };
  changed.Port(static_cast<int>(number & 0xFFFF));
  if (ipv4 || ipv6)
    expected[2] = static_cast<std::uint8_t>(number >> 8), expected[3] = static_cast<std::uint8_t>(number);
  require();
  changed.Scope(number);
  if (ipv6) std::memcpy(&expected[24], &number, sizeof number);
  require();
  changed.Wildcard();
  if (family == SocketAddress::FamilyUnix) std::fill(expected.begin() + 2, expected.end(), std::uint8_t{0});
  if (ipv4) std::fill_n(&expected[4], 4, std::uint8_t{0});
  if (ipv6) std::fill_n(&expected[8], 16, std::uint8_t{0});
  require();
  changed.NetmaskPrefixLen(number % 35);
  for (unsigned int bit = 0; bit < 32; ++bit) {
    const bool one = ipv4 && number % 35 <= 32 && bit < number % 35;
    std::uint8_t& byte = expected[4 + bit / 8];
    byte = static_cast<std::uint8_t>((byte & ~(0x80 >> bit % 8)) | (one ? 0x80 >> bit % 8 : 0));
  }
  require();
  changed = address;
  changed.Assign(in_addr{htonl(number)});
  expected = bytes;
  expected[0] = AF_INET;
  for (int i = 0; i < 4; ++i) expected[4 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
  require();
  changed.Assign(in6addr_loopback);
  expected[0] = AF_INET6;
  for (int i = 0; i < 16; ++i) expected[8 + i] = i == 15;
  require();

  // A path is left out when a record is assigned.
  changed.Assign(*address._SockAddr());
  REQUIRE(changed == (family == SocketAddress::FamilyUnix ? SocketAddress(family) : address));
  changed.Assign(*changed._SockAddr());
  REQUIRE(changed == SocketAddress(*address._SockAddr()));
  changed.Reset(family);
  REQUIRE(BytesOf(changed) == BytesOf(Made(family, std::string(26, '\0'))) || family == SocketAddress::FamilyUnix);
  REQUIRE(BytesOf(changed) == BytesOf(SocketAddress(family)));
}

void CheckTwo(const SocketAddress& left, const SocketAddress& right) {
  const Bytes a = BytesOf(left), b = BytesOf(right);
  REQUIRE((left == right) == (a == b) && (left != right) == (a != b));
  // Families are numbers of the machine's order; behind them bytes.
  const auto key = [](const SocketAddress& address, const Bytes& bytes) {
    return std::tuple(static_cast<int>(address.Family()), std::vector<std::uint8_t>(bytes.begin() + 2, bytes.end()));
  };
  REQUIRE((left < right) == (key(left, a) < key(right, b)));
  Bytes broadcast = BytesOf(SocketAddress(left.Family()));
  if (left.Family() == SocketAddress::FamilyIPv4)
    for (int i = 4; i < 8; ++i) broadcast[i] = static_cast<std::uint8_t>((a[i] & b[i]) | ~b[i]);
  REQUIRE(BytesOf(left.Broadcast(right)) == broadcast);
}

// Whatever is asked of an address of another family is refused, and nothing changes.
void CheckStranger(SocketAddress address, std::uint16_t family) {
  if (std::find(std::begin(kFamilies), std::end(kFamilies), static_cast<SocketFamily>(family)) != std::end(kFamilies))
    return;
  SocketAddress strange = address;
  strange._SockAddr()->sa_family = family;
  const Bytes before = BytesOf(address), strange_before = BytesOf(strange);
  const std::function<void()> calls[] = {[&] { SocketAddress(*strange._SockAddr()); },
                                         [&] { address.Assign(*strange._SockAddr()); },
                                         [&] { address.Reset(SocketFamily(family)); },
                                         [&] { strange.Wildcard(); },
                                         [&] { strange.Port(1); },
                                         [&] { strange.Port(); },
                                         [&] { strange.Scope(1); },
                                         [&] { strange.Scope(); },
                                         [&] { strange.IsLinkLocal(); },
                                         [&] { strange.Presentation(); },
                                         [&] { strange.NetmaskPrefixLen(); },
                                         [&] { strange.NetmaskPrefixLen(1); },
                                         [&] { strange.Broadcast(address); },
                                         [&] { strange._SockLen(); },
                                         [&] { static_cast<void>(strange == strange); },
                                         [&] { static_cast<void>(strange < strange); }};
  for (const auto& call : calls) {
    bool refused = false;
    try {
      call();
    } catch (const SocketError& error) {
      refused = std::strcmp(error.what(), "SocketAddress: unknown socket family") == 0;
    }
    REQUIRE(refused && BytesOf(address) == before && BytesOf(strange) == strange_before);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  CheckText(text);
  if (size < 2) return 0;
  const std::string first = text.substr(1, (size - 1) / 2), second = text.substr(1 + (size - 1) / 2);
  // Now and then they differ in nothing, or in little.
  const SocketAddress left = Made(kFamilies[data[0] & 3], first);
  const SocketAddress right = Made(kFamilies[data[0] >> 2 & 3], (data[0] & 0x40) != 0 ? first : second);
  CheckOne(left, static_cast<unsigned int>(std::hash<std::string>()(text)));
  CheckTwo(left, right);
  CheckTwo(right, left);
  if (data[1] % 16 == 0) CheckStranger(left, static_cast<std::uint16_t>(data[0] * (1 + data[1] / 128)));
  return 0;
}
