#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <utility>

#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "HelperKit/Applications/AppRemovalRunner.hpp"
#include "Platform/FileDescriptor.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

// The home folder is a scratch folder of whoever runs the tests; the system's own folders are looked at only.
class AppRemovalTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string home() const { return scratch_.path(); }

  static void write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  // The sentence of the refusal, or "fine".
  static std::string removal(const std::string& path, const std::string& home) {
    try {
      static_cast<void>(AppRemovalPolicy::validate(path, home));
    } catch (const AppRemovalPolicy::Failure& failure) {
      return failure.errorDescription();
    }
    return "fine";
  }

  TemporaryFolder scratch_;
};

TEST_F(AppRemovalTest, RemovalDecidesByTextBeforeItLooks) {
  const std::string apps = home() + "/Applications";
  fs::create_directories(apps + "/Foo.app");
  fs::create_directories(apps + "/Utilities/Foo.app");
  fs::create_directory_symlink("/usr/bin", apps + "/away");
  const std::string tooDeep = "Only top-level apps (or one folder deep) can be removed: ";
  const std::string outside = "Only apps in /Applications or ~/Applications can be removed: ";
  const std::pair<std::string, std::string> cases[] = {
      {apps + "//./away/../Foo.app/", "fine"},
      {"/nowhere/../Applications/a/b/Foo.app", tooDeep + "/Applications/a/b/Foo.app"},
      {apps + "/Utilities/Foo.app", "Refusing to remove a protected app: " + apps + "/Utilities/Foo.app"},
      {"/Applications/Utilities.app", "Not found: /Applications/Utilities.app"},
      {"/Applications/none/MacMolvane.app",
       "Refusing to remove a protected app: /Applications/none/MacMolvane.app"},
      {"/Applications/safari.app", "Not found: /Applications/safari.app"},
      {"/Applications.app", outside + "/Applications.app"},
      {"/Applications/", "Not an application bundle: /Applications/"},
      {"x/../Applications/Foo.app", "Not an application bundle: x/../Applications/Foo.app"},
      {"../Foo.app", outside + "../Foo.app"},
      {"", "Not an application bundle: "},
      {apps + "/Foo.app" + std::string("\0.app", 5),
       "Not found: " + apps + "/Foo.app" + std::string("\0.app", 5)}};
  for (const auto& [path, sentence] : cases) EXPECT_EQ(removal(path, home()), sentence);
  EXPECT_EQ(removal("/Applications/x/y.app", "/nonexistent"), "Not found: /Applications/x/y.app");
}

// What is gone when the removal fails stays gone; what could not be removed is there, and so is the bundle.
TEST_F(AppRemovalTest, AnImmutablePartEndsARemoval) {
  const std::string app = home() + "/Applications/Foo.app";
  write(app + "/Contents/immutable", "x");
  const FileDescriptor part(open((app + "/Contents/immutable").c_str(), O_RDONLY | O_CLOEXEC));
  int flags = 0;
  const bool known = ioctl(part.get(), FS_IOC_GETFLAGS, &flags) == 0;
  int immutable = flags | FS_IMMUTABLE_FL;
  if (!known || ioctl(part.get(), FS_IOC_SETFLAGS, &immutable) != 0)
    GTEST_SKIP() << "needs root and such a disk";
  try {
    AppRemovalRunner::remove(app, home());
    ADD_FAILURE() << "an immutable file was removed";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), EPERM);
  }
  EXPECT_TRUE(fs::exists(app + "/Contents/immutable"));
  EXPECT_EQ(ioctl(part.get(), FS_IOC_SETFLAGS, &flags), 0);
  AppRemovalRunner::remove(app, home());
  EXPECT_FALSE(fs::exists(app));
}

}  // namespace
}  // namespace molvane
