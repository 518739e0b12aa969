// Where an analyser is to be found, for examples: at its IPv4 address, or under the name by which it is announced. For
// the name an Avahi daemon has to run on this host.

#pragma once

#include <exception>
#include <string>

#include "analyser/head.h"
#include "net/socketaddress.h"

constexpr int kAnalyserPort = 5500;

inline bool IsAddress(const std::string& text, SocketFamily family) {
  try {
    return SocketAddress(text).Family() == family;
  } catch (const std::exception&) {
    return false;
  }
}

// What is wrong with it, for a command line. A link goes over IPv6 where the name of an analyser leads there, and then
// knows the interface.
inline std::string CheckTarget(const std::string& target) {
  if (!IsAddress(target.substr(0, target.find('%')), FamilyIPv6)) return "";
  return "'" + target + "' is an IPv6 address: give an IPv4 address, or the name that the analyser is announced under";
}

// Not connected yet.
inline Head LinkTo(Head::Listener* listener, const std::string& target, bool verbose) {
  return IsAddress(target, FamilyIPv4) ? Head(listener, kAnalyserPort, verbose) : Head(listener, verbose);
}
