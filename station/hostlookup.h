// The IPv4 address of a host, looked up on a thread: where no server answers, the system's resolver takes half a
// minute, in which the loop would stamp what the instruments send too late, and end too late when it is told to.
//
// Thread: the poll loop's. What is under way when this goes is left to its end, and tells nobody.

#pragma once

#include <functional>
#include <string>

#include "net/socket.h"
#include "runtime/pollprocessor.h"

class HostLookup : private PollItem {
 public:
  // With the address as text. It may ask again, and must not destroy this. What it throws leaves the loop, or Ask.
  using Found = std::function<void(const std::string& address)>;
  explicit HostLookup(Found found) : PollItem(POLLIN, true), _found(std::move(found)) {}

  // An IPv4 address as text, which needs no looking up.
  static bool IsAddress(const std::string& host);

  // An address is its own, and found at once. Of the names that are asked while another one is being looked up, the
  // last one counts. One that isn't found is told on standard output, the same one once, and may be asked again.
  void Ask(const std::string& host);

 private:
  void _Begin();

  int Fileno() const override { return _answer.Fileno(); }
  void HandleRead() override;
  const char* Description() const override { return "HostLookup"; }

  const Found _found;
  std::string _host, _begun;  // asked last; being looked up
  Socket _answer;             // open while one is
  std::string _told;          // not found
};
