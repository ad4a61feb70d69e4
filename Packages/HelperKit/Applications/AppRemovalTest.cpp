#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

// The home folder is a scratch folder of whoever runs the tests; the system's own folders are looked at only.
class AppRemovalTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string home() const { return scratch_.path(); }

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

}  // namespace
}  // namespace molvane
