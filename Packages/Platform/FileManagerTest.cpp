#include "Platform/FileManager.hpp"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

int errnoOf(const std::function<void()>& call) {
  try {
    call();
  } catch (const std::system_error& error) {
    return error.code().value();
  }
  return 0;
}

class FileManagerTest : public ::testing::Test {
 protected:
  FileManagerTest() : mask_(::umask(022)) {}
  ~FileManagerTest() override { ::umask(mask_); }

  [[nodiscard]] std::string at(const std::string& name) const { return scratch_.path() + "/" + name; }
  [[nodiscard]] mode_t modeOf(const std::string& name) const {
    return FileManager::attributesOfItem(at(name)).mode;
  }

  TemporaryFolder scratch_;

 private:
  mode_t mask_;
};

TEST_F(FileManagerTest, TellsAnItemFromWhatALinkLeadsTo) {
  std::ofstream(at("file")) << "12345";
  fs::create_directory(at("folder"));
  fs::create_symlink("file", at("link"));
  fs::create_symlink("folder", at("folder-link"));
  fs::create_symlink("none", at("dangling"));

  EXPECT_TRUE(FileManager::fileExists(at("link")));
  EXPECT_FALSE(FileManager::fileExists(at("dangling")));
  EXPECT_FALSE(FileManager::fileExists(at("file") + std::string("\0/x", 3)));
  EXPECT_TRUE(FileManager::isDirectory(at("folder-link")));
  EXPECT_FALSE(FileManager::isDirectory(at("link")));

  const FileAttributes file = FileManager::attributesOfItem(at("file"));
  EXPECT_EQ(file.type, FileType::regular);
  EXPECT_EQ(file.size, 5);
  EXPECT_EQ(file.owner, ::geteuid());
  EXPECT_EQ(file.mode, 0644U);
  EXPECT_EQ(FileManager::attributesOfItem(at("dangling")).type, FileType::symbolicLink);
  EXPECT_FALSE(FileManager::attributesOfItem(at("link")).sameItem(file));
  fs::create_hard_link(at("file"), at("second-name"));
  EXPECT_TRUE(FileManager::attributesOfItem(at("second-name")).sameItem(file));
  EXPECT_EQ(FileManager::findAttributes(at("none")), std::nullopt);
  EXPECT_EQ(errnoOf([&] { static_cast<void>(FileManager::attributesOfItem(at("none"))); }), ENOENT);
}

TEST_F(FileManagerTest, OnlyRegularFilesWithThePermissionAreExecutable) {
  std::ofstream(at("tool")) << "#!/bin/sh\n";
  EXPECT_FALSE(FileManager::isExecutableFile(at("tool")));
  fs::permissions(at("tool"), fs::perms(0755));
  fs::create_symlink("tool", at("link"));
  EXPECT_TRUE(FileManager::isExecutableFile(at("link")));
  EXPECT_FALSE(FileManager::isExecutableFile(scratch_.path()));
}

TEST_F(FileManagerTest, FoldersGetExactlyTheModeAskedFor) {
  FileManager::createDirectory(at("a/b/c/"), 0700);
  EXPECT_EQ(modeOf("a"), 0700U);
  EXPECT_EQ(modeOf("a/b/c"), 0700U);
  // One that exists is set right, whatever it was, and what is above it is left alone.
  fs::permissions(at("a/b"), fs::perms(0755));
  fs::permissions(at("a/b/c"), fs::perms(0777));
  FileManager::createDirectory(at("a/b/c"), 0700);
  EXPECT_EQ(modeOf("a/b"), 0755U);
  EXPECT_EQ(modeOf("a/b/c"), 0700U);
  FileManager::createDirectory(at("shared"), 0775);
  EXPECT_EQ(modeOf("shared"), 0775U);

  // A link in the place of the folder is not followed, not even with a slash behind it.
  fs::create_directory_symlink("shared", at("link"));
  EXPECT_NE(errnoOf([&] { FileManager::createDirectory(at("link/"), 0700); }), 0);
  EXPECT_EQ(modeOf("shared"), 0775U);
  std::ofstream(at("file")) << "";
  EXPECT_EQ(errnoOf([&] { FileManager::createDirectory(at("file"), 0700); }), ENOTDIR);
}

TEST_F(FileManagerTest, APrivateFolderIsMadeOrRefusedButNeverChanged) {
  // Only root can open a folder that nobody may.
  ::umask(::geteuid() == 0 ? 0777 : 0077);
  FileManager::ensurePrivateDirectory(at("private"));
  ::umask(022);
  EXPECT_EQ(modeOf("private"), 0700U);
  FileManager::ensurePrivateDirectory(at("private"));

  fs::create_directory(at("open"));
  EXPECT_EQ(errnoOf([&] { FileManager::ensurePrivateDirectory(at("open")); }), EPERM);
  EXPECT_EQ(modeOf("open"), 0755U);
  fs::create_directory_symlink("private", at("link"));
  EXPECT_NE(errnoOf([&] { FileManager::ensurePrivateDirectory(at("link")); }), 0);
  EXPECT_EQ(errnoOf([&] { FileManager::ensurePrivateDirectory(at("none/private")); }), ENOENT);
}

TEST_F(FileManagerTest, FoldersOfOthersAreRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "giving a folder away needs root";
  fs::create_directory(at("theirs"));
  fs::permissions(at("theirs"), fs::perms(0700));
  ASSERT_EQ(::chown(at("theirs").c_str(), 65534, 65534), 0);
  EXPECT_EQ(errnoOf([&] { FileManager::ensurePrivateDirectory(at("theirs")); }), EPERM);
  EXPECT_EQ(errnoOf([&] { FileManager::createDirectory(at("theirs"), 0755); }), EPERM);
  EXPECT_EQ(modeOf("theirs"), 0700U);
}

TEST_F(FileManagerTest, RemovesAnItemAndNotWhatItLeadsTo) {
  fs::create_directories(at("folder/below"));
  fs::create_directory_symlink("folder", at("link"));
  FileManager::removeItem(at("link/"));
  EXPECT_TRUE(fs::exists(at("folder/below")));
  FileManager::removeItem(at("folder"));
  EXPECT_FALSE(fs::exists(at("folder")));
  EXPECT_EQ(errnoOf([&] { FileManager::removeItem(at("folder")); }), ENOENT);
  for (const std::string path : {"/", "", "."}) {
    EXPECT_EQ(errnoOf([&] { FileManager::removeItem(path); }), EINVAL) << path;
  }
}

}  // namespace
}  // namespace molvane
