#include "Base/PathText.hpp"

#include <gtest/gtest.h>

namespace molvane {
namespace {

TEST(PathText, LastComponent) {
  EXPECT_EQ(lastPathComponent("/a/b.app//"), "b.app");
  EXPECT_EQ(lastPathComponent("///"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
  EXPECT_EQ(lastPathComponent("/a/.."), "..");
  EXPECT_EQ(lastPathComponent(std::string_view("/a\0b/c\0d\xFF", 9)), std::string_view("c\0d\xFF", 4));
}

TEST(PathText, ExtensionIsWhatFollowsTheLastDot) {
  EXPECT_EQ(pathExtension("/x.d/a.tar.gz/"), "gz");
  for (const char* none : {"/x.d/a", ".app", "/a/.", "/a/..", "a.", "/", ""})
    EXPECT_EQ(pathExtension(none), "") << none;
}

TEST(PathText, Parent) {
  EXPECT_EQ(deletingLastPathComponent("/a//b/c/"), "/a/b");
  EXPECT_EQ(deletingLastPathComponent("//a"), "/");
  EXPECT_EQ(deletingLastPathComponent("//"), "/");
  EXPECT_EQ(deletingLastPathComponent("a/"), "");
}

TEST(PathText, ComponentsAreJoinedByOneSlash) {
  EXPECT_EQ(appendingPathComponent("/a/", "/b"), "/a/b");
  EXPECT_EQ(appendingPathComponent("/", "b"), "/b");
  EXPECT_EQ(appendingPathComponent("", "b"), "b");
  EXPECT_EQ(appendingPathComponent("/a", ""), "/a");
}

}  // namespace
}  // namespace molvane
