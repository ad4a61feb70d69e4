#include "Platform/StandardPath.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

class StandardPath : public testing::Test {
 protected:
  TemporaryFolder temporary_;
  const std::string& folder_ = temporary_.path();
};

TEST_F(StandardPath, TildeIsTheHomeOfTheUserDatabase) {
  const std::string home = ::getpwuid(::geteuid())->pw_dir;
  const std::string before = ::getenv("HOME") == nullptr ? "" : ::getenv("HOME");
  ::setenv("HOME", "/nowhere", 1);
  EXPECT_EQ(standardizingPath("~"), home);
  EXPECT_EQ(standardizingPath("~//Library/./x/"), home + "/Library/x");
  EXPECT_EQ(standardizingPath("~root/x"), std::string(::getpwnam("root")->pw_dir) + "/x");
  ::setenv("HOME", before.c_str(), 1);
}

TEST_F(StandardPath, ATildeThatNamesNobodyStaysRelative) {
  EXPECT_EQ(standardizingPath("~no such user//x/"), "~no such user/x");
  EXPECT_EQ(standardizingPath(std::string("~root\0/x", 8)), std::string("~root\0/x", 8));
  EXPECT_EQ(standardizingPath("/a/~"), "/a/~");
  EXPECT_EQ(standardizingPath(".//~/x"), "./~/x") << "must not become the home folder the second time";
}

TEST_F(StandardPath, RelativePathsKeepTheirParentReferences) {
  EXPECT_EQ(standardizingPath("a//./b/../c/"), "a/b/../c");
  EXPECT_EQ(standardizingPath("./"), ".");
  EXPECT_EQ(standardizingPath(""), "");
}

TEST_F(StandardPath, ParentReferencesGoUpFromWhereALinkLeadsOrByName) {
  std::filesystem::create_directories(folder_ + "/real/deep");
  std::filesystem::create_directory_symlink(folder_ + "/real/deep", folder_ + "/link");
  std::filesystem::create_symlink(folder_ + "/gone", folder_ + "/dangling");

  EXPECT_EQ(standardizingPath(folder_ + "/link/../x"), folder_ + "/real/x");
  EXPECT_EQ(standardizingPathByName(folder_ + "/link/.././link/../x/"), folder_ + "/x");
  EXPECT_EQ(standardizingPath(folder_ + "/link/../../link"), folder_ + "/link") << "the last link stays";
  EXPECT_EQ(standardizingPath(folder_ + "/link/x"), folder_ + "/link/x") << "so does one without ..";
  EXPECT_EQ(standardizingPath(folder_ + "/link/nosuch/../../x"), folder_ + "/real/x");
  EXPECT_EQ(standardizingPath(folder_ + "/dangling/../x"), folder_ + "/x");
  EXPECT_EQ(standardizingPath("/../../" + folder_ + "/nosuch/.././"), folder_);
}

TEST_F(StandardPath, PrivateGoesWhenTheRestExists) {
  EXPECT_EQ(standardizingPath("/private" + folder_), folder_);
  EXPECT_EQ(standardizingPath("/private" + folder_ + "/nosuch"), "/private" + folder_ + "/nosuch");
  EXPECT_EQ(standardizingPath("/privateer"), "/privateer");
  EXPECT_EQ(standardizingPath("/private/"), "/private");
  std::filesystem::create_symlink(folder_ + "/gone", folder_ + "/dangling");
  EXPECT_EQ(standardizingPath("/private" + folder_ + "/dangling"), "/private" + folder_ + "/dangling");
}

TEST_F(StandardPath, WhatNoFileCanBeCalledIsTextAlone) {
  const std::string cut = folder_ + std::string("\0x", 2);
  EXPECT_EQ(standardizingPath("/private" + cut), "/private" + cut)
      << "must not be taken for the part before the NUL";
  EXPECT_EQ(standardizingPath(cut + "/../y\xFF/"),
            std::filesystem::path(folder_).parent_path().string() + "/y\xFF");

  std::filesystem::create_directories(folder_ + "/real/deep");
  std::filesystem::create_directory_symlink(folder_ + "/real/deep", folder_ + "/link");
  std::string longPath = folder_ + "/link/..";
  for (int i = 0; i < 100'000; ++i) longPath += "/link/..";
  EXPECT_EQ(standardizingPath(longPath), folder_);
}

}  // namespace
}  // namespace molvane
