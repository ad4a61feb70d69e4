#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const NSError kRefused{"com.molvane.helper.policy", 11,
                       "Refusing to remove a protected app: /Applications/Mail.app"};

TEST(AppCommands, RemoveAndInstallAskForWhatTheySay) {
  InProcess program;
  program.helper.sizes = {{"/Applications/A.app", 1}, {"/Applications/B.app", 1}};
  program.helper.installable = {{"/i/A.app", "/Applications/A.app"}};
  EXPECT_EQ(program.run({"app", "remove", "/Applications/A.app"}), ExitStatus::done);
  EXPECT_THAT(program.out.written + program.err.written, IsEmpty());
  EXPECT_EQ(program.run({"app", "remove", "-v", "/Applications/B.app"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "removed /Applications/B.app\n");
  EXPECT_EQ(program.run({"app", "install", "/i/A.app"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "/Applications/A.app\n");
  EXPECT_EQ(program.run({"--json", "app", "install", "/i/A.app"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "{\"path\":\"/i/A.app\",\"destination\":\"/Applications/A.app\"}\n");
  EXPECT_THAT(program.helper.calls,
              ElementsAre("remove application /Applications/A.app", "remove application /Applications/B.app",
                          "install application /i/A.app", "install application /i/A.app"));
}

TEST(AppCommands, ARefusalIsTheHelpersSentence) {
  InProcess program;
  program.helper.refusals = {{"/Applications/Mail.app", kRefused},
                             {"/i/slow.app", {"com.molvane.helper.policy", 13, ""}}};
  EXPECT_EQ(program.run({"app", "remove", "/Applications/Mail.app"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written,
            "molvanectl: Refusing to remove a protected app: /Applications/Mail.app "
            "(com.molvane.helper.policy, 11)\n");
  EXPECT_EQ(program.run({"app", "install", "/i/slow.app"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: No reason was given. (com.molvane.helper.policy, 13)\n");
  EXPECT_EQ(program.run({"app", "remove"}), ExitStatus::usage);
  EXPECT_EQ(program.run({"app", "remove", "/a", "/b"}), ExitStatus::usage);
}

TEST(PackageCommands, OnlyTheOptionLeavesTheAssessmentOut) {
  InProcess program;
  program.errIsTerminal = true;
  program.helper.installable = {{"/i/a.pkg", "installer: done"}};
  EXPECT_EQ(program.run({"package", "install", "/i/a.pkg"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "installer: done\n");
  EXPECT_EQ(program.err.written, "molvanectl: The installer can take minutes. Waiting for its end.\n");
  EXPECT_EQ(program.run({"package", "install", "--unverified", "/i/a.pkg", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "{\"path\":\"/i/a.pkg\",\"output\":\"installer: done\"}\n");
  EXPECT_THAT(program.helper.calls,
              ElementsAre("install package /i/a.pkg", "install unverified package /i/a.pkg"));
}

TEST(ApplicationPaths, AreSeenFromTheCurrentFolder) {
  const std::string here = std::filesystem::current_path().string();
  InProcess program;
  program.run({"app", "remove", "A.app"});
  program.run({"app", "install", "./sub/A.app"});
  program.run({"package", "install", "a.pkg"});
  EXPECT_THAT(program.helper.calls, ElementsAre("remove application " + here + "/A.app",
                                                "install application " + here + "/./sub/A.app",
                                                "install package " + here + "/a.pkg"));
}

}  // namespace
}  // namespace molvane::ctl
