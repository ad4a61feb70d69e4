#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Core/MaintenanceTask.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const NSError kDenied{"com.molvane.helper", 1, "Path not allowed: /etc"};
const NSError kPosix{"NSPOSIXErrorDomain", 13, "The operation couldn’t be completed. Permission denied"};

TEST(PingCommand, PrintsTheAnswer) {
  InProcess program;
  EXPECT_EQ(program.run({"ping"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "pong\n");
  EXPECT_THAT(program.err.written, IsEmpty());
}

TEST(SizeCommand, OnePathIsANumberSeveralAreATable) {
  InProcess program;
  program.helper.sizes = {{"/a", 9223372036854775807}, {"/b c", 0}};
  EXPECT_EQ(program.run({"size", "/a"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "9223372036854775807\n");
  EXPECT_EQ(program.run({"size", "/a", "/b c"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "9223372036854775807\t/a\n0\t/b c\n");
  EXPECT_EQ(program.run({"size", "--json", "/a", "/b c"}), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            "{\"path\":\"/a\",\"bytes\":9223372036854775807}\n{\"path\":\"/b c\",\"bytes\":0}\n");
}

TEST(SizeCommand, ReportsARefusalAndGoesOn) {
  InProcess program;
  program.helper.refusals = {{"/etc", kDenied}, {"/p", kPosix}};
  program.helper.sizes = {{"/b", 7}};
  EXPECT_EQ(program.run({"size", "/etc", "/p", "/b"}), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "7\t/b\n");
  EXPECT_EQ(
      program.err.written,
      "molvanectl: Path not allowed: /etc (com.molvane.helper, 1)\n"
      "molvanectl: /p: The operation couldn’t be completed. Permission denied (NSPOSIXErrorDomain, 13)\n");

  EXPECT_EQ(program.run({"size", "/p"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written,
            "molvanectl: The operation couldn’t be completed. Permission denied (NSPOSIXErrorDomain, 13)\n");

  EXPECT_EQ(program.run({"--json", "size", "/etc", "/b"}), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "{\"path\":\"/b\",\"bytes\":7}\n");
  EXPECT_EQ(program.err.written,
            "{\"path\":\"/etc\",\"error\":{\"domain\":\"com.molvane.helper\",\"code\":1,"
            "\"description\":\"Path not allowed: /etc\"}}\n");
}

TEST(RemoveCommand, IsSilentUnlessAskedAndGoesOnAfterARefusal) {
  InProcess program;
  program.helper.refusals = {{"/etc", kDenied}};
  program.helper.sizes = {{"/a", 1}, {"/b", 1}, {"/c", 1}, {"/d", 1}};
  EXPECT_EQ(program.run({"remove", "/a"}), ExitStatus::done);
  EXPECT_THAT(program.out.written + program.err.written, IsEmpty());

  EXPECT_EQ(program.run({"remove", "-v", "/etc", "/b"}), ExitStatus::failed);
  EXPECT_EQ(program.out.written, "removed /b\n");
  EXPECT_EQ(program.err.written, "molvanectl: Path not allowed: /etc (com.molvane.helper, 1)\n");

  EXPECT_EQ(program.run({"remove", "/c", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "{\"path\":\"/c\",\"removed\":true}\n");
  EXPECT_THAT(program.helper.sizes, ElementsAre(::testing::Key("/d")));

  // A no without a reason is still a no.
  EXPECT_EQ(program.run({"remove", "/a"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: The helper refused and gave no reason.\n");
}

TEST(TaskList, ShowsTheCatalogueWithoutTheHelper) {
  InProcess program;
  EXPECT_EQ(program.run({"task", "list", "--ids"}), ExitStatus::done);
  std::string ids;
  for (const MaintenanceTask task : MaintenanceTask::listed()) ids += std::string(task.rawValue()) + "\n";
  EXPECT_EQ(program.out.written, ids);

  EXPECT_EQ(program.run({"task", "list"}), ExitStatus::done);
  EXPECT_THAT(program.out.written,
              HasSubstr("reindex-spotlight        Reindex Spotlight (boot volume) [root] [slow]\n"
                        "                         Erases and rebuilds the Spotlight index"));
  EXPECT_THAT(program.out.written, HasSubstr("restart-dock             Restart Dock\n"));

  EXPECT_EQ(program.run({"task", "list", "--json"}), ExitStatus::done);
  const std::string first = program.out.written.substr(0, program.out.written.find('\n'));
  EXPECT_EQ(nlohmann::json::parse(first), nlohmann::json({{"id", "flush-dns"},
                                                          {"title", "Flush DNS cache"},
                                                          {"detail", MaintenanceTask::listed()[0].detail()},
                                                          {"requiresRoot", true},
                                                          {"isSlow", false}}));
  EXPECT_EQ(program.helper.connections, 0);
}

TEST(TaskRun, PrintsTheTranscriptAndWhatCameOfIt) {
  const MaintenanceTask flush = MaintenanceTask::flushDNS;
  InProcess program;
  program.helper.tasks["flush-dns"] = {true, "$ dscacheutil -flushcache\n"};
  EXPECT_EQ(program.run({"task", "run", "flush-dns"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "$ dscacheutil -flushcache\n" + std::string(flush.successSummary()) + "\n");

  program.helper.tasks["flush-dns"] = {false, "$ dscacheutil -flushcache\nexit 2\n"};
  EXPECT_EQ(program.run({"task", "run", "flush-dns"}), ExitStatus::failed);
  EXPECT_EQ(program.out.written,
            "$ dscacheutil -flushcache\nexit 2\n" + std::string(flush.failureSummary()) + "\n");
  EXPECT_THAT(program.err.written, IsEmpty());

  EXPECT_EQ(program.run({"task", "run", "flush-dns", "--json"}), ExitStatus::failed);
  EXPECT_EQ(nlohmann::json::parse(program.out.written),
            nlohmann::json({{"task", "flush-dns"},
                            {"succeeded", false},
                            {"transcript", "$ dscacheutil -flushcache\nexit 2\n"},
                            {"summary", flush.failureSummary()}}));
}

TEST(TaskRun, LeavesRefusalsToTheHelper) {
  InProcess program;
  program.helper.refusals = {
      {"restart-dock",
       {"com.molvane.helper", 6, "Task restart-dock does not need root; run it from the app."}},
      {"no-such", {"com.molvane.helper", 5, "Unknown maintenance task: no-such"}}};
  EXPECT_EQ(program.run({"task", "run", "restart-dock"}), ExitStatus::failed);
  EXPECT_EQ(
      program.err.written,
      "molvanectl: Task restart-dock does not need root; run it from the app. (com.molvane.helper, 6)\n");
  EXPECT_EQ(program.run({"task", "run", "no-such"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: Unknown maintenance task: no-such (com.molvane.helper, 5)\n");
  EXPECT_THAT(program.out.written, IsEmpty());

  // A helper that is newer than the program knows more tasks.
  program.helper.tasks["new-task"] = {true, "$ new\n"};
  EXPECT_EQ(program.run({"task", "run", "new-task"}), ExitStatus::done);
  EXPECT_EQ(program.out.written, "$ new\n");
}

TEST(TaskRun, WarnsAPersonOfASlowTask) {
  InProcess program;
  program.helper.tasks["download-updates"] = {true, ""};
  EXPECT_EQ(program.run({"task", "run", "download-updates"}), ExitStatus::done);
  EXPECT_THAT(program.err.written, IsEmpty());
  program.errIsTerminal = true;
  EXPECT_EQ(program.run({"task", "run", "download-updates"}), ExitStatus::done);
  EXPECT_EQ(program.err.written, "molvanectl: This task can take minutes or longer. Waiting for its end.\n");
  EXPECT_EQ(program.run({"task", "run", "download-updates", "--json"}), ExitStatus::done);
  EXPECT_THAT(program.err.written, IsEmpty());
}

TEST(TerminalOutput, NothingFromOutsideCommandsTheTerminal) {
  const std::string transcript = "$ purge \n\x1b]0;owned\x07\x1b[2J\r\xff\n";
  InProcess program;
  program.helper.tasks["purge-memory"] = {true, transcript};
  program.helper.refusals["/\x1b[31m"] = {"d", 1, "No: /\x1b[31m"};

  program.run({"task", "run", "purge-memory"});
  EXPECT_THAT(program.out.written, ::testing::StartsWith(transcript));
  program.run({"size", "/\x1b[31m"});
  EXPECT_EQ(program.err.written, "molvanectl: No: /\x1b[31m (d, 1)\n");

  program.outIsTerminal = program.errIsTerminal = true;
  program.run({"task", "run", "purge-memory"});
  EXPECT_THAT(program.out.written, ::testing::StartsWith("$ purge \n\\x1b]0;owned\\x07\\x1b[2J\\x0d\\xff\n"));
  program.run({"size", "/\x1b[31m"});
  EXPECT_EQ(program.err.written, "molvanectl: No: /\\x1b[31m (d, 1)\n");

  program.helper.tasks["purge-memory"].second = "\x1b[2J\x7f\xc2\x9b\xe2\x80\xae";
  program.run({"task", "run", "purge-memory", "--json"});
  EXPECT_THAT(program.out.written, HasSubstr(R"("transcript":"\u001b[2J\u007f\u009b\u202e")"));
}

}  // namespace
}  // namespace molvane::ctl
