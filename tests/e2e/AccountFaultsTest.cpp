// Account operations with tools that misbehave.

#include <gmock/gmock.h>

#include <future>

#include "AccountHarness.hpp"
#include "Inbox.hpp"

namespace molvane::e2e {
namespace {

using nlohmann::json;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class AccountFaults : public AccountFixture {
 protected:
  /// Creates Carol with a sysadminctl that behaves so.
  AccountReply createWith(const std::string& directives, bool proof = false) {
    const ToolBehaviour behaviour("sysadminctl@carol", directives + "\n");
    json operation = create("carol", "correct horse");
    return manage(proof ? withProof(operation, "ann", kAnnsPassword) : operation);
  }

  /// What the operation failed with; a test failure when it succeeded or was answered otherwise.
  static std::string failureOf(const AccountReply& reply) {
    EXPECT_FALSE(reply.snapshot) << testing::PrintToString(reply);
    EXPECT_EQ(reply.error, std::nullopt);
    return reply.text.value_or("(no text)");
  }
};

TEST_F(AccountFaults, ErrorInTheOutputIsAFailureWhateverTheStatus) {
  EXPECT_EQ(failureOf(createWith("print Error: the directory is full\nprint But go on.\nexit 0")),
            "Error: the directory is full");
  EXPECT_FALSE(accountExists("carol"));
  EXPECT_EQ(failureOf(createWith("at changed print   late Error: of no consequence")),
            "late Error: of no consequence");
  EXPECT_TRUE(accountExists("carol"));
  // Nor does it matter that a secret which is a piece of the word is masked in it.
  const ToolBehaviour refuses("sysadminctl@bob", "print Error: not today\nexit 0\n");
  for (const char* proof : {"r", "E", ":"}) {
    EXPECT_EQ(failureOf(manage(withProof(resetPassword("bob", "correct horse"), "ann", proof))),
              "Error: sysadminctl wrote \"Error:\", maybe within a password");
  }
}

TEST_F(AccountFaults, WrongProofChangesNothing) {
  EXPECT_THAT(failureOf(manage(withProof(create("carol", "correct horse"), "ann", secret("not for ann")))),
              HasSubstr("Error:-14090"));
  EXPECT_FALSE(accountExists("carol"));
}

TEST_F(AccountFaults, ChangeThatDoesNotShowIsAFailure) {
  EXPECT_THAT(failureOf(createWith("no-effect")), EndsWith("Creating user record…"));
  EXPECT_FALSE(accountExists("carol"));
  const ToolBehaviour noGroup("dseditgroup", "no-effect\n");
  EXPECT_EQ(failureOf(manage({{"setAdmin", {{"name", "bob"}, {"admin", true}}}})), "failed");
  const ToolBehaviour noPolicy("pwpolicy", "no-effect\n");
  EXPECT_EQ(failureOf(manage({{"setEnabled", {{"name", "bob"}, {"enabled", false}}}})),
            "Disabling account for user <bob>");
  const ToolBehaviour noDeletion("sysadminctl@bob", "no-effect\n");
  EXPECT_THAT(failureOf(manage({{"delete", {{"name", "bob"}}}})), HasSubstr("Killing all processes"));
  EXPECT_TRUE(accountExists("bob"));
}

TEST_F(AccountFaults, StatusIsAFailure) {
  EXPECT_EQ(failureOf(createWith("at recorded print Error: no space left\nat recorded exit 1")),
            "Error: no space left");
  EXPECT_EQ(shadowHash("carol"), "!") << "made in part";
  const ToolBehaviour silent("dseditgroup", "exit 3\n");
  EXPECT_EQ(failureOf(manage({{"setAdmin", {{"name", "bob"}, {"admin", true}}}})), "failed");
  const ToolBehaviour killed("pwpolicy", "signal KILL\n");
  EXPECT_EQ(failureOf(manage({{"setEnabled", {{"name", "bob"}, {"enabled", false}}}})), "failed");
  EXPECT_FALSE(isDisabled("bob"));
}

TEST_F(AccountFaults, FirstFailedStepIsTheLast) {
  const ToolBehaviour fails("pwpolicy", "print no policies today\nexit 1\n");
  json operation = create("carol", "correct horse");
  operation["create"]["mustChange"] = true;
  EXPECT_EQ(failureOf(manage(operation)), "no policies today");
  EXPECT_TRUE(isPassword("carol", "correct horse")) << "steps that were done stay done";

  const std::string calls = readFile(kToolLog);
  const ToolBehaviour dies("sysadminctl", "signal TERM\n");
  operation = resetPassword("carol", "battery staple");
  operation["resetPassword"]["mustChange"] = true;
  failureOf(manage(operation));
  EXPECT_THAT(readFile(kToolLog).substr(calls.size()), Not(HasSubstr("pwpolicy")));
}

TEST_F(AccountFaults, SecretThatTheToolTellsIsMasked) {
  EXPECT_EQ(failureOf(createWith("tell\nat typed exit 1")), "The password is •••.");
  EXPECT_EQ(failureOf(createWith("tell-split\nat typed exit 1")), "The password is •••.");
  EXPECT_THAT(failureOf(createWith("echo\nprompt Give me a password:\nat typed exit 1")),
              AnyOf("Give me a password:•••", StartsWith("Give me a password:•••")));
}

struct Oddity {
  const char* name;
  const char* directives;
  bool proof;
};
void PrintTo(const Oddity& oddity, std::ostream* stream) { *stream << oddity.name; }

class AccountOddities : public AccountFaults, public testing::WithParamInterface<Oddity> {};

TEST_P(AccountOddities, DoNotMatter) {
  const AccountReply reply = createWith(GetParam().directives, GetParam().proof);
  EXPECT_TRUE(reply.snapshot) << testing::PrintToString(reply);
  EXPECT_TRUE(isPassword("carol", "correct horse"));
}

INSTANTIATE_TEST_SUITE_P(
    All, AccountOddities,
    testing::Values(Oddity{"Echo", "echo", true}, Oddity{"TellsTheSecret", "tell", true},
                    Oddity{"TellsTheSecretInTwoWrites", "tell-split", false},
                    Oddity{"InvalidText", "invalid-utf8\nat asked invalid-utf8", true},
                    Oddity{"PromptByteByByte",
                           "slow-prompt\nprompt Contraseña, password \xF0\x9F\x8D\x8A :", false},
                    Oddity{"ThousandsOfLinesBefore", "flood 2", true}, Oddity{"SixPrompts", "ask 6", false},
                    Oddity{"FiveAndAProof", "ask 5", true},
                    Oddity{"OutputClosed", "at asked close-output", false},
                    Oddity{"GrandchildOnTheTerminal", "at asked grandchild 3608", true},
                    Oddity{"DeafToTermination", "ignore-term", false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(AccountFaults, OnlySixPromptsAndOnlyThoseForPasswordsAreAnswered) {
  EXPECT_THAT(failureOf(createWith("ask 7\npatience 1 7")), EndsWith("Error: prompt 7 was not answered"));
  EXPECT_THAT(failureOf(createWith("ask 6\npatience 1 7", true)),
              EndsWith("Error: prompt 7 was not answered"));
  for (const char* form : {"Word of passage:", "Enter the password", "Password? [y/n]"}) {
    EXPECT_THAT(failureOf(createWith(std::string("patience 1 1\nprompt ") + form)),
                EndsWith("Error: prompt 1 was not answered"))
        << form;
  }
  EXPECT_FALSE(accountExists("carol"));
}

// The full two minutes, once for all tools that have them. Meanwhile everybody else is served, but for those
// who change accounts too.
TEST_F(AccountFaults, ToolsThatHangAreEndedAtTheLimit) {
  const Inbox inbox;
  const ToolBehaviour hangsToo("spctl", "hang\n");
  Program app({kClient, "app", "install", inbox.addApp("Foo.app", "com.example.foo")}, kAnn);
  Program package({kClient, "package", "install", inbox.addPackage("a.pkg", "/unused", "x")}, kAnn);

  const ToolBehaviour hangs("sysadminctl@hangs", "print I am hanging.\nhang\n");
  LogFollower tools(kToolLog);
  auto call = std::async(std::launch::async, [this] { return manage(create("hangs", "correct horse")); });
  tools.waitFor("-addUser hangs");
  auto other = std::async(std::launch::async, [this] { return manage(create("carol", "battery staple")); });
  EXPECT_EQ(molvanectl({"ping"}).out, "pong\n");
  EXPECT_EQ(companyAdminPassword().error, std::nullopt);
  tools.waitFor("-addUser carol", 3 * kPatience);
  EXPECT_EQ(failureOf(call.get()), "Error: sysadminctl did not end within 120 seconds");
  EXPECT_TRUE(other.get().snapshot);
  EXPECT_FALSE(accountExists("hangs"));
  EXPECT_TRUE(eventually([] {
    return run({"/usr/bin/pgrep", "-x", "-f", "sleep infinity"}).status == 1;
  })) << "the tool was left behind";
  for (Program* install : {&app, &package}) {
    EXPECT_THAT(install->wait().err,
                HasSubstr("notarized). The assessment did not finish in time. (com.molvane."));
  }
}

TEST_F(AccountFaults, ListingFails) {
  for (const std::string directives :
       {"exit 1", "print <plist", "invalid-utf8\nexit 0", "print <plist/>\nexit 0"}) {
    const ToolBehaviour broken("dscl@-readall", directives + "\n");
    EXPECT_EQ(manage({{"delete", {{"name", "bob"}}}}).text, "not-found") << directives;
    EXPECT_TRUE(accountExists("bob"));
  }
  for (const std::string directives : {"exit 1", "exit 0", "print <plist/>\nexit 0"}) {
    const ToolBehaviour broken("dscl@_Groups_admin", directives + "\n");
    EXPECT_EQ(manage(withProof(create("carol", "correct horse"), "ann", kAnnsPassword)).text, "bad-admin");
    // A list without its administrators would let the last of them go.
    EXPECT_EQ(manage({{"delete", {{"name", "bob"}}}}).text, "not-found");
    EXPECT_TRUE(accountExists("bob"));
  }
  const ToolBehaviour fails("fdesetup", "exit 2\n");
  const AccountReply reply = manage(create("carol", "correct horse"));
  ASSERT_TRUE(reply.snapshot) << testing::PrintToString(reply);
  EXPECT_EQ(reply.snapshot->at("fileVault"), false);
}

TEST_F(AccountFaults, AccountsThatCannotBeReadBackProveNothing) {
  HeldTool removal("sysadminctl", "hold\n");
  auto reply = std::async(std::launch::async, [this] { return manage({{"delete", {{"name", "bob"}}}}); });
  removal.waitUntilHeld();
  const ToolBehaviour broken("dscl@-readall", "exit 1\n");
  HeldTool::letGo();
  const AccountReply answered = reply.get();
  EXPECT_FALSE(answered.snapshot);
  EXPECT_EQ(answered.text, "Error: the accounts could not be read back");
  EXPECT_FALSE(accountExists("bob"));
}

TEST_F(AccountFaults, OperationsAndAnApplyAtOnce) {
  const auto later = [](auto call) { return std::async(std::launch::async, call); };
  const json carol = create("carol", "correct horse");
  const json dave = create("dave", "battery staple", true);
  auto first = later([&] { return manage(carol); });
  auto second = later([&] { return manage(dave); });
  auto third = later([&] { return applyCompanyAdmin(companyConfig()); });
  EXPECT_TRUE(first.get().snapshot);
  EXPECT_TRUE(second.get().snapshot);
  const json status = third.get();
  EXPECT_EQ(status.value("active", false), true) << status;
  EXPECT_TRUE(isPassword("carol", "correct horse"));
  EXPECT_TRUE(isPassword("dave", "battery staple"));
  const HandedOut company = companyAdminPassword();
  EXPECT_TRUE(isPassword("itadmin", company.password.value_or("")));
  EXPECT_FALSE(isAdministrator("carol"));
  EXPECT_TRUE(isAdministrator("dave") && isAdministrator("itadmin"));
}

}  // namespace
}  // namespace molvane::e2e
