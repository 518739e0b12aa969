// Address texts of any bytes: taken, and then presented in a form that is taken again for the same address, or
// refused with the text in the error and the address as it was.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "net/socketaddress.h"

namespace {

void Check(bool holds) {
  if (!holds) std::abort();
}

bool SameStorage(const SocketAddress& left, const SocketAddress& right) {
  return std::memcmp(left._SockAddr(), right._SockAddr(), SocketAddress::_StorageLen()) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  SocketAddress address("fe80::2");
  address.Port(5500);
  const SocketAddress before = address;
  try {
    address.Presentation(text);
  } catch (const SocketError& error) {
    Check(std::strcmp(error.what(), ("SocketAddress: illegal address " + text).c_str()) == 0);
    Check(SameStorage(before, address));
    return 0;
  }
  const SocketAddress fresh(text);
  if (fresh.Family() == SocketFamily::FamilyUnix) {
    Check(fresh.Presentation() == std::string(text.c_str()).substr(0, 107));
    Check(fresh == address);
  } else {
    Check(SameStorage(fresh, SocketAddress(fresh.Presentation())));
    Check(fresh.Presentation() == address.Presentation());
    Check(address.Port() == 5500);
  }
  Check(address._SockLen() <= SocketAddress::_StorageLen());
  return 0;
}
