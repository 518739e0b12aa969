#include "net/net_util.h"

#include <unistd.h>

#include <cerrno>

std::string Hostname() {
  char name[128]{};  // the last byte stays zero
  // A longer name is cut, and reported as such.
  if (gethostname(name, sizeof name - 1) != 0 && errno != ENAMETOOLONG) return {};
  return name;
}

bool SetHostname(const std::string& name) {
  return sethostname(name.data(), name.size()) == 0;
}
