#include "config/doc5500common.h"

#include <gtest/gtest.h>

#include <limits>

#include "runtime/errnoexcept.h"
#include "tests/config/sample_tree.h"
#include "tests/support/child_process.h"

namespace {

TEST(ConfigIPAddress, ABadAddressLeavesConfigureAndTheTreeAsItWas) {
  ConfigCfgNetwork network;
  network._set_changed(false);
  const auto send = [&](const std::string& text) {
    return Answer(network, "<network><ipaddress>" + text + "&query_item;</ipaddress></network>");
  };
  for (const char* text : {"192.168.1", "1.2.3.4 5", "\xff"}) EXPECT_THROW(send(text), SocketError) << text;
  EXPECT_EQ("192.168.1.95", send("192.168.1.95"));
  EXPECT_FALSE(network.has_changed());
  EXPECT_EQ("fe80::1", send("FE80:0::1"));
  EXPECT_TRUE(network.has_changed());
  network.set_to_default();
  EXPECT_EQ("192.168.1.95", send(""));
}

// In a child: the list is that of the process.
TEST(ConfigTimezone, ZonesComeInByDocumentForAllInstances) {
  ExpectInChild([] {
    ConfigTimezone zone, other;
    const auto shown = [](ConfigTimezone& item) {
      return Answer(item, "<zone>&query_item;&query_doctype_item;</zone>");
    };
    const auto send = [&](const char* text) { return Answer(zone, std::string("<zone>") + text + "</zone>"); };
    zone._set_changed(false);
    EXPECT_EQ("UTC {UTC}", shown(other));
    EXPECT_EQ("(failed)", send("{A/B|C||D|}<x/>&query_item;")) << "the rest is skipped without a reply";
    EXPECT_EQ("A/B {A/B|C||D}", shown(other));
    EXPECT_FALSE(zone.has_changed());
    EXPECT_EQ("<Error Param=\"zone\">invalid option: UTC\n</Error>", send("UTC"));
    zone.set_str("D");
    zone.set_str("no such zone");
    EXPECT_EQ(3, zone.get());
    send("{A|B}");
    EXPECT_EQ("{A|B}", shown(zone));
    send("{}");
    EXPECT_EQ("{}", shown(other));
  });
}

// Its texts are held against the system's calendar in fuzz/values_fuzz.cpp.
TEST(ConfigCfgClock, HasNoTextForAYearBeyondNumbers) {
  constexpr long kForever = std::numeric_limits<long>::max();
  if (sizeof(long) > 4) {
    EXPECT_THROW(ConfigCfgClock().TimeDate(kForever), ErrnoError);
  }
}

}  // namespace
