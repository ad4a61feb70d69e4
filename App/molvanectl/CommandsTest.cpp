#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "Core/MaintenanceTask.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

const NSError kDenied{"com.molvane.helper", 1, "Path not allowed: /etc"};
const NSError kPosix{"NSPOSIXErrorDomain", 13, "The operation couldn’t be completed. Permission denied"};

TEST(PathCommands, EachPathIsAnsweredAndARefusalStopsNothing) {
  InProcess program;
  program.helper.refusals = {{"/etc", kDenied}, {"/p", kPosix}};
  program.helper.sizes = {{"/a", 9223372036854775807}, {"/b c", 0}, {"/d", 7}};
  const std::string denied = "molvanectl: Path not allowed: /etc (com.molvane.helper, 1)\n";
  const std::string posix = kPosix.localizedDescription + " (NSPOSIXErrorDomain, 13)\n";
  const auto done = ExitStatus::done;
  const auto failed = ExitStatus::failed;
  program.expect({
      {{"size", "/a"}, done, "9223372036854775807\n"},
      {{"size", "/a", "/b c"}, done, "9223372036854775807\t/a\n0\t/b c\n"},
      {{"size", "--json", "/a", "/b c"},
       done,
       "{\"path\":\"/a\",\"bytes\":9223372036854775807}\n{\"path\":\"/b c\",\"bytes\":0}\n"},
      {{"size", "/etc", "/p", "/d"}, failed, "7\t/d\n", denied + "molvanectl: /p: " + posix},
      {{"size", "/p"}, failed, "", "molvanectl: " + posix},
      {{"--json", "size", "/etc", "/d"},
       failed,
       "{\"path\":\"/d\",\"bytes\":7}\n",
       R"({"path":"/etc","error":{"domain":"com.molvane.helper","code":1,)"
       R"("description":"Path not allowed: /etc"}})"
       "\n"},
      {{"remove", "/a"}},
      {{"remove", "-v", "/etc", "/b c"}, failed, "removed /b c\n", denied},
      {{"remove", "/d", "--json"}, done, "{\"path\":\"/d\",\"removed\":true}\n"},
      // A no without a reason is still a no.
      {{"remove", "/a"}, failed, "", "molvanectl: The helper refused and gave no reason.\n"},
  });
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

TEST(TaskRun, LeavesRefusalsToTheHelperAndWarnsAPersonOfASlowTask) {
  InProcess program;
  program.helper.refusals["restart-dock"] = {"com.molvane.helper", 6, "It does not need root."};
  // A helper that is newer than the program knows more tasks.
  program.helper.tasks = {{"new-task", {true, "$ new\n"}}, {"download-updates", {true, "$ x\n"}}};
  const std::string done =
      "$ x\n" + std::string(MaintenanceTask::parse("download-updates")->successSummary()) + "\n";
  program.expect({{{"task", "run", "restart-dock"},
                   ExitStatus::failed,
                   "",
                   "molvanectl: It does not need root. (com.molvane.helper, 6)\n"},
                  {{"task", "run", "new-task"}, ExitStatus::done, "$ new\n"},
                  {{"task", "run", "download-updates"}, ExitStatus::done, done}});
  program.errIsTerminal = true;
  program.expect({{{"task", "run", "download-updates"},
                   ExitStatus::done,
                   done,
                   "molvanectl: This task can take minutes or longer. Waiting for its end.\n"}});
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
