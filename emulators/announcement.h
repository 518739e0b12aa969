// An instrument that makes itself known by DNS-SD, for as long as the object lives; nothing happens without a daemon.

#pragma once

#include <map>
#include <string>

#include "net/bonjourclient.h"

class Announcement : private BonjourClientListener {
 public:
  Announcement(const std::string& name, const std::string& type, int port) : _client(this) {
    _client.Register(name, type, {}, port, {}, true);
  }

 private:
  void AddService(std::string, std::string, std::string, unsigned int, std::string, const SocketAddress&,
                  const std::map<std::string, std::string>&) override {}
  void RemoveService(std::string, std::string, std::string) override {}

  BonjourClient _client;
};
