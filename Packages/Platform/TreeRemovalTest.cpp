#include "Platform/TreeRemoval.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <thread>

#include "Platform/testing/TemporaryFolder.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class TreeRemovalTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string at(const std::string& name) const { return scratch_.path() + "/" + name; }

  void write(const std::string& name) const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << "x";
  }

  // 0, or the errno of the removal.
  [[nodiscard]] int remove(const std::string& name) const {
    try {
      removeItem(walkToItem(scratch_.path(), at(name)));
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  TemporaryFolder scratch_;
};

TEST_F(TreeRemovalTest, RemovesWhateverKindOfItem) {
  write("tree/a/b/file");
  write("tree/.hidden/file");
  write("file");
  write("outside/kept");
  fs::create_directory_symlink(at("outside"), at("tree/a/link"));
  fs::create_directory_symlink(at("outside"), at("link"));
  ASSERT_EQ(mkfifo(at("tree/fifo").c_str(), 0600), 0);
  if (::geteuid() == 0) fs::permissions(at("tree/a/b"), fs::perms::none);

  for (const char* name : {"tree", "file", "link"}) {
    EXPECT_EQ(remove(name), 0) << name;
    EXPECT_FALSE(fs::exists(fs::symlink_status(at(name)))) << name;
  }
  EXPECT_TRUE(fs::exists(at("outside/kept")));
  EXPECT_EQ(remove("tree"), ENOENT);
}

TEST_F(TreeRemovalTest, DeepTreesTakeNeitherDescriptorsNorStack) {
  constexpr int kDepth = 5'000;
  int folder = open(scratch_.path().c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < kDepth; ++i) {
    ASSERT_EQ(mkdirat(folder, "d", 0700), 0);
    // Neighbours on the way, to which the walk has to come back.
    if (i % 8 == 0) {
      ASSERT_EQ(mkdirat(folder, "e", 0700), 0);
    }
    const int below = openat(folder, "d", O_RDONLY | O_DIRECTORY);
    ASSERT_GE(below, 0);
    close(folder);
    folder = below;
  }
  close(folder);

  const int before = testing::openDescriptorCount();
  EXPECT_EQ(remove("d"), 0);
  EXPECT_EQ(testing::openDescriptorCount(), before);
  EXPECT_EQ(remove("e"), 0);
  EXPECT_TRUE(fs::is_empty(scratch_.path()));
}

// Runs `body` in a child that has its mounts to itself; true when it returned true.
bool inPrivateMounts(const std::function<bool()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    bool succeeded = false;
    try {
      succeeded = unshare(CLONE_NEWNS) == 0 &&
                  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && body();
    } catch (...) {
      // An exception must not take the child back into the test runner.
    }
    _exit(succeeded ? 0 : 1);
  }
  int status = 0;
  return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST_F(TreeRemovalTest, DoesNotEnterOtherFileSystems) {
  if (geteuid() != 0) GTEST_SKIP() << "mounting needs root";
  write("outside/kept");
  fs::create_directories(at("tree/sub/mounted"));
  fs::create_directories(at("item"));

  EXPECT_TRUE(inPrivateMounts([&] {
    // A bind mount has the device number of the tree around it.
    return mount(at("outside").c_str(), at("tree/sub/mounted").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           mount(at("outside").c_str(), at("item").c_str(), nullptr, MS_BIND, nullptr) == 0 &&
           remove("tree") == EXDEV && remove("item") == EBUSY && fs::exists(at("tree/sub/mounted/kept"));
  }));
  EXPECT_TRUE(fs::exists(at("outside/kept")));
}

TEST_F(TreeRemovalTest, GivesUpOnAFolderThatKeepsFillingUp) {
  fs::create_directory(at("tree"));
  std::atomic<bool> stop = false;
  std::thread rival([&] {
    for (int i = 0; !stop; ++i)
      close(open(at("tree/" + std::to_string(i)).c_str(), O_CREAT | O_WRONLY, 0600));
  });
  const int error = remove("tree");
  stop = true;
  rival.join();
  // Either the removal won, or it ended with the reason.
  EXPECT_TRUE(error == 0 || error == ENOTEMPTY) << error;
}

TEST(WalkToItemTest, SaysWhereAndWhyItEnded) {
  const TemporaryFolder scratch;
  const std::string root = scratch.path() + "/root";
  fs::create_directories(root + "/a/b");
  std::ofstream(root + "/file") << "x";
  fs::create_directory_symlink(root + "/a", root + "/link");
  fs::create_directory_symlink(root, scratch.path() + "/way-to-root");

  const auto problem = [&](const std::string& path) {
    try {
      static_cast<void>(walkToItem(root, path));
    } catch (const WalkError& error) {
      return std::pair(error.which(), error.payload());
    }
    return std::pair(WalkErrorCase::missing, std::string("none"));
  };
  EXPECT_EQ(problem(root + "/none/x/y"), std::pair(WalkErrorCase::missing, root + "/none"));
  EXPECT_EQ(problem(root + "/link/b"), std::pair(WalkErrorCase::link, root + "/link"));
  EXPECT_EQ(problem(root + "/file/b"), std::pair(WalkErrorCase::notDirectory, root + "/file"));
  EXPECT_EQ(problem(root + "/a/b" + std::string(1, '\0')).first, WalkErrorCase::missing);
  EXPECT_THROW(static_cast<void>(walkToItem(root, root + "Old/x")), std::invalid_argument);
  EXPECT_THROW(static_cast<void>(walkToItem(root, root)), std::invalid_argument);

  const std::string through = scratch.path() + "/way-to-root";
  EXPECT_EQ(walkToItem(through, through + "/a/b").name, "b");
  EXPECT_EQ(walkToItem("/", "/item").name, "item");
}

}  // namespace
}  // namespace molvane
