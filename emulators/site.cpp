#include "emulators/site.h"

#include <sstream>

namespace {

constexpr const char* kHost = "127.0.0.1";
constexpr int kBaud = 57'600;

}  // namespace

Site::Site(const Plan& as)
    : plan(as),
      analyser(kHost),
      gps(plan.fast ? GPSReceiver::Hemisphere : GPSReceiver::Garmin, plan.fast ? kBaud : 38'400, plan.pace),
      sonic(kBaud, {.rate = plan.sonic_rate, .seconds = plan.pace}),
      soil(plan.soil, plan.chamber),
      modules(plan.bus) {
  if (plan.fast) analyser.SetRate(Analyser::kFastest);
}

std::string Site::Settings() const {
  std::ostringstream lines;
  lines << "[analyser]\nport = " << analyser.Port() << "\n[gps]\ndevice = \"" << gps.Path() << "\"\npulse = \""
        << pulse.Path() << "\"\n[sonic]\ndevice = \"" << sonic.Path() << "\"\n[button]\ndevice = \"" << button.Path()
        << "\"\n[campbell]\nport = " << campbell.Port() << '\n';
  return lines.str();
}

std::string Site::Document() const {
  return std::string("<tarno><moorlog><cfg><gpstype>") + (plan.fast ? "Hemisphere" : "Garmin") + "</gpstype><head>" +
         kHost + "</head><soil>" + plan.soil + "</soil><logger><loggeraddress>" + kHost + "</loggeraddress></logger>" +
         (plan.modules ? "<daqm><port>1</port></daqm>" : "") + "</cfg></moorlog></tarno>";
}
