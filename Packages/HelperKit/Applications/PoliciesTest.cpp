#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using Command = MaintenanceTask::Command;

const char* const kProtected[] = {"Safari.app",
                                  "Mail.app",
                                  "Messages.app",
                                  "FaceTime.app",
                                  "Finder.app",
                                  "System Settings.app",
                                  "System Preferences.app",
                                  "Terminal.app",
                                  "Xcode.app",
                                  "Molvane.app",
                                  "MacMolvane.app"};

/// The sentence of the refusal, or "fine".
template <typename Failure, typename Decide>
std::string verdict(const Decide& decide) {
  try {
    decide();
  } catch (const Failure& failure) {
    return failure.errorDescription();
  }
  return "fine";
}

void write(const fs::path& path, std::string_view content) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
}

void makeApp(const fs::path& app, const std::string& bundleID) {
  write(app / "Contents/Info.plist",
        "<plist><dict><key>CFBundleIdentifier</key><string>" + bundleID + "</string></dict></plist>");
}

// The person is whoever runs the tests, with a scratch folder for a home; the system's own folders are looked
// at only.
class ApplicationPoliciesTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string home() const { return scratch_.path(); }
  [[nodiscard]] std::string inbox() const { return home() + "/Library/Caches/MacMolvane/Company"; }

  [[nodiscard]] std::string removal(const std::string& path) const {
    return verdict<AppRemovalPolicy::Failure>([&] { (void)AppRemovalPolicy::validate(path, home()); });
  }
  [[nodiscard]] std::string install(const std::string& path, uid_t person = getuid()) const {
    return verdict<ApplicationInstallPolicy::Failure>(
        [&] { (void)ApplicationInstallPolicy::validate(path, home(), person); });
  }
  [[nodiscard]] std::string package(const std::string& path, uid_t person = getuid()) const {
    return verdict<PackageInstallPolicy::Failure>(
        [&] { (void)PackageInstallPolicy::validate(path, home(), person); });
  }

  TemporaryFolder scratch_;
};

TEST_F(ApplicationPoliciesTest, RemovalTakesApplicationsOfTwoFoldersInTheOrderOfItsChecks) {
  const std::string apps = home() + "/Applications";
  fs::create_directories(apps + "/Foo.app");
  fs::create_directories(apps + "/Games/Foo.app");
  fs::create_directories(apps + "/Utilities/Foo.app");
  write(apps + "/File.app", "x");
  fs::create_directory_symlink(apps + "/Foo.app", apps + "/Link.app");
  fs::create_symlink("/no/such", apps + "/Dangling.app");
  fs::create_directory_symlink("/usr/bin", apps + "/away");
  const std::string tooDeep = "Only top-level apps (or one folder deep) can be removed: ";
  const std::string outside = "Only apps in /Applications or ~/Applications can be removed: ";
  const std::string denied = "Refusing to remove a protected app: ";
  const std::string nul("/Foo.app\0.app", 13);
  const std::pair<std::string, std::string> cases[] = {
      {apps + "//./away/../Foo.app/", "fine"},
      {apps + "/Games/Foo.app", "fine"},
      {apps + "/Foo", "Not an application bundle: " + apps + "/Foo"},
      {"/Applications/", "Not an application bundle: /Applications/"},
      {"x/../Applications/Foo.app", "Not an application bundle: x/../Applications/Foo.app"},
      {"", "Not an application bundle: "},
      {"/Applications.app", outside + "/Applications.app"},
      {"../Foo.app", outside + "../Foo.app"},
      {"/Applications/../Foo.app/", outside + "/Foo.app"},
      {"/nowhere/../Applications/a/b/Foo.app", tooDeep + "/Applications/a/b/Foo.app"},
      {"/Applications/Utilities/b/Safari.app", tooDeep + "/Applications/Utilities/b/Safari.app"},
      {apps + "/Utilities/Foo.app", denied + apps + "/Utilities/Foo.app"},
      {"/Applications/Utilities.app", "Not found: /Applications/Utilities.app"},
      {"/Applications/none/MacMolvane.app", denied + "/Applications/none/MacMolvane.app"},
      {"/Applications/safari.app", "Not found: /Applications/safari.app"},
      {apps + "/File.app", "Not found: " + apps + "/File.app"},
      {apps + "/Dangling.app", "Not found: " + apps + "/Dangling.app"},
      {apps + "/Link.app", "Refusing to follow a symlink: " + apps + "/Link.app"},
      {apps + nul, "Not found: " + apps + nul}};
  for (const auto& [path, sentence] : cases) EXPECT_EQ(removal(path), sentence);
  for (const std::string name : kProtected) {
    EXPECT_EQ(removal("/Applications/" + name), denied + "/Applications/" + name);
    EXPECT_EQ(removal(apps + "/Games/" + name), denied + apps + "/Games/" + name);
  }
  EXPECT_THAT(AppRemovalPolicy::deniedBasenames(), ::testing::SizeIs(std::size(kProtected)));
  // A home folder below the system's own, and one that is not known.
  const auto in = [](const std::string& path, const std::string& home) {
    return verdict<AppRemovalPolicy::Failure>([&] { (void)AppRemovalPolicy::validate(path, home); });
  };
  EXPECT_EQ(in("/Applications/x/y.app", "/nonexistent"), "Not found: /Applications/x/y.app");
  EXPECT_EQ(in(apps + "/Foo.app", "/nonexistent"), outside + apps + "/Foo.app");
}

TEST_F(ApplicationPoliciesTest, InstallationTakesApplicationsOfThePersonsInbox) {
  const std::string in = inbox() + "/";
  makeApp(in + "Foo.app", "com.example.foo");
  makeApp(in + "sub/Foo.app", "com.example.foo");
  makeApp(home() + "/Foo.app", "com.example.foo");
  fs::create_directory_symlink(in + "Foo.app", in + "Link.app");
  fs::create_directory_symlink(in + "sub", in + "way");
  write(in + "File.app", "x");
  fs::create_directory(in + "Empty.app");
  ASSERT_EQ(mkfifo((in + "Fifo.app").c_str(), 0666), 0);
  const std::string outside = "Only apps received in company mode can be installed: ";
  const std::string link = "Refusing to follow a symlink: ";
  const std::string none = "Not an application: ";
  const std::pair<std::string, std::string> cases[] = {
      {in + "Foo.app/", "fine"},
      {in + "sub/./Foo.app", "fine"},
      {home() + "/Foo.app", outside + home() + "/Foo.app"},
      {in + "../Foo.app", outside + home() + "/Library/Caches/MacMolvane/Foo.app"},
      {inbox(), outside + inbox()},
      {in + "Foo", none + in + "Foo"},
      {in + "Gone.app", none + in + "Gone.app"},
      {in + "way/../Gone.app", none + in + "Gone.app"},
      {in + "Link.app", link + in + "Link.app"},
      {in + "way/Foo.app", link + in + "way/Foo.app"},
      {in + "File.app", none + in + "File.app"},
      {in + "Fifo.app", none + in + "Fifo.app"},
      {in + "Empty.app", none + in + "Empty.app"}};
  for (const auto& [path, sentence] : cases) EXPECT_EQ(install(path), sentence);
  EXPECT_EQ(install(in + "Foo.app", getuid() + 1),
            "The app does not belong to the person logged in: " + in + "Foo.app");
  // Whose it is comes before what it is, and that before its name.
  EXPECT_EQ(install(in + "Empty.app", getuid() + 1),
            "The app does not belong to the person logged in: " + in + "Empty.app");
  for (const std::string name : kProtected) {
    fs::create_directory(in + name);
    EXPECT_EQ(install(in + name), none + in + name);
    makeApp(in + name, "com.example.foo");
    EXPECT_EQ(install(in + name), name + " is protected and cannot be replaced.");
  }
  EXPECT_EQ(ApplicationInstallPolicy::validate(in + "sub/Foo.app", home(), getuid()).bundleID,
            "com.example.foo");
}

TEST_F(ApplicationPoliciesTest, AnApplicationReplacesOnlyAnOlderCopyOfItself) {
  const std::string apps = home() + "/Apps";
  makeApp(apps + "/Foo.app", "com.example.foo");
  write(apps + "/File.app", "x");
  fs::create_directory_symlink(apps + "/Foo.app", apps + "/Link.app");
  const FileDescriptor folder(open(apps.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto place = [&](const std::string& name, const std::string& bundleID) {
    std::string result;
    const std::string refusal = verdict<ApplicationInstallPolicy::Failure>([&] {
      const auto found = ApplicationInstallPolicy::destination(name, bundleID, apps, folder);
      result = found.path + (found.holdsOlderCopy ? " older" : " free");
    });
    return result.empty() ? refusal : result;
  };
  EXPECT_EQ(place("New.app", "com.example.new"), apps + "/New.app free");
  EXPECT_EQ(place("Foo.app", "com.example.foo"), apps + "/Foo.app older");
  for (const std::string name : {"Foo.app", "File.app", "Link.app"}) {
    EXPECT_EQ(place(name, "com.example.other"),
              "/Applications already has a different app called " + name + ".");
  }
  EXPECT_EQ(place("Link.app", "com.example.foo"),
            "/Applications already has a different app called Link.app.");
}

TEST_F(ApplicationPoliciesTest, PackagesComeFromThePersonsInboxAndBeginAsArchives) {
  const std::string in = inbox() + "/";
  write(in + "good.pkg", "xar!");
  write(in + "sub/no-extension", "xar!and more");
  write(home() + "/good.pkg", "xar!");
  write(in + "empty.pkg", "");
  write(in + "short.pkg", "xar");
  write(in + "wrong.pkg", "xar?aaaa");
  fs::create_directory(in + "folder.pkg");
  fs::create_symlink(in + "good.pkg", in + "link.pkg");
  fs::create_symlink("/no/such", in + "dangling.pkg");
  fs::create_directory_symlink(in + "sub", in + "way");
  ASSERT_EQ(mkfifo((in + "fifo.pkg").c_str(), 0666), 0);
  const std::string outside = "Only packages received in company mode can be installed: ";
  const std::string link = "Refusing to follow a symlink: ";
  const std::string none = "Not an installer package: ";
  const std::pair<std::string, std::string> cases[] = {
      {in + "good.pkg", "fine"},
      {in + "way/../sub/no-extension", "fine"},
      {in + "sub/no-extension", "fine"},
      {home() + "/good.pkg", outside + home() + "/good.pkg"},
      {in + "../Company", outside + inbox()},
      {in + "way/../gone.pkg", "Not found: " + in + "gone.pkg"},
      {in + "good.pkg/below", "Not found: " + in + "good.pkg/below"},
      {in + "link.pkg", link + in + "link.pkg"},
      {in + "dangling.pkg", link + in + "dangling.pkg"},
      {in + "way/no-extension", link + in + "way/no-extension"},
      {in + "folder.pkg", none + in + "folder.pkg"},
      {in + "fifo.pkg", none + in + "fifo.pkg"},
      {in + "short.pkg", none + in + "short.pkg"},
      {in + "wrong.pkg", none + in + "wrong.pkg"},
      {in + "empty.pkg", "Not found: " + in + "empty.pkg"}};
  for (const auto& [path, sentence] : cases) EXPECT_EQ(package(path), sentence);
  const std::string others = "The package does not belong to the person logged in: ";
  EXPECT_EQ(package(in + "good.pkg", getuid() + 1), others + in + "good.pkg");
  EXPECT_EQ(package(in + "wrong.pkg", getuid() + 1), others + in + "wrong.pkg");
  EXPECT_EQ(package(in + "folder.pkg", getuid() + 1), none + in + "folder.pkg");
}

TEST(ApplicationPolicies, ToolsPlacesAndLimits) {
  namespace App = ApplicationInstallPolicy;
  namespace Package = PackageInstallPolicy;
  EXPECT_EQ(App::copy("a b", "c"), (Command{"/usr/bin/ditto", {"a b", "c"}}));
  EXPECT_EQ(App::assess("x"), (Command{"/usr/sbin/spctl", {"--assess", "--type", "execute", "x"}}));
  EXPECT_EQ(Package::assess("x"), (Command{"/usr/sbin/spctl", {"--assess", "--type", "install", "x"}}));
  EXPECT_EQ(Package::install("x"), (Command{"/usr/sbin/installer", {"-pkg", "x", "-target", "/"}}));
  EXPECT_EQ(App::describe(App::FailureCase::notAccepted, "why"),
            "macOS would not open this app (it must be signed with a Developer ID and notarized). why");
  EXPECT_EQ(Package::describe(Package::FailureCase::notAccepted, "why"),
            "macOS would not open this package (it must be signed with a Developer ID and notarized). why");
  EXPECT_EQ(App::describe(App::FailureCase::failed, "why"), "why");
  EXPECT_EQ(Package::describe(Package::FailureCase::installFailed, "why"), "why");
  EXPECT_EQ(std::string(App::stagingRoot) + " " + App::applications,
            "/Library/Application Support/MacMolvane/Apps /Applications");
  EXPECT_STREQ(Package::stagingRoot, "/Library/Application Support/MacMolvane/Packages");
  EXPECT_EQ(
      std::make_tuple(App::copyTimeout, App::assessmentTimeout, Package::assessmentTimeout, Package::timeout),
      std::make_tuple(600, 120, 120, 3600));
}

}  // namespace
}  // namespace molvane
