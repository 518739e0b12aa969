// The methane analyser: its link, the live copy of its document, and its data lines on their way into files, as they
// come or with some of their columns only.
//
// The document names it by its service, whose port is always 5500, or by an IPv4 address. A link that has been down for
// five minutes, or silent, is built anew: it follows an instrument that has got another address, one that lost its
// power and so never ended the connection, and a new start of the Avahi daemon, none of which a link notices by itself
// (analyser/head.h).

#pragma once

#include <string>

#include "analyser/ch4device.h"
#include "analyser/datahandler.h"
#include "logging/includecols.h"
#include "station/instrument.h"
#include "station/settings.h"

class StationAnalyser : public Instrument, private CH4Device, private DataHandler::Listener {
 public:
  // The disk outlives this.
  StationAnalyser(const Settings& settings, const Disk& disk);

  bool IsConnected() const override { return _connected; }
  void Apply(const ConfigMoorlog& document) override;
  void Look() override;
  void Tell(Json::Value& status) const override;
  RecordFiles* Files() override { return &_files; }

 private:
  void _BuildLink();

  void HeadConnected(std::string connectedTo) override;
  void HeadClosed() override;
  void HeadGotLine(std::string line) override;
  void DataHandler_GotDATAH(std::string line) override;
  void DataHandler_GotDATA(std::string line) override;
  void DataHandler_GotDATAHColumns(std::vector<std::string> columns) override;
  void DataHandler_GotDATAColumns(std::vector<std::string> columns) override;
  void DataHandler_GotBadChecksum(std::string line) override;

  const bool _verbose;
  const int _port;
  const enum { All, Some, None } _what;
  DataHandler _handler;
  IncludeCols _columns;
  RecordFiles _files;
  std::string _target;
  bool _connected = false;
  int64_t _alive = 0;  // when a line came last, or a link was built; on PollTimer's clock
};
