#include "Platform/TreeCopy.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class TreeCopyTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string at(const std::string& name) const { return scratch_.path() + "/" + name; }

  void write(const std::string& name) const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << name;
  }

  // 0, or the errno of the copying.
  [[nodiscard]] int copy() const {
    try {
      copyTree(walkToItem(scratch_.path(), at("tree")), walkToItem(scratch_.path(), at("copy")));
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  TemporaryFolder scratch_;
};

TEST_F(TreeCopyTest, CopiesContentAndAttributes) {
  write("tree/a/b/file");
  write("tree/tool");
  fs::create_directory(at("tree/empty"));
  fs::create_symlink("/etc/passwd", at("tree/a/link"));
  fs::permissions(at("tree/tool"), fs::perms(04751));
  fs::permissions(at("tree/a/b"), fs::perms(0500));
  // Not every file system takes them.
  const bool hasNote = setxattr(at("tree/tool").c_str(), "user.note", "kept", 4, 0) == 0;
  if (geteuid() == 0) {
    ASSERT_EQ(lchown(at("tree/a/link").c_str(), 501, 20), 0);
    ASSERT_EQ(lchown(at("tree/a").c_str(), 501, 20), 0);
  }
  const timespec times[] = {{1000, 0}, {1000, 5}};
  for (const char* name : {"tree/a/b", "tree/tool", "tree/a", "tree"}) {
    ASSERT_EQ(utimensat(AT_FDCWD, at(name).c_str(), times, 0), 0);
  }

  ASSERT_EQ(copy(), 0);
  for (const std::string name : {"", "/a", "/a/b", "/a/b/file", "/a/link", "/tool", "/empty"}) {
    struct stat original {};
    struct stat made {};
    ASSERT_EQ(lstat(at("tree" + name).c_str(), &original), 0);
    ASSERT_EQ(lstat(at("copy" + name).c_str(), &made), 0) << name;
    EXPECT_EQ(made.st_mode, original.st_mode) << name;
    EXPECT_EQ(made.st_uid, original.st_uid) << name;
    EXPECT_EQ(made.st_gid, original.st_gid) << name;
    EXPECT_EQ(made.st_size, original.st_size) << name;
    if (!S_ISLNK(made.st_mode)) {
      EXPECT_EQ(made.st_mtim.tv_sec, original.st_mtim.tv_sec) << name;
      EXPECT_EQ(made.st_mtim.tv_nsec, original.st_mtim.tv_nsec) << name;
    }
  }
  std::string content;
  std::ifstream(at("copy/a/b/file")) >> content;
  EXPECT_EQ(content, "tree/a/b/file");
  EXPECT_EQ(fs::read_symlink(at("copy/a/link")), "/etc/passwd");
  char note[8] = {};
  EXPECT_EQ(getxattr(at("copy/tool").c_str(), "user.note", note, sizeof note), hasNote ? 4 : -1);
  EXPECT_EQ(copy(), EEXIST);
}

TEST_F(TreeCopyTest, RefusesWhatIsNoFileFolderOrLinkAndWhatIsTooDeep) {
  fs::create_directory(at("tree"));
  ASSERT_EQ(mkfifo(at("tree/fifo").c_str(), 0600), 0);
  EXPECT_EQ(copy(), EINVAL);
  fs::remove_all(at("tree"));
  fs::remove_all(at("copy"));
  std::string deep = at("tree");
  for (int i = 0; i < 260; ++i) deep += "/d";
  fs::create_directories(deep);
  EXPECT_EQ(copy(), ENAMETOOLONG);
  fs::remove_all(at("tree"));
  fs::create_directory_symlink("/etc", at("tree"));
  EXPECT_NE(copy(), 0);
}

}  // namespace
}  // namespace molvane
