#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "HelperKit/Applications/AppRemovalRunner.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

// The home folder is a scratch folder of whoever runs the tests; the system's own folders are looked at only.
class AppPoliciesTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string home() const { return scratch_.path(); }
  [[nodiscard]] std::string inbox(const std::string& name) const { return companyInbox(home()) + "/" + name; }

  static void write(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << content;
  }

  static void writeApp(const std::string& path, const std::string& identifier) {
    write(path + "/Contents/Info.plist",
          "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
              "</string></dict></plist>");
  }

  // The sentence of the refusal, or "fine".
  template <typename Failure>
  static std::string refusal(const std::function<void()>& validate) {
    try {
      validate();
    } catch (const Failure& failure) {
      return failure.errorDescription();
    }
    return "fine";
  }

  [[nodiscard]] std::string removal(const std::string& path) const {
    return refusal<AppRemovalPolicy::Failure>(
        [&] { static_cast<void>(AppRemovalPolicy::validate(path, home())); });
  }
  [[nodiscard]] std::string installation(const std::string& path, uid_t owner = geteuid()) const {
    return refusal<ApplicationInstallPolicy::Failure>(
        [&] { static_cast<void>(ApplicationInstallPolicy::validate(path, home(), owner)); });
  }
  [[nodiscard]] std::string package(const std::string& path, uid_t owner = geteuid()) const {
    return refusal<PackageInstallPolicy::Failure>(
        [&] { static_cast<void>(PackageInstallPolicy::validate(path, home(), owner)); });
  }

  TemporaryFolder scratch_;
};

TEST_F(AppPoliciesTest, RemovalDecidesByTextBeforeItLooks) {
  const std::string apps = home() + "/Applications";
  fs::create_directories(apps + "/Foo.app");
  fs::create_directories(apps + "/Utilities/Foo.app");
  const std::string tooDeep = "Only top-level apps (or one folder deep) can be removed: ";
  const std::string outside = "Only apps in /Applications or ~/Applications can be removed: ";
  const std::pair<std::string, std::string> cases[] = {
      {apps + "//./Foo.app/", "fine"},
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
  for (const auto& [path, sentence] : cases) EXPECT_EQ(removal(path), sentence);
  EXPECT_EQ(refusal<AppRemovalPolicy::Failure>([&] {
              static_cast<void>(AppRemovalPolicy::validate("/Applications/x/y.app", "/nonexistent"));
            }),
            "Not found: /Applications/x/y.app");
}

TEST_F(AppPoliciesTest, InstallationNeedsAnOwnedRealItemInTheInbox) {
  writeApp(inbox("Foo.app"), "com.example.foo");
  write(inbox("sub/a.pkg"), "xar!rest");
  write(inbox("b.pkg"), "xar");
  fs::create_directory_symlink(inbox("sub"), inbox("way"));
  EXPECT_EQ(installation(inbox("Foo.app")), "fine");
  EXPECT_EQ(installation(inbox("Foo.app"), geteuid() + 1),
            "The app does not belong to the person logged in: " + inbox("Foo.app"));
  EXPECT_EQ(installation(home() + "/Foo.app"),
            "Only apps received in company mode can be installed: " + home() + "/Foo.app");
  EXPECT_EQ(package(inbox("sub//a.pkg")), "fine");
  EXPECT_EQ(package(inbox("sub/a.pkg"), geteuid() + 1),
            "The package does not belong to the person logged in: " + inbox("sub/a.pkg"));
  EXPECT_EQ(package(inbox("way/a.pkg")), "Refusing to follow a symlink: " + inbox("way/a.pkg"));
  EXPECT_EQ(package(inbox("b.pkg")), "Not an installer package: " + inbox("b.pkg"));
  EXPECT_EQ(
      package(companyInbox(home()) + "Other/a.pkg"),
      "Only packages received in company mode can be installed: " + companyInbox(home()) + "Other/a.pkg");
}

TEST_F(AppPoliciesTest, AnAppGoesWhereNothingOrItselfIs) {
  const auto destination = [&](const std::string& name) {
    return ApplicationInstallPolicy::destination(name, "com.example.foo", home(), openFolder(home()));
  };
  writeApp(home() + "/Foo.app", "com.example.foo");
  writeApp(home() + "/Other.app", "com.example.other");
  writeApp(home() + "/kept", "com.example.foo");
  fs::create_directory_symlink(home() + "/kept", home() + "/Link.app");
  EXPECT_TRUE(destination("Foo.app").holdsOlderCopy);
  EXPECT_FALSE(destination("New.app").holdsOlderCopy);
  EXPECT_EQ(destination("New.app").path, home() + "/New.app");
  for (const char* name : {"Other.app", "Link.app"}) {
    EXPECT_EQ(refusal<ApplicationInstallPolicy::Failure>([&] { static_cast<void>(destination(name)); }),
              "/Applications already has a different app called " + std::string(name) + ".");
  }
}

// What is gone when the removal fails stays gone; what could not be removed is there, and so is the bundle.
TEST_F(AppPoliciesTest, AnImmutablePartEndsARemoval) {
  const std::string app = home() + "/Applications/Foo.app";
  writeApp(app, "com.example.foo");
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
