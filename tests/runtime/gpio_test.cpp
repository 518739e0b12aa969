#include "runtime/gpio.h"

#include <gtest/gtest.h>

#include "tests/support/captured_output.h"
#include "tests/support/error_text.h"
#include "tests/support/gpio_tree.h"

namespace {

void ExpectWrites() {
  GpioTree tree;
  const Gpio first(7, Gpio::Output, false);
  EXPECT_EQ(tree.Writes(), "export=7 gpio7/active_low=0 gpio7/direction=out ");
  struct Row {
    Gpio::Direction direction;
    bool active_low, initial;
    const char* writes;
  };
  for (const Row& row : {Row{Gpio::Output, false, false, "gpio7/active_low=0 gpio7/direction=low "},
                         Row{Gpio::Output, true, false, "gpio7/active_low=1 gpio7/direction=high "},
                         Row{Gpio::Output, false, true, "gpio7/active_low=0 gpio7/direction=high "},
                         Row{Gpio::Output, true, true, "gpio7/active_low=1 gpio7/direction=low "},
                         Row{Gpio::Input, true, true, "gpio7/active_low=1 gpio7/direction=in "}}) {
    const Gpio line(7, row.direction, row.active_low, row.initial);
    EXPECT_EQ(tree.Writes(), row.writes) << "exported already";
  }
  const Gpio input(7, Gpio::Input, true);
  EXPECT_EQ(tree.Writes(), "gpio7/active_low=1 gpio7/direction=in ");
  for (const char* content : {"1\n", "0\n", ""}) {
    GpioTree::Make("gpio7/value", content);
    EXPECT_EQ(input._getValue(), *content == '1');
  }

  GpioOut out(42);
  EXPECT_EQ(tree.Writes(), "export=42 gpio42/active_low=0 gpio42/direction=out ");
  EXPECT_EQ(out._filename("value"), "/sys/class/gpio/gpio42/value");
  out.toggle();
  out.toggle();
  out.setValue(true);
  out.toggle();
  EXPECT_EQ(tree.Writes(), "gpio42/value=1 gpio42/value=0 gpio42/value=1 gpio42/value=0 ");

  std::filesystem::remove_all("/sys/class/gpio");
  EXPECT_EQ(ErrorText([] { const GpioOut line(3); }),
            "StreamFile: Unable to open /sys/class/gpio/export: No such file or directory");
  EXPECT_EQ(ErrorText([&] { out.setValue(true); }),
            "StreamFile: Unable to open /sys/class/gpio/gpio42/value: No such file or directory");
}

TEST(Gpio, EachOperationIsOneWrite) {
  ExpectInMountNamespace(ExpectWrites);
}

TEST(Gpio, DebugWritesToStandardOutputAlone) {
  Gpio::_debug = true;
  CapturedOutput output;
  GpioOut out(66);
  out.toggle();
  out.toggle();
  const Gpio input(5, Gpio::Input, true);
  const Gpio low(5, Gpio::Output, true, true);
  Gpio::_debug = false;
  EXPECT_EQ(output.Text(),
            "Exporting GPIO66\nSetting GPIO66 active high\nSetting GPIO66 to out\n"
            "Setting GPIO66 to 1\nSetting GPIO66 to 0\n"
            "Exporting GPIO5\nSetting GPIO5 active low\nSetting GPIO5 to in\n"
            "Exporting GPIO5\nSetting GPIO5 active low\nSetting GPIO5 to low\n");
}

}  // namespace
