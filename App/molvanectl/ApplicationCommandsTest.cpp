#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::ElementsAre;

TEST(ApplicationCommands, AskForWhatTheySayAndPassARefusalOn) {
  const std::string here = std::filesystem::current_path().string();
  const auto done = ExitStatus::done;
  InProcess program;
  program.helper.sizes = {{"/A.app", 1}, {"/B.app", 1}, {here + "/C.app", 1}};
  program.helper.installable = {{"/i/A.app", "/Applications/A.app"},
                                {here + "/./sub/A.app", "/Applications/A.app"},
                                {"/i/a.pkg", "installer: done"},
                                {here + "/a.pkg", "installer: done"}};
  program.helper.refusals = {{"/Mail.app", {"com.molvane.helper.policy", 11, "It is protected."}},
                             {"/i/slow.app", {"com.molvane.helper.policy", 13, ""}}};
  program.expect({
      {{"app", "remove", "/A.app"}},
      {{"app", "remove", "-v", "/B.app"}, done, "removed /B.app\n"},
      {{"app", "remove", "C.app"}},
      {{"app", "install", "/i/A.app"}, done, "/Applications/A.app\n"},
      {{"--json", "app", "install", "/i/A.app"},
       done,
       "{\"path\":\"/i/A.app\",\"destination\":\"/Applications/A.app\"}\n"},
      {{"app", "install", "./sub/A.app"}, done, "/Applications/A.app\n"},
      {{"package", "install", "a.pkg"}, done, "installer: done\n"},
      {{"package", "install", "--unverified", "/i/a.pkg", "--json"},
       done,
       "{\"path\":\"/i/a.pkg\",\"output\":\"installer: done\"}\n"},
      {{"app", "remove", "/Mail.app"},
       ExitStatus::failed,
       "",
       "molvanectl: It is protected. (com.molvane.helper.policy, 11)\n"},
      {{"app", "install", "/i/slow.app"},
       ExitStatus::failed,
       "",
       "molvanectl: No reason was given. (com.molvane.helper.policy, 13)\n"},
  });
  program.errIsTerminal = true;
  program.expect({{{"package", "install", "/i/a.pkg"},
                   done,
                   "installer: done\n",
                   "molvanectl: The installer can take minutes. Waiting for its end.\n"}});
  EXPECT_THAT(program.helper.calls,
              ElementsAre("remove application /A.app", "remove application /B.app",
                          "remove application " + here + "/C.app", "install application /i/A.app",
                          "install application /i/A.app", "install application " + here + "/./sub/A.app",
                          "install package " + here + "/a.pkg", "install unverified package /i/a.pkg",
                          "remove application /Mail.app", "install application /i/slow.app",
                          "install package /i/a.pkg"));
  EXPECT_EQ(program.run({"app", "remove"}), ExitStatus::usage);
  EXPECT_EQ(program.run({"app", "remove", "/a", "/b"}), ExitStatus::usage);
}

}  // namespace
}  // namespace molvane::ctl
