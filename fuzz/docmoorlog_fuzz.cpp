// Any bytes into the logger's document: afterwards every value is within its range, and a second document that is sent
// what the first one answers to "&query_changes;" has the same values.
//
// But for what the text layer loses by its nature: white space at the ends of a text, an empty text, one in braces (a
// NUL byte behind them lets it in), and what reads as an entity: a text such as "&amp;lt;" holds "&lt;", is written as
// it stands, and comes back as "<".

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "config/docmoorlog.h"
#include "net/socketaddress.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// Both documents live as long as the process: building them costs more than most inputs.
void Reset(DocMoorlog& document) {
  std::istringstream zones("UTC");
  std::ostringstream errors;
  document.moorlog.cfg.clock.zone.read_doctype(zones, errors);
  document.set_to_default();
  document._set_changed(false);
}

// A bad address leaves by an exception.
void Configure(DocMoorlog& document, const std::string& text) {
  std::istringstream in(text);
  std::ostringstream answers;
  try {
    document.configure_and_send_events(in, answers);
  } catch (const SocketError&) {
    Require(in.fail());
  }
}

bool Survives(const std::string& text) {
  constexpr char kWhite[] = " \t\n\v\f\r";
  const std::size_t ampersand = text.find('&');
  return !text.empty() && text.find_first_of(kWhite) != 0 && text.find_last_of(kWhite) != text.size() - 1 &&
         (text.front() != '{' || text.back() != '}') &&
         (ampersand == std::string::npos || text.find(';', ampersand) == std::string::npos);
}

std::string Value(const Configurable& item) {
  std::ostringstream out;
  item.write(out);
  return out.str();
}

void RequireSameValues(const ConfigurableComposite& one, const ConfigurableComposite& other) {
  auto there = other.children().begin();
  for (const Configurable* here : one.children()) {
    const Configurable* const twin = *there++;
    if (const auto* section = dynamic_cast<const ConfigurableComposite*>(here))
      RequireSameValues(*section, static_cast<const ConfigurableComposite&>(*twin));
    else if (const std::string value = Value(*here); here->has_changed() && Survives(value))
      Require(value == Value(*twin));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static DocMoorlog document, again;
  Reset(document);
  Reset(again);
  Configure(document, std::string(reinterpret_cast<const char*>(data), size));

  const ConfigCfgMoorlog& cfg = document.moorlog.cfg;
  Require(cfg.sonicbaud.get() >= 0 && cfg.sonicbaud.get() <= 115200);
  Require(cfg.gpstype.get() >= 0 && cfg.gpstype.get() < 2);
  Require(cfg.daqm.port.get() >= 0 && cfg.daqm.port.get() < 4);
  Require(document.moorlog.ack.get() && document.moorlog.error.get().empty());

  std::stringstream own;
  std::ostringstream replies;
  document.changed(own);
  again.configure(own, replies);
  Require(!own.fail());
  RequireSameValues(document, again);
  return 0;
}
