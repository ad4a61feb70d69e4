#include "Base/PathText.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(PathText, ComponentsAreJoinedByOneSlash) {
  EXPECT_EQ(appendingPathComponent("/a/", "/b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendingPathComponent("", "b"), "b");
  EXPECT_EQ(appendingPathComponent("/a", ""), "/a");
}

}  // namespace
}  // namespace molvane
