// The soil chamber instrument at the wire: each of its lines, one XML document with the root SR, becomes one record and
// one callback.
//
// It decides nothing and sends nothing: that is Soil's business (soil/soil.h). The link goes to port 1526 of an address
// or a host name; there is no discovery.
//
// Bad input is dropped without a word: a field whose text is no value is absent, and a line that ends in a syntax error
// is told as far as it went. Sums that a line may carry are compared with nothing.
//
// Thread: the poll loop's.
//
// Callbacks: the listener may do anything with the link, may register another listener, and may destroy the device.
// What it throws passes to the link, which closes.

#pragma once

#include <cstdint>
#include <ctime>
#include <iosfwd>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "analyser/head.h"

// The fields of one line, by their paths, as "/SR/DATA/CO2". Lives for the duration of its callback.
struct SoilData {
  time_t time = 0;  // of the instrument's clock: that of this line, or the last one that came
  std::map<std::string, float> floats;
  std::map<std::string, long> longs;  // of 32 bits, as everywhere on the board
  std::map<std::string, std::string> strings;
};

// "TIME=" and the time, then each field as path=value; everything behind a blank. For people.
std::ostream& operator<<(std::ostream& out, const SoilData& data);

class SoilDevice : public Head::Listener {
 public:
  struct FileInfo {
    std::string name;
    int32_t size = 0;  // bytes
  };

  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotSoilOpened();  // these three as of the link (analyser/head.h)
    virtual void GotSoilConnected(std::string connectedTo);
    virtual void GotSoilClosed();
    virtual void GotSoilData(SoilData& data);
    virtual void GotSoilInfo(SoilData& data);
    virtual void GotSoilStatus(SoilData& data);
    virtual void GotSoilMeasurement(SoilData& data);
    virtual void GotSoilIntFileList(const std::vector<FileInfo>& files);  // may be empty
    virtual void GotSoilExtFileList(const std::vector<FileInfo>& files);
    virtual void GotSoilReport(std::string report);  // its escapes are replaced
    virtual void GotSoilError(std::string error);    // may be empty
  };

  static constexpr int kPort = 1526;

  // `verbose`: the lines go to standard output, besides what the link tells.
  explicit SoilDevice(bool verbose);
  SoilDevice(const SoilDevice&) = delete;
  SoilDevice& operator=(const SoilDevice&) = delete;

  // Not owned, may be null: then nothing is looked at. Returns the one it replaces.
  Listener* RegisterListener(Listener* listener);
  // For the owner to connect and to send: the device never does.
  Head& GetHead() { return _head; }
  bool IsVerbose() const { return _verbose; }

  void HeadOpened() override;
  void HeadClosed() override;
  void HeadConnected(std::string connectedTo) override;
  void HeadGotLine(std::string line) override;

 private:
  int _ReadLine(std::string line, SoilData& data);
  void _Dispatch(int kind, SoilData& data);

  Head _head;
  Listener* _listener = nullptr;
  time_t _lastTime = 0;
  const std::shared_ptr<SoilData> _data = std::make_shared<SoilData>();  // of the last line, for its storage
  const bool _verbose;
};
