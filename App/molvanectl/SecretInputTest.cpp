#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <string>
#include <vector>

#include "Core/LocalAccounts.hpp"
#include "HelperProtocol/testing/ServedHelper.hpp"
#include "molvanectl/testing/OnTerminal.hpp"
#include "molvanectl/testing/Shell.hpp"

namespace molvane::ctl {
namespace {

using molvane::testing::Answers;
using molvane::testing::ServedHelper;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

// The thread sanitizer keeps signals back until a call that it knows to wait, and pselect is none of these.
#ifdef MOLVANE_SIGNALS_HELD_BACK
constexpr bool kSignalsHeldBack = true;
#else
constexpr bool kSignalsHeldBack = false;
#endif

class SecretInputTest : public ::testing::Test {
 protected:
  SecretInputTest() {
    Answers answers;
    answers.text = "weak-password";
    served.helper().setAnswers(answers);
  }

  std::vector<std::string> command(std::vector<std::string> words) {
    words.insert(words.begin(), {MOLVANECTL_PROGRAM, "--socket", served.socketPath(), "account"});
    return words;
  }

  ServedHelper served;
};

TEST_F(SecretInputTest, ThePersonTypesWithoutEchoAndTheHelperGetsIt) {
  OnTerminal program(command({"create", "bob", "--proof-name", "ann"}));
  program.waitFor("Password of administrator ann: ");
  EXPECT_FALSE(program.echoes());
  program.type("anns secret\n");
  program.waitFor("New password for bob: ");
  EXPECT_FALSE(program.echoes());
  program.type("böbs secret x\x7F\n");
  program.waitFor("New password for bob, again: ");
  program.type("böbs secret \n");
  const int status = program.end();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 1);
  EXPECT_THAT(program.shown, Not(HasSubstr("secret")));
  EXPECT_THAT(program.shown, HasSubstr("8 to 128 characters"));

  const auto calls = served.helper().takeCalls();
  ASSERT_THAT(calls, SizeIs(1));
  EXPECT_EQ(decodedJson<LocalAccountOperation>(calls[0].argument),
            (LocalAccountOperation{CreateAccount{"bob", "bob", "böbs secret ", false, false,
                                                 AccountAdminProof{"ann", "anns secret"}}}));
}

TEST_F(SecretInputTest, NothingIsAskedOfTheHelperWithoutAPassword) {
  OnTerminal differing(command({"reset-password", "bob"}));
  differing.waitFor("New password for bob: ");
  differing.type("one secret\n");
  differing.waitFor("again: ");
  differing.type("another secret\n");
  EXPECT_EQ(WEXITSTATUS(differing.end()), 1);
  EXPECT_THAT(differing.shown, HasSubstr("differ"));

  OnTerminal empty(command({"reset-password", "bob"}));
  empty.waitFor("New password for bob: ");
  empty.type("\n");
  EXPECT_EQ(WEXITSTATUS(empty.end()), 1);

  OnTerminal ended(command({"reset-password", "bob"}));
  ended.waitFor("New password for bob: ");
  ended.type("\x04");
  EXPECT_EQ(WEXITSTATUS(ended.end()), 1);
  EXPECT_THAT(served.helper().takeCalls(), IsEmpty());
}

TEST_F(SecretInputTest, ASignalIsObeyedWithTheEchoBack) {
  if (kSignalsHeldBack) GTEST_SKIP() << "no signal comes through at the prompt";
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    // Keeps the terminal open, so that its settings can be seen afterwards.
    OnTerminal program(command({"reset-password", "bob"}));
    program.waitFor("New password for bob: ");
    program.type("half a sec");
    if (signal == SIGINT) {
      program.type("\x03");
    } else {
      program.signal(signal);
    }
    const int status = program.end();
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
    EXPECT_TRUE(program.echoes()) << signal;
    EXPECT_THAT(program.shown, Not(HasSubstr("sec")));
  }
  // A program that was stopped and goes on asks again; its parent is no shell here, so it is not stopped at
  // all.
  OnTerminal stopped(command({"reset-password", "bob"}));
  stopped.waitFor("New password for bob: ");
  stopped.signal(SIGTSTP);
  stopped.waitFor("\r\nNew password for bob: ");
  stopped.type("\n");
  EXPECT_EQ(WEXITSTATUS(stopped.end()), 1);
  EXPECT_THAT(served.helper().takeCalls(), IsEmpty());
}

TEST_F(SecretInputTest, WhatWasTypedIsNotLeftForTheNextProgram) {
  if (kSignalsHeldBack) GTEST_SKIP() << "no signal comes through at the prompt";
  std::vector<std::string> words = command({"reset-password", "bob"});
  words.insert(
      words.begin(),
      {"/bin/sh", "-c", "trap : TERM; \"$@\"; printf next:; IFS= read -r left; echo \"<$left>\"", "sh"});
  OnTerminal shell(words);
  shell.waitFor("New password for bob: ");
  shell.type("half a sec");
  shell.signal(SIGTERM);
  shell.waitFor("next:");
  shell.type("\n");
  shell.end();
  EXPECT_THAT(shell.shown, HasSubstr("<>"));
}

TEST(SecretInput, WithoutATerminalItSaysHowElse) {
  const ShellResult result = shell("setsid -w $M account create bob 2>&1");
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("--password-fd"));
}

}  // namespace
}  // namespace molvane::ctl
