// molvanectl account and molvanectl company-admin, with a person at the terminal and without.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <fstream>

#include "AccountHarness.hpp"
#include "Terminal.hpp"

namespace molvane::e2e {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

constexpr int kFailed = 1;
constexpr int kUsage = 2;

class AccountClient : public AccountFixture {
 protected:
  /// Runs the client as Ann with lines to be read from its descriptor 3.
  static Outcome withDescriptor(const std::string& arguments, const std::string& lines) {
    const std::filesystem::path pipe = "/tmp/secret";
    std::filesystem::remove(pipe);
    if (mkfifo(pipe.c_str(), 0644) != 0) throw std::runtime_error("mkfifo");
    const auto writer =
        std::async(std::launch::async, [&] { std::ofstream(pipe, std::ios::binary) << lines; });
    return run({"/bin/bash", "-c", std::string("exec ") + kClient + " " + arguments + " 3<" + pipe.string()},
               kAnn);
  }

  static Outcome done(const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 0) << testing::PrintToString(outcome);
    return outcome;
  }
};

TEST_F(AccountClient, AsksForPasswordsWithoutEcho) {
  Terminal terminal(
      {kClient, "account", "create", "carol", "--full-name", "Carol C", "--admin", "--proof-name", "ann"},
      kAnn);
  terminal.answer("Password of administrator ann: ", kAnnsPassword);
  terminal.answer("New password for carol: ", secret("correct horse ü"));
  terminal.answer("again: ", "correct horse ü");
  const Outcome outcome = done(terminal.wait());
  EXPECT_THAT(outcome.out, AllOf(HasSubstr("Account carol was created."), Not(HasSubstr("horse")),
                                 Not(HasSubstr(kAnnsPassword))));
  EXPECT_TRUE(isPassword("carol", "correct horse ü"));
  EXPECT_TRUE(isAdministrator("carol"));

  Terminal differing({kClient, "account", "reset-password", "bob"}, kAnn);
  differing.answer("New password for bob: ", secret("battery staple"));
  differing.answer("again: ", "battery stable");
  EXPECT_THAT(differing.wait().out, HasSubstr("differ"));
  EXPECT_TRUE(isPassword("bob", kBobsPassword));
}

TEST_F(AccountClient, ChangesAccounts) {
  done(withDescriptor("account create carol --password-fd 3", secret("correct horse") + "\n"));
  EXPECT_TRUE(isPassword("carol", "correct horse"));
  done(withDescriptor(
      "account reset-password carol --must-change --proof-name ann --proof-password-fd 3 --password-fd 3",
      std::string(kAnnsPassword) + "\n" + secret("battery staple") + "\n"));
  EXPECT_TRUE(isPassword("carol", "battery staple"));

  EXPECT_EQ(done(molvanectl({"account", "make-admin", "carol"})).out,
            "Account carol is an administrator now.\n");
  EXPECT_TRUE(isAdministrator("carol"));
  EXPECT_EQ(done(molvanectl({"account", "disable", "carol"})).out, "Account carol cannot log in any more.\n");
  EXPECT_TRUE(isDisabled("carol"));
  EXPECT_THAT(done(molvanectl({"account", "list"}, kBob)).out,
              AllOf(HasSubstr("[admin] [unlocks disk] [logged in]\n"), HasSubstr("503  carol [admin]"),
                    HasSubstr("[disabled]\n"), Not(HasSubstr("root")), Not(HasSubstr("nobody"))));
  EXPECT_EQ(done(molvanectl({"account", "enable", "carol"})).out, "Account carol can log in again.\n");
  EXPECT_EQ(done(molvanectl({"account", "remove-admin", "carol"})).out,
            "Account carol is no administrator any more.\n");
  const Outcome deleted = done(molvanectl({"--json", "account", "delete", "carol"}));
  EXPECT_EQ(json::parse(deleted.out).at("done"), "delete");
  EXPECT_FALSE(accountExists("carol"));
}

TEST_F(AccountClient, SaysWhatWasRefused) {
  const auto refusal = [](const std::vector<std::string>& arguments) {
    const Outcome outcome = molvanectl(arguments);
    EXPECT_EQ(outcome.status, kFailed) << testing::PrintToString(outcome);
    EXPECT_EQ(outcome.out, "");
    return outcome.err;
  };
  EXPECT_THAT(refusal({"account", "delete", "zoe"}), HasSubstr("There is no account named zoe."));
  EXPECT_THAT(refusal({"account", "disable", "ann"}), HasSubstr("ann is logged in."));
  EXPECT_THAT(withDescriptor("account create bob --password-fd 3", "correct horse\n").err,
              HasSubstr("There is an account named bob already."));
  EXPECT_THAT(withDescriptor("account create carol --password-fd 3", "short\n").err,
              HasSubstr("8 to 128 characters"));
  const ToolBehaviour fails("dseditgroup", "print Error: the directory is closed\nexit 1\n");
  EXPECT_THAT(refusal({"account", "make-admin", "bob"}), HasSubstr("Error: the directory is closed"));

  // A password is never an argument.
  EXPECT_EQ(molvanectl({"account", "create", "carol", "--password", "correct horse"}).status, kUsage);
  EXPECT_EQ(molvanectl({"account", "create", "carol", "correct horse"}).status, kUsage);
  const Outcome noTerminal = run({"/usr/bin/setsid", "-w", kClient, "account", "create", "carol"}, kAnn);
  EXPECT_EQ(noTerminal.status, kFailed);
  EXPECT_THAT(noTerminal.err, HasSubstr("no terminal"));
  EXPECT_FALSE(accountExists("carol"));
}

TEST_F(AccountClient, KeepsTheCompanyAdministrator) {
  EXPECT_EQ(molvanectl({"company-admin", "password"}).status, kFailed);
  EXPECT_THAT(done(molvanectl({"company-admin", "apply", "itadmin", "--rotation-days", "7"})).out,
              HasSubstr("The company administrator itadmin is active."));
  const std::string password = companyAdminPassword().password.value_or("");
  EXPECT_TRUE(isPassword("itadmin", password));
  EXPECT_EQ(done(molvanectl({"company-admin", "password"})).out, password + "\n");
  EXPECT_THAT(done(molvanectl({"company-admin", "status"})).out,
              AllOf(HasSubstr("itadmin"), HasSubstr("[admin] [hidden]")));
  EXPECT_THAT(molvanectl({"account", "delete", "itadmin"}).err, HasSubstr("company-admin"));
  EXPECT_THAT(molvanectl({"company-admin", "apply", "bob"}).err,
              HasSubstr("There is an account named bob already"));
  EXPECT_TRUE(isDisabled("itadmin")) << "it was let go";
  EXPECT_EQ(molvanectl({"company-admin", "password"}).status, kFailed);
}

}  // namespace
}  // namespace molvane::e2e
