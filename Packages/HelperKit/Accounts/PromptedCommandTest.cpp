#include "HelperKit/Accounts/PromptedCommand.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Base/Utf8.hpp"
#include "Platform/posix/LeftoverProcesses.hpp"
#include "Platform/testing/ToolFolder.hpp"

namespace molvane {
namespace {

using LocalAccountRunner::Step;
using PromptedCommand::Limits;
using PromptedCommand::Result;
using testing::ToolFolder;

constexpr double kAmple = 60;   // seconds
constexpr double kShort = 0.5;  // for what hangs

const Step::Answer kAnyPrompt{std::nullopt, "n3w-s3cret"};

/// Tools that run on a real terminal. What they were told stands in the file "heard", one line each.
class PromptedCommandTest : public ::testing::Test {
 protected:
  Result run(const std::string& commands, const std::vector<Step::Answer>& answers = {kAnyPrompt},
             double timeout = kAmple) {
    const std::string preamble =
        "cd '" + tools_.path("") +
        "'\nask() { stty -echo; printf %s \"$1\"; IFS= read -r heard; stty echo; echo; "
        "printf '%s\\n' \"$heard\" >>heard; }\n";
    return PromptedCommand::run({tools_.addScript("tool", preamble + commands), {}, answers}, timeout,
                                limits_);
  }

  [[nodiscard]] std::string heard() const {
    std::ifstream file(tools_.path("heard"), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  ToolFolder tools_;
  Limits limits_{.terminalTool = MOLVANE_BSD_SCRIPT};
};

TEST_F(PromptedCommandTest, TypesTheRightSecretAtEachPrompt) {
  const Result result =
      run("ask 'Enter password for Alice :'\n"
          "ask 'New password: '\n"
          "echo 'one more time'\n"
          "ask 'Retype new PASSWORD:'\n"
          "exit 3\n",
          {{"password for Alice ", "her own"}, kAnyPrompt});
  EXPECT_EQ(heard(), "her own\nn3w-s3cret\nn3w-s3cret\n");
  EXPECT_EQ(result, (Result{.status = 3,
                            .output = "Enter password for Alice :\nNew password: \none more time\n"
                                      "Retype new PASSWORD:"}));
}

TEST_F(PromptedCommandTest, PassesOnStatusArgumentsAndStartFailures) {
  const std::string echo = tools_.addScript("echo", "printf '<%s>' \"$@\"; ask; kill -TERM $$");
  EXPECT_EQ(PromptedCommand::run({echo, {"-q", "", "a b", "--"}, {kAnyPrompt}}, kAmple, limits_)
                .output.substr(0, 15),
            "<-q><><a b><-->");
  EXPECT_EQ(run("kill -TERM $$").status, SIGTERM);
  limits_.terminalTool = "/nonexistent/script";
  EXPECT_EQ(run("exit 0"),
            (Result{.output = "The operation couldn’t be completed. No such file or directory"}));
}

TEST_F(PromptedCommandTest, WithoutAnswersThereIsNoTerminalAndNoMask) {
  limits_.terminalTool = "/nonexistent/script";
  const Result result = run("if [ -t 1 ]; then echo terminal; fi; echo 'n3w-s3cret Password:'; exit 4", {});
  EXPECT_EQ(result, (Result{.status = 4, .output = "n3w-s3cret Password:"}));
  EXPECT_EQ(run("exec sleep 1000", {}, kShort),
            (Result{.status = -1, .output = "", .abandoned = true, .timedOut = true}));
}

TEST_F(PromptedCommandTest, AnswersSixTimesAndNotASeventh) {
  const Result result =
      run("for i in 1 2 3 4 5 6 7; do ask \"Password $i:\"; done", {kAnyPrompt}, 4 * kShort);
  EXPECT_EQ(result.status, -1);
  EXPECT_TRUE(result.abandoned);
  EXPECT_TRUE(result.output.ends_with("Password 7:")) << result.output;
  const std::string told = heard();
  EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 6);
}

TEST_F(PromptedCommandTest, LeavesOtherQuestionsUnanswered) {
  EXPECT_EQ(run("ask 'Enter the password'", {kAnyPrompt}, kShort).status, -1);
  EXPECT_EQ(run("ask 'Passphrase:'", {kAnyPrompt}, kShort).status, -1);
  EXPECT_EQ(run("ask 'password for bob :'", {{"password for alice ", "x"}}, kShort).status, -1);
  EXPECT_EQ(heard(), "");
}

TEST_F(PromptedCommandTest, MasksWhatTheTerminalAndTheToolShowOfASecret) {
  // No stty: the terminal itself echoes what is typed.
  const Result result =
      run("printf 'Password:'; read -r heard\n"
          "echo \"you typed: $heard.\"\n"
          "printf n3w-s; sleep 0.05; printf '3cret\\n'\n");
  EXPECT_EQ(result.output, "Password:•••\nyou typed: •••.\n•••");
  EXPECT_EQ(run("ask 'Password:'; echo 'the password is set'", {{std::nullopt, "password"}}).output,
            "Password:\nthe ••• is set");
}

TEST_F(PromptedCommandTest, AFailureInWordsIsToldWhateverIsMasked) {
  for (const std::string& piece :
       {std::string("r"), std::string("E"), std::string(":"), std::string("Error:")}) {
    const Result result =
        run("ask Password:; printf 'Err'; sleep 0.01; echo 'or: no'", {{std::nullopt, piece}});
    EXPECT_TRUE(result.status == 0 && result.failed()) << piece;
    EXPECT_EQ(result.output.find(piece), std::string::npos) << result.output;
  }
  EXPECT_TRUE(run("echo Error: no", {}).failed());
  EXPECT_TRUE(run("exit 3").failed());
  EXPECT_FALSE(run("echo 'No Error, Eror: or EErro:r'").failed());
}

TEST_F(PromptedCommandTest, TypesLongAndForeignPasswords) {
  std::string password;
  for (int i = 0; i < 128; ++i) password += "🔑";
  const Result result = run("ask 'Password:'; ask 'Password for alice :'; echo \"$heard\"",
                            {{"alice", "ta\tb Ü \\n \"'$(x) "}, {std::nullopt, password}});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(heard(), password + "\nta\tb Ü \\n \"'$(x) \n");
}

TEST_F(PromptedCommandTest, StartsNothingForWhatCannotBePassedOn) {
  for (const std::string& reply :
       {std::string("two\nlines"), std::string("inter\x03rupt"), std::string("erased\x7F"),
        std::string("nul\0", 4), std::string(1024, 'x')}) {
    const Result result = run("echo ran >heard", {{"for alice", "fine"}, {std::nullopt, reply}});
    EXPECT_EQ(result.status, -1);
    EXPECT_FALSE(result.abandoned);
    EXPECT_NE(result.output.find("cannot be typed"), std::string::npos);
  }
  const std::string name("carol\0x", 7);
  for (const std::vector<Step::Answer>& answers : {std::vector{kAnyPrompt}, {}}) {
    const Result result = PromptedCommand::run({"/bin/echo", {"-fullName", name}, answers}, kAmple, limits_);
    EXPECT_EQ(result,
              (Result{.output = "The tool cannot be told the name: there is a NUL character in it."}));
  }
  EXPECT_EQ(heard(), "");
}

TEST_F(PromptedCommandTest, FindsThePromptInWhateverPiecesAndNoiseItComes) {
  const Result result = run(
      "i=0; while [ $i -lt 5000 ]; do echo \"line $i of noise, password: none\"; i=$((i+1)); done\n"
      "printf '\\377\\300 no text\\n'\n"
      "stty -echo\n"
      "for piece in P a ss wor d ' of \\303' '\\251' 'mile' ':' ' '; do printf \"$piece\"; sleep 0.01; done\n"
      "IFS= read -r heard; printf '%s\\n' \"$heard\" >>heard",
      {{"password of émile:", "right"}});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(heard(), "right\n");
  EXPECT_TRUE(isValidUtf8(result.output));
  EXPECT_NE(result.output.find("\nline 4999 of noise, password: none\n\xEF\xBF\xBD"), std::string::npos);
}

TEST_F(PromptedCommandTest, OfAFloodTheBeginningAndTheEndAreKept) {
  limits_.bytesKeptOfEach = 10'000;
  const Result result =
      run("echo first; flood() { yes flood | head -c 4000000; }; flood; echo Error: amid; flood; "
          "ask 'Password:'; echo last");
  EXPECT_TRUE(result.status == 0 && result.failed());
  EXPECT_EQ(heard(), "n3w-s3cret\n");
  EXPECT_TRUE(result.output.starts_with("first\n"));
  EXPECT_TRUE(result.output.ends_with("Password:\nlast"));
  EXPECT_LT(result.output.size(), 21'000U);
}

TEST_F(PromptedCommandTest, AToolMayCloseItsOutputOrLeaveSomebodyOnTheTerminal) {
  EXPECT_EQ(run("ask 'Password:'; exec </dev/null >/dev/null 2>&1; sleep 0.1; exit 5").status, 5);
  // Deaf to the hang-up, and with the terminal open until somebody opens the pipe.
  ASSERT_EQ(::mkfifo(tools_.path("pipe").c_str(), 0600), 0);
  const Result result = run("trap '' HUP; ask 'Password:'; (read -r _ <pipe; echo gone >pipe) & exit 6");
  EXPECT_EQ(result, (Result{.status = 6, .output = "Password:"}));
  std::ofstream(tools_.path("pipe")) << "end\n";
  std::string gone;
  std::ifstream(tools_.path("pipe")) >> gone;
  EXPECT_EQ(gone, "gone");
}

TEST_F(PromptedCommandTest, IsNotHeldUpByAToolThatDoesNotRead) {
  const Result result =
      run("for i in 1 2 3 4 5 6 7; do stty -echo; echo Password $i:; sleep 0.01; done; exec sleep 1000",
          {{std::nullopt, std::string(1023, 'x')}}, kShort);
  EXPECT_EQ(result.status, -1);
  EXPECT_EQ(result.output.find('x'), std::string::npos);
}

TEST_F(PromptedCommandTest, LeavesARunnerAloneThatIgnoresTheRequestToTerminate) {
  limits_.exitAfterStop = std::chrono::milliseconds(100);
  // In place of the terminal tool, which is what the request reaches. It goes when its input ends.
  limits_.terminalTool = tools_.addScript("deaf", "trap '' TERM; echo busy n3w-s3cret; exec cat");
  EXPECT_EQ(run("", {kAnyPrompt}, kShort),
            (Result{.status = -1, .output = "busy •••", .abandoned = true, .timedOut = true}));
  EXPECT_TRUE(
      LeftoverProcesses::shared().waitUntilNone(std::chrono::steady_clock::now() + std::chrono::minutes(1)));
}

TEST_F(PromptedCommandTest, LeavesNothingOpen) {
  const auto before = testing::openDescriptorCount();
  EXPECT_EQ(run("ask 'Password:'").status, 0);
  EXPECT_EQ(run("exec sleep 1000", {kAnyPrompt}, kShort).status, -1);
  EXPECT_EQ(testing::openDescriptorCount(), before);
  EXPECT_FALSE(testing::hasUnreapedChildren());
}

}  // namespace
}  // namespace molvane
