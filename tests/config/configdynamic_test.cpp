#include "config/configdynamic.h"

#include <gtest/gtest.h>

#include "tests/config/sample_tree.h"

namespace {

TEST(ConfigurableCompositeDynamic, OwnsComparesAndCopiesItsItems) {
  ConfigurableCompositeDynamic<Number> list("list"), copy("copy");
  for (const double value : {1.0, 2.0, 1.0}) list.add(*new Number("v", value));
  copy = list;
  EXPECT_TRUE(copy._is_composite_same(list));
  EXPECT_EQ(4, copy.get_change_count()) << "one for the list, one for each item";
  list._set_changed(false);
  copy = list;
  EXPECT_FALSE(copy.has_changed()) << "the same items: no change";
  list = *&list;
  EXPECT_EQ(3u, list.children().size());
  list.set_unique(true);
  list.add(*new Number("w", 1.0));
  EXPECT_EQ(2u, list.children().size());
  EXPECT_TRUE(list.has_changed());
  list._set_changed(false);
  list.remove(*list.children().front());
  EXPECT_EQ("w", list.find(Number("", 1.0))->get_name());
  EXPECT_EQ(nullptr, list.find(Number("", 2.0)));
  EXPECT_FALSE(list.has_changed());
  const int changes = list.get_change_count();
  list.clear();
  list.set_to_default();
  list._delete_back();
  EXPECT_EQ(changes + 1, list.get_change_count());
  EXPECT_TRUE(list.children().empty());
}

}  // namespace
