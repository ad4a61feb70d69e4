#include "HelperKit/Applications/ApplicationPlacement.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;

class ApplicationPlacementTest : public ::testing::Test {
 protected:
  [[nodiscard]] std::string applications() const { return scratch_.path() + "/Applications"; }
  [[nodiscard]] std::string installed(const std::string& name) const { return applications() + "/" + name; }

  static void writeApp(const std::string& path, const std::string& identifier, const std::string& version) {
    fs::create_directories(path + "/Contents");
    std::ofstream(path + "/Contents/Info.plist")
        << "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" << identifier
        << "</string></dict></plist>";
    std::ofstream(path + "/version") << version;
  }
  static std::string versionOf(const std::string& path) {
    std::string version;
    std::ifstream(path + "/version") >> version;
    return version;
  }

  // 0, or the errno with which placing failed.
  int place(StagedItem& work) const {
    try {
      EXPECT_EQ(placement_.place(work, "Foo.app", "com.example.foo"), installed("Foo.app"));
    } catch (const std::system_error& error) {
      return error.code().value();
    }
    return 0;
  }

  TemporaryFolder scratch_;
  const StagingFolder staging_{scratch_.path() + "/Staging"};
  const ApplicationPlacement placement_{staging_, (fs::create_directory(applications()), applications())};
};

TEST_F(ApplicationPlacementTest, TheOlderCopyIsBackWhenTheFinalMoveFails) {
  StagedItem work = staging_.makeFolder();
  writeApp(installed("Foo.app"), "com.example.foo", "1");
  EXPECT_EQ(place(work), ENOENT);  // nothing is there to be moved in
  EXPECT_EQ(versionOf(installed("Foo.app")), "1");
  EXPECT_FALSE(fs::exists(work.path() + "/previous-Foo.app"));
}

// The leftover that holds the only copy stays until the copy can go back, and keeps no other one from being
// removed.
TEST_F(ApplicationPlacementTest, AnOlderCopyThatCannotGoBackIsKept) {
  const std::string uuid = "0B571681-2208-4324-890E-E8E482A51CF5";
  const std::string leftover = scratch_.path() + "/Staging/" + uuid;
  writeApp(leftover + "/previous-Foo.app", "com.example.foo", "1");
  writeApp(leftover + "/Foo.app", "com.example.foo", "2");
  writeApp(leftover.substr(0, leftover.size() - 1) + "6/Bar.app", "com.example.bar", "1");
  for (const auto& folder : fs::directory_iterator(scratch_.path() + "/Staging")) {
    fs::permissions(folder, fs::perms(0700));
  }
  fs::remove(applications());  // nothing can be moved to what is still open of it
  staging_.sweep([this](const FileDescriptor& item) { placement_.salvage(item); });
  EXPECT_EQ(versionOf(leftover + "/previous-Foo.app"), "1");
  EXPECT_EQ(std::distance(fs::directory_iterator(scratch_.path() + "/Staging"), {}), 1);

  fs::create_directory(applications());
  const ApplicationPlacement again(staging_, applications());
  staging_.sweep([&](const FileDescriptor& item) { again.salvage(item); });
  EXPECT_EQ(versionOf(installed("Foo.app")), "1");
  EXPECT_FALSE(fs::exists(leftover));
}

// Hidden folders beside the applications: only those that are really leftovers of ours are taken, and only
// what was about to be replaced goes back.
TEST_F(ApplicationPlacementTest, SweepsItsOwnFoldersInTheApplicationsFolder) {
  const std::string uuid = "0B571681-2208-4324-890E-E8E482A51CF5";
  const std::string leftover = installed(".com.molvane.helper-" + uuid);
  const std::string open = installed(".com.molvane.helper-1" + uuid.substr(1));
  writeApp(leftover + "/previous-Foo.app", "com.example.foo", "1");
  writeApp(leftover + "/Foo.app", "com.example.foo", "2");
  writeApp(leftover + "/previous-Bar.app", "com.example.bar", "replaced, or never accepted");
  writeApp(leftover + "/previous-Baz.app", "com.example.baz", "1");
  writeApp(leftover + "/Baz.app", "com.example.baz", "2");
  writeApp(installed("Baz.app"), "com.example.baz", "3");
  fs::permissions(leftover, fs::perms(0700));
  fs::create_directory(open);
  fs::permissions(open, fs::perms(0755));
  fs::create_directory(installed(uuid));
  placement_.sweep();
  EXPECT_EQ(versionOf(installed("Foo.app")), "1");
  EXPECT_FALSE(fs::exists(installed("Bar.app")));
  EXPECT_EQ(versionOf(installed("Baz.app")), "3");
  EXPECT_FALSE(fs::exists(leftover));
  EXPECT_TRUE(fs::exists(open) && fs::exists(installed(uuid)));
}

}  // namespace
}  // namespace molvane
