#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "Platform/FileCopy.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class StagingTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string root() const { return scratch_.path() + "/Staging"; }
  [[nodiscard]] std::size_t count() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(root()), {}));
  }

  TemporaryFolder scratch_;
};

TEST_F(StagingTest, ItemsArePrivateAndGoWithTheirObjects) {
  const mode_t umaskBefore = umask(0);
  {
    const StagingFolder staging(root());
    const StagedItem file = staging.makeFile(".pkg");
    const StagedItem folder = staging.makeFolder();
    EXPECT_EQ(fs::status(root()).permissions(), fs::perms(0700));
    EXPECT_EQ(fs::status(file.path()).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(folder.path()).permissions(), fs::perms(0700));
    std::ofstream(folder.path() + "/file") << "x";
    EXPECT_TRUE(file.path().ends_with(".pkg"));
    EXPECT_EQ(fs::path(folder.path()).filename().string().size(), 36U);
    EXPECT_EQ(count(), 2U);
  }
  umask(umaskBefore);
  EXPECT_EQ(count(), 0U);
}

TEST_F(StagingTest, SweepTakesWhatNobodyHoldsAndOnlyThat) {
  const StagingFolder staging(root());
  const StagedItem held = staging.makeFile(".pkg");
  const pid_t killed = fork();
  ASSERT_GE(killed, 0);
  if (killed == 0) {
    const StagingFolder own(root());
    const StagedItem file = own.makeFile(".pkg");
    const StagedItem folder = own.makeFolder();
    mkdirat(folder.descriptor().get(), "previous-Foo.app", 0700);
    raise(SIGKILL);
  }
  waitpid(killed, nullptr, 0);
  std::ofstream(root() + "/something else") << "x";
  ASSERT_EQ(count(), 4U);

  // Several requests begin at the same moment.
  std::vector<std::thread> others;
  for (int i = 0; i < 4; ++i) others.emplace_back([this] { StagingFolder(root()).sweep(); });
  int salvaged = 0;
  staging.sweep([&](const FileDescriptor& leftover) {
    salvaged += faccessat(leftover.get(), "previous-Foo.app", F_OK, 0) == 0 ? 1 : 0;
  });
  for (std::thread& other : others) other.join();
  EXPECT_LE(salvaged, 1);
  EXPECT_EQ(count(), 2U);
  EXPECT_TRUE(fs::exists(held.path()));
}

TEST_F(StagingTest, WorksInAFolderThatHandsItsGroupDown) {
  const std::string shared = scratch_.path() + "/Applications";
  fs::create_directory(shared);
  ASSERT_EQ(chmod(shared.c_str(), 02775), 0);
  const StagingFolder owner(root());
  const StagingFolder staging(shared, ".staged-", owner);
  {
    StagedItem left = staging.makeFolder();
    const StagedItem folder = staging.makeFolder();
    EXPECT_EQ(fs::status(folder.path()).permissions() & fs::perms::all, fs::perms(0700));
    left.keep();
  }
  EXPECT_FALSE(fs::is_empty(shared));
  staging.sweep();
  EXPECT_TRUE(fs::is_empty(shared));
}

TEST_F(StagingTest, WhatCannotBeOpenedIsNoLeftover) {
  const StagingFolder staging(root());
  const StagedItem held = staging.makeFolder();
  rlimit usual{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &usual), 0);
  const rlimit narrow{64, usual.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &narrow), 0);
  std::vector<FileDescriptor> taken;
  for (int fd = dup(0); fd >= 0; fd = dup(0)) taken.emplace_back(fd);
  // Room for the lock and the listing, and for no copy.
  taken.resize(taken.size() - 2);
  staging.sweep();
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &usual), 0);
  EXPECT_TRUE(fs::exists(held.path()));
}

TEST_F(StagingTest, RefusesALinkAndAFolderAboveThatIsOpenToOthers) {
  fs::create_directory(scratch_.path() + "/elsewhere");
  fs::create_directory_symlink(scratch_.path() + "/elsewhere", root());
  EXPECT_THROW(StagingFolder{root()}, std::system_error);
  fs::remove(root());
  fs::permissions(scratch_.path(), fs::perms(0777));
  EXPECT_THROW(StagingFolder{root()}, std::system_error);
}

TEST_F(StagingTest, StagesTheBytesOfThePackageWholeAndLeavesNothingWhenItCannot) {
  const std::string inbox = companyInbox(scratch_.path());
  fs::create_directories(inbox);
  std::string bytes = "xar!";
  for (int i = 0; bytes.size() < 2 * kCopyChunk + 12345; ++i) bytes += std::to_string(i);
  std::ofstream(inbox + "/a.pkg", std::ios::binary) << bytes;
  const StagingFolder staging(root());
  const ReceivedItem package = PackageInstallPolicy::validate(inbox + "/a.pkg", scratch_.path(), geteuid());
  const int descriptors = testing::openDescriptorCount();
  {
    const StagedItem copy = PackageInstallPolicy::stage(package, geteuid(), staging);
    std::ifstream file(copy.path(), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), bytes);
  }
  const auto failure = [&]() -> std::optional<PackageInstallPolicy::FailureCase> {
    try {
      static_cast<void>(PackageInstallPolicy::stage(package, geteuid(), staging));
    } catch (const PackageInstallPolicy::Failure& failure) {
      return failure.which();
    }
    return std::nullopt;
  };
  // Between check and copy it became something else.
  std::ofstream(inbox + "/a.pkg", std::ios::binary) << "xar?";
  EXPECT_EQ(failure(), PackageInstallPolicy::FailureCase::notAPackage);
  fs::remove(inbox + "/a.pkg");
  EXPECT_EQ(failure(), PackageInstallPolicy::FailureCase::missing);
  fs::create_symlink("/etc/passwd", inbox + "/a.pkg");
  EXPECT_EQ(failure(), PackageInstallPolicy::FailureCase::missing);
  fs::remove(inbox + "/a.pkg");
  ASSERT_EQ(mkfifo((inbox + "/a.pkg").c_str(), 0600), 0);
  EXPECT_EQ(failure(), PackageInstallPolicy::FailureCase::notOwned);
  EXPECT_EQ(count(), 0U);
  EXPECT_EQ(testing::openDescriptorCount(), descriptors);

  fs::remove(inbox + "/a.pkg");
  std::ofstream(inbox + "/a.pkg") << "xar!";
  fs::remove(root());
  try {
    static_cast<void>(PackageInstallPolicy::stage(package, geteuid(), staging));
    ADD_FAILURE() << "staged in a folder that is gone";
  } catch (const PackageInstallPolicy::Failure& failure) {
    EXPECT_EQ(failure.which(), PackageInstallPolicy::FailureCase::missing);
    EXPECT_THAT(failure.what(), ::testing::HasSubstr(root() + "/"));
  }
}

TEST_F(StagingTest, AFileThatKeepsGrowingComesToAnEnd) {
  const std::string path = scratch_.path() + "/file";
  std::ofstream(path) << std::string(100'000, 'x');
  const FileDescriptor to(open((path + ".copy").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  // One that never ends.
  EXPECT_THROW(copyToEnd(FileDescriptor(open("/dev/zero", O_RDONLY | O_CLOEXEC)), to, kCopyChunk),
               std::system_error);
  EXPECT_THROW(copyToEnd(FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), to, 99'999),
               std::system_error);
  EXPECT_EQ(copyToEnd(FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)), to, 100'000), 100'000U);
}

}  // namespace
}  // namespace molvane
