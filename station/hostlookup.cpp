#include "station/hostlookup.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <exception>
#include <iostream>
#include <system_error>
#include <thread>
#include <utility>

#include "net/socketaddress.h"
#include "runtime/signalprocessor.h"

namespace {

// On its own thread. Nothing is sent of what isn't found.
void LookUp(const std::string& host, int answer) {
  std::string address;
  try {
    address = SocketAddress(host, SocketAddress::FamilyIPv4).Presentation();
  } catch (const std::exception&) {
  }
  send(answer, address.data(), address.size(), MSG_NOSIGNAL);
  close(answer);
}

}  // namespace

bool HostLookup::IsAddress(const std::string& host) {
  in_addr address;
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

void HostLookup::Ask(const std::string& host) {
  _host = host;
  if (!_answer.IsOpen()) _Begin();
}

void HostLookup::_Begin() {
  if (_host.empty()) return;
  if (IsAddress(_host)) return _found(_host);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
  _answer._set_fileno(ends[0]);
  _begun = _host;
  PollProcessor::Instance().EventChange();
  const SignalsBlocked inherited;  // they are for the loop
  try {
    std::thread(LookUp, _host, ends[1]).detach();
  } catch (const std::system_error&) {
    close(ends[1]);  // the answer
  }
}

void HostLookup::HandleRead() {
  std::string address;
  _answer.Read(address);
  _answer._close();
  PollProcessor::Instance().EventChange();
  if (_begun != _host) return _Begin();
  if (!address.empty()) {
    _told.clear();
    return _found(address);
  }
  if (std::exchange(_told, _host) != _host) std::cout << "ERROR: no address is known of " << _host << std::endl;
}
