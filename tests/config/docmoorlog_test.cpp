#include "config/docmoorlog.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

TEST(DocMoorlog, AcknowledgesThroughTheHiddenItem) {
  const DocMoorlog document;
  std::ostringstream out;
  document.Ack(out);
  EXPECT_EQ("\n<tarno>\n\t<moorlog>\n\t\t<ack>true</ack>\n\t</moorlog>\n</tarno>", out.str());
}

}  // namespace
