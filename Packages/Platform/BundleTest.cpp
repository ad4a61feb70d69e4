#include "Platform/Bundle.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

class BundleTest : public testing::Test {
 protected:
  void write(const std::string& dictionary) {
    const std::string fresh = path_ + ".new";
    std::ofstream(fresh) << "<plist><dict>" << dictionary << "</dict></plist>";
    std::filesystem::rename(fresh, path_);
  }

  TemporaryFolder folder_;
  std::string path_ = folder_.path() + "/Info.plist";
  Bundle bundle_{path_};
};

TEST_F(BundleTest, GivesStringsAndNothingElse) {
  write("<key>Team</key><string> A1 </string><key>Number</key><integer>1</integer>");
  EXPECT_EQ(bundle_.infoString("Team"), " A1 ");
  EXPECT_EQ(bundle_.infoString("Number"), std::nullopt);
  EXPECT_EQ(bundle_.infoString("Absent"), std::nullopt);
}

TEST_F(BundleTest, FollowsTheFile) {
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt) << "no file yet";
  write("<key>Team</key><string>A</string>");
  EXPECT_EQ(bundle_.infoString("Team"), "A");
  write("<key>Team</key><string>B</string>");
  EXPECT_EQ(bundle_.infoString("Team"), "B") << "same size, another file";
  std::ofstream(path_) << "no property list";
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt);
  write("<key>Team</key><string>C</string>");
  EXPECT_EQ(bundle_.infoString("Team"), "C");
  std::filesystem::remove(path_);
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt);
}

TEST_F(BundleTest, WhatIsNoOrdinaryFileIsNotWaitedFor) {
  ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt);
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt);
  std::filesystem::remove(path_);
  std::filesystem::create_symlink("/dev/zero", path_);
  EXPECT_EQ(bundle_.infoString("Team"), std::nullopt);
}

TEST_F(BundleTest, ReadersSeeOneStateOrTheOtherWhileTheFileIsReplaced) {
  write("<key>Team</key><string>A</string>");
  std::atomic<int> strangers = 0;
  const auto read = [&] {
    for (int i = 0; i < 300; ++i) {
      const std::optional<std::string> team = bundle_.infoString("Team");
      if (team != "A" && team != "B") ++strangers;
    }
  };
  std::thread first(read);
  std::thread second(read);
  for (int i = 0; i < 100; ++i)
    write(i % 2 == 0 ? "<key>Team</key><string>B</string>" : "<key>Team</key><string>A</string>");
  first.join();
  second.join();
  EXPECT_EQ(strangers, 0);
  EXPECT_EQ(bundle_.infoString("Team"), "A");
}

}  // namespace
}  // namespace molvane
