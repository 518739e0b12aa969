// One life of a BonjourClient, from its making or the last Clear() to the next: the connection to the daemon with all
// that hangs on it. For bonjourclient.cpp alone.
//
// A client may be destroyed or cleared from within its listener, while frames of the library are on the stack. So the
// owner doesn't delete this object but retires it.

#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/strlst.h>

#include <map>
#include <memory>
#include <string>

class BonjourClientListener;

// Owner of the library's string list.
class _AvahiStringList {
 public:
  _AvahiStringList() = default;
  _AvahiStringList(const _AvahiStringList&) = delete;
  _AvahiStringList& operator=(const _AvahiStringList&) = delete;
  ~_AvahiStringList() { avahi_string_list_free(_list); }

  // Of any bytes; an empty string is ignored.
  void AddString(const std::string& text);
  AvahiStringList* Get() const { return _list; }

 private:
  AvahiStringList* _list = nullptr;
};

class BonjourClientImpl {
 public:
  // Does nothing at all without a listener.
  explicit BonjourClientImpl(BonjourClientListener* listener) : _listener(listener) {}
  BonjourClientImpl(const BonjourClientImpl&) = delete;
  BonjourClientImpl& operator=(const BonjourClientImpl&) = delete;
  ~BonjourClientImpl();

  // The registrations are gone at once; all else ends when the library is off the stack. The listener hears nothing
  // more: the library calls back once for each message of the bus, and never when something of its own is freed.
  static void Retire(std::unique_ptr<BonjourClientImpl> impl);

  // To be called once, before the others: connects to the daemon.
  void Open();
  void Browse(const std::string& type);
  void Register(const std::string& name, const std::string& type, int port,
                const std::map<std::string, std::string>& txt, bool commit);
  void Commit();

 private:
  static void _ClientChanged(AvahiClient* client, AvahiClientState state, void* impl);
  static void _GroupChanged(AvahiEntryGroup* group, AvahiEntryGroupState state, void* impl);
  static void _Browsed(AvahiServiceBrowser* browser, AvahiIfIndex interface, AvahiProtocol protocol,
                       AvahiBrowserEvent event, const char* name, const char* type, const char* domain,
                       AvahiLookupResultFlags flags, void* impl);
  static void _Resolved(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol protocol,
                        AvahiResolverEvent event, const char* name, const char* type, const char* domain,
                        const char* host, const AvahiAddress* address, uint16_t port, AvahiStringList* txt,
                        AvahiLookupResultFlags flags, void* impl);

  void _Withdraw();
  void _Error(const std::string& message);

  BonjourClientListener* const _listener;
  AvahiClient* _client = nullptr;
  AvahiEntryGroup* _group = nullptr;  // made at the first registration
};
