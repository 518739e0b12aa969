// What the station's table knows of an instrument. It may be absent, come later, go away and come back; none of that is
// anybody else's trouble: nothing here throws for it.
//
// Thread: the poll loop's. Each is built by its settings, lives as long as the station does, and follows the document.

#pragma once

#include <jsoncpp/json/forwards.h>

#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "config/docmoorlog.h"
#include "station/recordfiles.h"
#include "station/tally.h"

class Instrument {
 public:
  static constexpr int kLook = 10'000;  // milliseconds, from one Look to the next

  Instrument() = default;
  Instrument(const Instrument&) = delete;
  Instrument& operator=(const Instrument&) = delete;
  virtual ~Instrument() noexcept(false) = default;

  virtual bool IsConnected() const = 0;

  // At the start and after each change of the document.
  virtual void Apply(const ConfigMoorlog& /*document*/) {}
  // Opens again what can't be had just now, and builds anew what has been silent for too long.
  virtual void Look() {}
  // The disk has come or gone, or a minute is over.
  virtual void LookAtDisk() {
    if (Files() != nullptr) Files()->LookAtDisk();
  }
  // Recording is wanted, or not.
  virtual void Record(bool on) {
    if (Files() != nullptr) on ? Files()->Start() : Files()->Stop();
  }
  // What else there is to tell of it, into its object of the status.
  virtual void Tell(Json::Value& /*status*/) const {}
  // Where its records go; nullptr where that isn't a family of lines.
  virtual RecordFiles* Files() { return nullptr; }
  // What became of its records; nothing of one that keeps none.
  struct Kept {
    std::string file;  // the one that is open; empty: none
    int64_t written = 0, lost = 0;
  };
  virtual std::optional<Kept> WhatIsKept() {
    if (Files() == nullptr) return {};
    return Kept{Files()->File(), Files()->Written(), Files()->Lost()};
  }

  const Tally& Records() const { return _records; }

 protected:
  Tally _records;
};

// A row of the table.
struct InstrumentRow {
  const char* name;
  int silent;  // that it counts as after so many seconds without a record; 0: never
  std::unique_ptr<Instrument> instrument;
};

// What one of them throws all the same is told, and keeps nothing from those behind it.
template <class Deed>
void ForEach(const std::vector<InstrumentRow>& table, Deed deed) {
  for (const InstrumentRow& row : table) try {
      deed(*row.instrument);
    } catch (const std::exception& error) {
      std::cout << "ERROR: " << row.name << ": " << error.what() << std::endl;
    }
}
