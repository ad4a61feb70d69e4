#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Core/MaintenanceTask.hpp"
#include "molvanectl/testing/HelpReader.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::UnorderedElementsAreArray;

// What bash offers for the last of `words`, which are written as in a script.
Words offered(const std::string& words) {
  return lines(
      outputOf("set -u; source $SOURCE/App/molvanectl/completion/molvanectl.bash\n"
               "COMP_WORDS=(molvanectl " +
               words +
               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
               "complete -p molvanectl >/dev/null || exit\n"
               "_molvanectl molvanectl \"${COMP_WORDS[-1]}\" \"${COMP_WORDS[-2]}\"\n"
               "[ ${#COMPREPLY[@]} -eq 0 ] || printf '%s\\n' \"${COMPREPLY[@]}\""));
}

TEST(Completion, OffersTheCommandsAndOptionsThatStandInTheHelp) {
  InProcess program;
  for (const HelpEntry& entry : readAllHelp(program)) {
    std::string typed;
    for (const std::string& word : entry.name) {
      EXPECT_THAT(offered(typed + word.substr(0, 1)), Contains(word)) << typed;
      typed += word + " ";
    }
    EXPECT_THAT(offered(typed + "--"), UnorderedElementsAreArray(entry.options)) << typed;
  }
  EXPECT_THAT(offered("task ''"), ElementsAre("list", "run"));
  EXPECT_THAT(offered("--json --socket /x task r"), ElementsAre("run"));
  EXPECT_THAT(offered("nonsense ''"), Not(Contains("ping")));
  EXPECT_THAT(offered("remove -- --v"), IsEmpty());
}

TEST(Completion, TaskIdentifiersComeFromTheProgram) {
  std::vector<std::string> ids;
  for (const MaintenanceTask task : MaintenanceTask::listed()) ids.emplace_back(task.rawValue());
  EXPECT_THAT(offered("task run ''"), UnorderedElementsAreArray(ids));
  EXPECT_THAT(offered("task run --json --socket = /x fl"), ElementsAre("flush-dns"));
  EXPECT_THAT(offered("task run flush-dns fl"), IsEmpty());
}

TEST(Completion, PathsAreFileNames) {
  const std::string folder = outputOf("mktemp -d");
  const std::string base = folder.substr(0, folder.find('\n')) + "/";
  outputOf("cd " + base + " && touch 'a file' another && mkdir art && touch other");
  EXPECT_THAT(offered("size " + base + "a"),
              UnorderedElementsAreArray({base + "a file", base + "another", base + "art"}));
  EXPECT_THAT(offered("remove /x -v /y " + base + "o"), ElementsAre(base + "other"));
  EXPECT_THAT(offered("--socket " + base + "o"), ElementsAre(base + "other"));
  EXPECT_THAT(offered("--socket = " + base + "o"), ElementsAre(base + "other"));
  // Each argument by its own kind.
  EXPECT_THAT(offered("device write --yes " + base + "o"), ElementsAre(base + "other"));
  EXPECT_THAT(offered("device write " + base + "other " + base + "o"), IsEmpty());
  EXPECT_THAT(offered("device image " + base + "o"), IsEmpty());
  EXPECT_THAT(offered("device image --owner 501 disk4 " + base + "o"), ElementsAre(base + "other"));
  EXPECT_THAT(offered("device status " + base + "o"), IsEmpty());
  outputOf("rm -r " + base);
}

}  // namespace
}  // namespace molvane::ctl
