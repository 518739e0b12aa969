// The settings of a station "bog" for the instruments of a site, with its files in a directory.

#pragma once

#include "emulators/site.h"
#include "emulators/temp_directory.h"
#include "station/station.h"

// As they were written down.
inline Settings SettingsIn(const TempDirectory& dir) {
  Settings settings;
  const std::string file = dir / "station.toml";
  const char* const words[] = {"moorlog-station", "--config", file.c_str()};
  ReadSettings(3, words, settings);
  return settings;
}

inline Settings SettingsFor(const Site& site, const TempDirectory& dir) {
  dir.Write("zones/UTC", "");
  dir.Write("station.toml", "name = \"bog\"\nstate = \"" + dir / "state" + "\"\n[disk]\npath = \"" + dir / "disk" +
                                "\"\n[control]\nport = 0\n[clock]\nrtc = \"" + dir / "rtc" + "\"\n" + site.Settings());
  return SettingsIn(dir);
}

inline ZonePlaces ZonesIn(const TempDirectory& dir) {
  return {dir / "zones", dir / "link", dir / "zone"};
}
