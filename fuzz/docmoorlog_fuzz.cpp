// Any bytes into the logger's document: afterwards every value is within its range, and what the tree writes of itself
// is a document that it takes back. A reply may come: a text such as "&amp;query;" is written as it stands, since an
// entity passes unchanged, and read as a query.

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

std::string Configuration(const DocMoorlog& document) {
  std::ostringstream out;
  document.configuration(out);
  return out.str();
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  DocMoorlog document;
  // The list of zones is that of the process: each input starts with the same one.
  Configure(document, "<tarno><moorlog><cfg><clock><zone>{UTC}</zone></clock></cfg></moorlog></tarno>");
  Configure(document, text);

  const ConfigMoorlog& moorlog = document.moorlog;
  Require(moorlog.cfg.sonicbaud.get() >= 0 && moorlog.cfg.sonicbaud.get() <= 115200);
  Require(moorlog.cfg.gpstype.get() >= 0 && moorlog.cfg.gpstype.get() < 2);
  Require(moorlog.cfg.daqm.port.get() >= 0 && moorlog.cfg.daqm.port.get() < 4);

  DocMoorlog again;
  std::istringstream own(Configuration(document));
  std::ostringstream replies;
  again.configure(own, replies);
  Require(!own.fail());
  Require(again.moorlog.cfg.sonicbaud.get() == moorlog.cfg.sonicbaud.get());
  Require(again.moorlog.cfg.gpstype.get() == moorlog.cfg.gpstype.get());
  return 0;
}
