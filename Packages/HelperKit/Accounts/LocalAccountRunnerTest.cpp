#include "HelperKit/Accounts/LocalAccountRunner.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

namespace molvane::LocalAccountRunner {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

const AccountAdminProof kProof{"ann", "anns secret"};

Step pwpolicy(std::vector<std::string> arguments) { return {"/usr/bin/pwpolicy", std::move(arguments), {}}; }

TEST(LocalAccountRunner, CreatesWithPromptsForEverySecret) {
  const Step plain{"/usr/sbin/sysadminctl",
                   {"-addUser", "bob", "-fullName", "Bob B", "-password", "-"},
                   {{std::nullopt, "bobs secret"}}};
  EXPECT_THAT(steps({CreateAccount{"bob", "Bob B", "bobs secret", false, false, std::nullopt}}),
              ElementsAre(plain));

  const Step withAll{"/usr/sbin/sysadminctl",
                     {"-addUser", "bob", "-fullName", "Bob B", "-password", "-", "-admin", "-adminUser",
                      "ann", "-adminPassword", "-"},
                     {{"password for ann ", "anns secret"}, {std::nullopt, "bobs secret"}}};
  EXPECT_THAT(steps({CreateAccount{"bob", "Bob B", "bobs secret", true, true, kProof}}),
              ElementsAre(withAll, pwpolicy({"-u", "bob", "-setpolicy", "newPasswordRequired=1"})));
}

TEST(LocalAccountRunner, ResetsWithPromptsForEverySecret) {
  const Step withAll{
      "/usr/sbin/sysadminctl",
      {"-resetPasswordFor", "bob", "-newPassword", "-", "-adminUser", "ann", "-adminPassword", "-"},
      {{"password for ann ", "anns secret"}, {std::nullopt, "bobs secret"}}};
  EXPECT_THAT(steps({ResetAccountPassword{"bob", "bobs secret", true, kProof}}),
              ElementsAre(withAll, pwpolicy({"-u", "bob", "-setpolicy", "newPasswordRequired=1"})));
  EXPECT_THAT(steps({ResetAccountPassword{"bob", "bobs secret", false, std::nullopt}}), SizeIs(1));
}

TEST(LocalAccountRunner, OtherChangesAreOneStepWithoutSecrets) {
  const auto edit = [](const char* flag) {
    return Step{"/usr/sbin/dseditgroup", {"-o", "edit", flag, "bob", "-t", "user", "admin"}, {}};
  };
  EXPECT_THAT(steps({SetAccountAdmin{"bob", true}}), ElementsAre(edit("-a")));
  EXPECT_THAT(steps({SetAccountAdmin{"bob", false}}), ElementsAre(edit("-d")));
  EXPECT_THAT(steps({SetAccountEnabled{"bob", true}}), ElementsAre(pwpolicy({"-u", "bob", "-enableuser"})));
  EXPECT_THAT(steps({SetAccountEnabled{"bob", false}}), ElementsAre(pwpolicy({"-u", "bob", "-disableuser"})));
  const Step removal{"/usr/sbin/sysadminctl", {"-deleteUser", "bob", "-keepHome"}, {}};
  EXPECT_THAT(steps({DeleteAccount{"bob"}}), ElementsAre(removal));
}

TEST(LocalAccountRunner, AChangeIsAchievedWhenTheAccountsShowIt) {
  LocalAccountsSnapshot snapshot;
  LocalAccount bob;
  bob.name = "b\u00F6b";
  snapshot.accounts = {bob};
  LocalAccount& listed = snapshot.accounts[0];
  const std::string name = "bo\u0308b";
  const auto shows = [&](const LocalAccountOperation& operation) { return achieved(operation, snapshot); };

  const CreateAccount create{name, "Bob", "long enough", true, false, kProof};
  EXPECT_FALSE(shows({create})) << "no administrator yet";
  listed.isAdmin = true;
  EXPECT_FALSE(shows({create})) << "cannot unlock the disk";
  listed.canUnlockFileVault = true;
  EXPECT_TRUE(shows({create}));
  EXPECT_TRUE(shows({SetAccountAdmin{name, true}}));
  EXPECT_FALSE(shows({SetAccountAdmin{name, false}}));
  EXPECT_TRUE(shows({SetAccountEnabled{name, true}}));
  EXPECT_FALSE(shows({SetAccountEnabled{name, false}}));
  listed.isDisabled = true;
  EXPECT_FALSE(shows({SetAccountEnabled{name, true}}));
  EXPECT_TRUE(shows({SetAccountEnabled{name, false}}));
  EXPECT_TRUE(shows({ResetAccountPassword{name, "long enough", false, std::nullopt}}));
  EXPECT_FALSE(shows({DeleteAccount{name}}));

  snapshot.accounts.clear();
  EXPECT_TRUE(shows({DeleteAccount{name}}));
  EXPECT_FALSE(shows({create}));
  EXPECT_FALSE(shows({ResetAccountPassword{name, "long enough", false, std::nullopt}}));
  EXPECT_FALSE(shows({SetAccountAdmin{name, false}}));
  EXPECT_FALSE(shows({SetAccountEnabled{name, false}}));
}

TEST(LocalAccountRunner, AFailureIsDescribedByTheLineThatTellsMost) {
  const auto description = [](const std::string& log) { return Failure(log).errorDescription(); };
  EXPECT_EQ(description(""), "failed");
  EXPECT_EQ(description("\n\n\r\n"), "failed");
  EXPECT_EQ(description("\nDone\n"), "Done");
  EXPECT_EQ(description("\nCreating\nError: one\n Error: two \t\u2028cleaning up\n"), "Error: two");
  EXPECT_EQ(description("\nOperation is not permitted.\nbye"), "Operation is not permitted.");
  EXPECT_EQ(description("\nan error\n last "), "last") << "error in lower case is an ordinary word";
}

TEST(LocalAccountRunner, AToolThatReachedItsLimitIsNamed) {
  const std::vector<Step> twice(2, pwpolicy({"-u", "bob", "-enableuser"}));
  PromptedCommand::Result result{.output = "busy", .abandoned = true};
  const auto run = [&result](const Step&, double) { return result; };
  // Abandoned for a failure of the system, which the output tells.
  EXPECT_EQ(runAll(twice, run).log, "\nbusy");
  result.timedOut = true;
  const Outcome outcome = runAll(twice, run);
  EXPECT_TRUE(outcome.failed && outcome.abandoned);
  EXPECT_EQ(outcome.log, "\nbusy\nError: pwpolicy did not end within 120 seconds");
}

TEST(LocalAccountRunner, GeneratedPasswordsAreOfTheAlphabetAndDiffer) {
  EXPECT_EQ(generatedPassword(0), "");
  std::set<std::string> seen;
  std::string all;
  for (int i = 0; i < 200; ++i) {
    const std::string password = generatedPassword(20);
    EXPECT_THAT(password, SizeIs(20));
    seen.insert(password);
    all += password;
  }
  EXPECT_THAT(seen, SizeIs(200));
  EXPECT_EQ(all.find_first_of("ilo"
                              "IO01"),
            std::string::npos);
  EXPECT_THAT((std::set<char>(all.begin(), all.end())), SizeIs(55)) << "all of the alphabet is in use";
  EXPECT_DEATH((void)generatedPassword(-1), "");
}

TEST(LocalAccountRunner, ARefusalComesBeforeAnyToolThatChangesSomething) {
  // Neither can be allowed on any machine.
  const auto refusal = [](const LocalAccountOperation& operation) {
    try {
      perform(operation, std::nullopt);
    } catch (const LocalAccountFailure& failure) {
      return std::string(failure.rawValue());
    }
    return std::string("performed");
  };
  EXPECT_EQ(refusal({CreateAccount{"root", "Root", "long enough", true, false, std::nullopt}}),
            "invalid-name");
  EXPECT_EQ(refusal({DeleteAccount{"no such account"}}), "not-found");
}

}  // namespace
}  // namespace molvane::LocalAccountRunner
