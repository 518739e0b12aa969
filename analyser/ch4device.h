// What a methane analyser measures, from its stream of text lines to one record each.
//
// When the link comes up the analyser is told what to send: 10 records a second, without waveforms, status and clock
// records. Its DATAH lines name the columns and its DATADIAGH lines the bits of the DIAG column; both are learned anew
// with each such line and outlive the connection. A DATA line counts when its sum is right (runtime/datachecksum.h)
// and it has a word for each known column. Whatever else comes in is dropped without a word. Nothing is logged here.
//
// Thread: the poll loop's.
//
// Callbacks: the listener may do anything with the link, may register another listener, and may destroy the device.
// What it throws passes to the link, which closes.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "analyser/head.h"
#include "runtime/measurementrecord.h"

// One DATA line. The moment comes from its columns SECONDS and NANOSECONDS.
//
//   values  by index, each from the column of that name:
//           0 CH4D      1 CH4        2 TEMP   3 PRESSURE   4 RSSI
//           5 DROPRATE  6 AUX1       7 AUX2   8 AUX3       9 AUX4
//           CH4Unavailable for a column that isn't there, 0 for a word that is no number
//   errorFlags  0x220 when one of BLOCKTEMPUNREG, LASTERTEMPUNREG, NOSIGNAL, NOTREADY, REFUNLOCKED is set in DIAG,
//               else 0x20 when BADTEMP or MOTORSPINNING is, else 0
struct CH4Data : MeasurementRecord<10> {};

constexpr double CH4Unavailable = -999.9;

class CH4Device : public Head::Listener {
 public:
  class Listener {
   public:
    virtual ~Listener() noexcept(false) = default;
    virtual void GotCH4Data(const CH4Data& data);
  };

  // `verbose`: the lines and what they are taken for go to standard output, besides what the link tells.
  explicit CH4Device(bool verbose);
  CH4Device(const CH4Device&) = delete;
  CH4Device& operator=(const CH4Device&) = delete;

  // Not owned, may be null: then nothing is looked at, headers included. Returns the one it replaces.
  Listener* RegisterListener(Listener* listener);
  // For the owner to connect: the device never does.
  Head& GetHead() { return _head; }

  void HeadConnected(std::string connectedTo) override;
  void HeadGotLine(std::string line) override;

 private:
  void _ResetIndexes();
  void _LearnColumns(std::string_view names);
  void _LearnDiagnostics(std::string_view names);
  void _HandleDATA(std::string_view words);
  int _Column(const char* name) const;  // -1: unknown
  uint32_t _Masks(std::initializer_list<const char*> names) const;
  uint32_t _ErrorFlags() const;
  void _PrintRecord() const;

  Head _head;
  Listener* _listener = nullptr;
  const bool _verbose;

  // As last learned.
  std::map<std::string, int> _columnIndex;
  std::map<std::string, uint32_t> _diagMask;
  // Looked up in them once and for all lines; -1 for a column that isn't known, no bits for a name that isn't.
  int _secondsColumn = -1;
  int _nanosecondsColumn = -1;
  int _diagColumn = -1;
  std::array<int, 10> _valueColumns = {};
  uint32_t _warningMask = 0;
  uint32_t _failureMask = 0;

  // Of the last DATA line.
  std::vector<double> _lineValues;  // by column
  uint32_t _diagWord = 0;
};
