// DNS-SD (RFC 6763) over multicast DNS (RFC 6762) in the domain "local", through the Avahi daemon of this host.
//
// BonjourClient browses for services and registers services; what it finds goes to its listener. BonjourResolver is a
// ready-made listener that keeps a table of what is there, so that a name can be turned into addresses when a link is
// opened.
//
// Thread: that of the poll loop. Listeners are called from Poll, and ServiceError also from the constructor and the
// operations of BonjourClient. Making a client, resolving, browsing and registering wait for the daemon's short answer,
// or 25 seconds for one that hangs.
//
// Nothing here throws. All problems are told to ServiceError, and the object carries on without the function that has
// failed. Without a running daemon the client is an empty shell that does nothing.
//
// Two things are not followed, on purpose, and nothing is told of them:
//
// - Each service is resolved once, when it appears. When it gets another address or port and its name stays, no event
//   comes.
// - When the daemon ends, nothing new is found or lost any more, also after its new start.
//
// Clear() and a new Browse() find what is there by then. But a BonjourResolver that goes on listening adds the new
// addresses to those it had, and in an order that has nothing to do with age. Who has to follow an instrument for
// months makes both anew, client and resolver, when it can't be reached; a Head has both, so it takes a new Head. Never
// right from the ServiceError that tells of a missing daemon: it comes back at once.

#pragma once

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "net/socketaddress.h"

class BonjourClientImpl;

// A listener may call any operation of the client, and may destroy it. What it throws leaves the call that it was
// called from: Poll, or the operation.
class BonjourClientListener {
 public:
  virtual ~BonjourClientListener() noexcept(false) = default;

  // Once for each address that was resolved, so a service with an IPv4 and an IPv6 address comes twice, and again on
  // every interface. `interface` is the index of the one it was found on. `address` has the service's port, and that
  // interface as its scope if it is an IPv6 link-local one. `txt` holds the TXT strings, which may be any bytes,
  // parted at their first "=": a string without one is left out, and of a repeated key the last value counts.
  virtual void AddService(std::string name, std::string type, std::string domain, unsigned int interface,
                          std::string host, const SocketAddress& address,
                          const std::map<std::string, std::string>& txt) = 0;
  // Once for each interface and protocol that the service has gone from.
  virtual void RemoveService(std::string name, std::string type, std::string domain) = 0;
  // Nothing calls this one: a registration is not followed.
  virtual void ServiceRegistered(std::string name, std::string type, std::string domain);
  virtual void ServiceError(std::string message);
};

class BonjourClient {
 public:
  // The listener isn't owned, and has to live as long as the client. Without one every operation does nothing.
  explicit BonjourClient(BonjourClientListener* listener);
  BonjourClient(const BonjourClient&) = delete;
  BonjourClient& operator=(const BonjourClient&) = delete;
  // As Clear(), and without a new start.
  ~BonjourClient();

  // `type` as in "_http._tcp". Goes on as long as the client, and may be called for more types.
  void Browse(const std::string& type);

  // Adds a service of this host to what Commit() publishes, and commits if asked to. After a commit the daemon takes
  // no more services: add all of them first, or start afresh with Clear(). A name that is in use already is refused by
  // the daemon, or withdrawn later without a word. `ignored` has no effect. In `txt` a pair of key, "=" and value may
  // have 255 bytes; an empty key counts, an empty map gives no strings.
  void Register(const std::string& name, const std::string& type, const std::string& ignored, int port,
                const std::map<std::string, std::string>& txt, bool commit);
  void Commit();

  // Withdraws all registrations and ends all browsing, of which the listener hears nothing more; then connects anew.
  // From inside a callback the old connection to the daemon lasts until the listener has returned.
  void Clear();

  // These do nothing.
  void Confirm(const std::string& name, const SocketAddress& address);
  void Debug();

 private:
  BonjourClientListener* const _listener;
  std::unique_ptr<BonjourClientImpl> _impl;
};

class BonjourResolver : public BonjourClientListener {
 public:
  struct HostInfo {
    std::string name;
    std::string type;
    std::string domain;
    unsigned int interface = 0;
    std::string host;
    std::set<SocketAddress> addresses;  // IPv4 first
    std::map<std::string, std::string> txt;
  };

  // The first with this name, whatever its case, or nullptr. Valid until that service is removed.
  const HostInfo* Lookup(const std::string& name) const;

  // In the order of discovery.
  const std::list<std::shared_ptr<HostInfo>>& Hosts() const { return _hosts; }
  // Whether the table has ever changed. Nothing takes it back.
  bool Changed() const { return _changed; }

  // A service of this type takes its name out of the table for good, whatever other type offers the name.
  void ExcludeType(const std::string& type);

  // A name that is known already gets one more address; its other fields stay as they were first found.
  void AddService(std::string name, std::string type, std::string domain, unsigned int interface, std::string host,
                  const SocketAddress& address, const std::map<std::string, std::string>& txt) override;
  // The name alone decides, and all addresses go, whatever interface the service has gone from.
  void RemoveService(std::string name, std::string type, std::string domain) override;

 private:
  std::list<std::shared_ptr<HostInfo>> _hosts;
  bool _changed = false;
  std::set<std::string> _excluded_types;
  std::set<std::string> _excluded_names;
};
