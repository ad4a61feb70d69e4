#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unicode/utypes.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "HelperProtocol/testing/ServedHelper.hpp"
#include "Platform/testing/TemporaryFolder.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using molvane::testing::Answers;
using molvane::testing::RecordingHelper;
using molvane::testing::ServedHelper;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(Program, EndsWithTheStatusThatScriptsSee) {
  EXPECT_EQ(shell("$M task list --ids >/dev/null").status, 0);
  EXPECT_EQ(shell("$M nonsense 2>/dev/null").status, 2);
  EXPECT_EQ(shell("$M --socket /nonexistent/socket ping 2>/dev/null").status, 3);
  // Even a caller that breaks the custom of passing the program's name gets an answer.
  EXPECT_EQ(shell("exec -a '' $M 2>/dev/null").status, 2);
}

// What the program says on standard error when it is to ping the helper at `socket`, and fails to connect.
std::string whyNotConnected(const std::string& socket) {
  const ShellResult result = shell("$M ping --socket '" + socket + "' 2>&1");
  EXPECT_EQ(result.status, 3) << result.output;
  return result.output;
}

TEST(Program, SaysWhatIsWrongWithTheConnection) {
  const TemporaryFolder folder;
  const std::string nothing = folder.path() + "/nothing";
  EXPECT_EQ(whyNotConnected(nothing), "molvanectl: There is no socket at " + nothing +
                                          ". The helper is not installed, or its socket is not started.\n");
  EXPECT_EQ(whyNotConnected(folder.path()),
            "molvanectl: Nobody listens at " + folder.path() + ". The helper's socket is not started.\n");
  EXPECT_THAT(whyNotConnected(std::string(200, 'x')),
              HasSubstr("cannot be connected to: File name too long.\n"));

  if (::geteuid() == 0) {
    // Root is let in everywhere, so somebody else has to ask.
    ServedHelper closed;
    const ShellResult result = shell("chmod 0711 $(dirname " + closed.socketPath() +
                                     "); setpriv --reuid=65534 --regid=65534 --clear-groups " +
                                     "$M ping --socket " + closed.socketPath() + " 2>&1");
    EXPECT_EQ(result.status, 3) << result.output;
    EXPECT_THAT(result.output, StartsWith("molvanectl: Permission denied at " + closed.socketPath() + ". "));
  }

  ServedHelper::Options options;
  options.codeProblem = "not signed";
  ServedHelper choosy(options);
  EXPECT_THAT(whyNotConnected(choosy.socketPath()),
              AnyOf(HasSubstr("the client that its team signed"),
                    HasSubstr("does not accept this client's signature")));
  EXPECT_THAT(choosy.helper().takeCalls(), IsEmpty());
}

// The program has more rights than who starts it, so what its libraries trust must not come from him. The
// file is a well-formed beginning of the characters' names, and would crash who reads them.
TEST(Program, TakesNoUnicodeDataFromTheEnvironment) {
  using namespace std::string_literals;
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.path() + "/" U_ICUDATA_NAME);
  std::ofstream(folder.path() + "/" U_ICUDATA_NAME "/unames.icu")
      << "\x20\0\xDA\x27\x14\0\0\0\0\0\2\0unam\1\0\0\0\xF\0\0\0\0\0\0\0"s << std::string(4096, '\xFF');
  const ShellResult result =
      shell("printf 'a\\342\\200\\256b' | ICU_DATA=" + folder.path() + " $M paste-check");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("RIGHT-TO-LEFT OVERRIDE"));
}

TEST(Program, TalksToAHelperBehindASocket) {
  ServedHelper served;
  Answers answers;
  answers.message = "pong";
  answers.size = 4096;
  served.helper().setAnswers(answers);
  const std::string program = "$M --socket " + served.socketPath();
  EXPECT_EQ(outputOf(program + " ping"), "pong\n");
  EXPECT_EQ(outputOf(program + " size /a '/b ü'"), "4096\t/a\n4096\t/b ü\n");
  EXPECT_EQ(served.helper().takeCalls(),
            (std::vector<RecordingHelper::Call>{
                {"ping", ""}, {"sizeOfAllowedDirectory", "/a"}, {"sizeOfAllowedDirectory", "/b ü"}}));
  EXPECT_EQ(served.resumed(), 2);

  served.helper().setAnswers(Answers::failure({"com.molvane.helper", 1, "Path not allowed: /a"}));
  const ShellResult refused = shell(program + " remove /a 2>&1");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.output, "molvanectl: Path not allowed: /a (com.molvane.helper, 1)\n");
}

TEST(Program, ReportsAFullDiskAndAClosedStandardOutput) {
  const ShellResult full = shell("$M task list 2>&1 >/dev/full");
  EXPECT_EQ(full.status, 1);
  EXPECT_EQ(full.output, "molvanectl: Standard output could not be written: No space left on device.\n");

  const ShellResult closed = shell("$M task list 2>&1 >&-");
  EXPECT_EQ(closed.status, 1);
  EXPECT_EQ(closed.output, "molvanectl: Standard output could not be written: Bad file descriptor.\n");

  EXPECT_EQ(shell("$M nonsense 2>&-").status, 2);
  EXPECT_EQ(shell("$M task list <&- >&- 2>&-").status, 1);
}

TEST(Program, EndsQuietlyWhenItsReaderHasGone) {
  // The reader is waited for, so that the pipe is broken before the first byte is written.
  const ShellResult gone = shell("exec 3> >(exec true); wait $!; $M task list 2>&1 >&3");
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.output, "");
}

// `command` with a terminal as its standard output and standard error.
std::string onTerminal(const std::string& command) {
  const std::string text = outputOf("script -qefc '" + command + "' /dev/null </dev/null");
  std::string withoutReturns;
  for (const char byte : text) {
    if (byte != '\r') withoutReturns += byte;
  }
  return withoutReturns;
}

TEST(Program, KeepsEscapeSequencesFromATerminalAndFromNothingElse) {
  const std::string refused = "$M \"$(printf \"\\033[31mred\")\"";
  EXPECT_THAT(onTerminal(refused + "; true"), HasSubstr("unknown command '\\x1b[31mred'\n"));
  EXPECT_THAT(outputOf(refused + " 2>&1; true"), HasSubstr("unknown command '\x1b[31mred'\n"));

  // Standard error alone is the terminal, then standard output alone.
  EXPECT_THAT(onTerminal(refused + " >/dev/null; true"), HasSubstr("\\x1b[31m"));
  EXPECT_THAT(onTerminal(refused + " 2>&1 | cat"), HasSubstr("\x1b[31m"));
}

}  // namespace
}  // namespace molvane::ctl
