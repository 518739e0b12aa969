// A tool at the bridge of a session with the modules.

#pragma once

#include <string>

#include "daqm/daqm.h"
#include "net/socketaddress.h"
#include "net/socketserver.h"

struct DAQMTool : SocketServerListener {
  DAQMTool() {
    dialer.PollItem::UnRegister();  // it only dials
    dialer.RegisterListener(*this);
    SocketAddress address("127.0.0.1");
    address.Port(DAQM::kBridgePort);
    client = &dialer.Connect(address, 1);
  }
  void GotRequest(SocketClient&, const std::string& data) override { got += data; }
  SocketServer dialer{Socket::FamilyIPv4};
  SocketClient* client = nullptr;
  std::string got;
};
