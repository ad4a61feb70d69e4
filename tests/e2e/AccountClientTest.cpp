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
using testing::Not;

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

TEST_F(AccountClient, TellsOfTheCompanyAdministrator) {
  done(molvanectl({"company-admin", "apply", "itadmin"}));
  EXPECT_THAT(done(molvanectl({"company-admin", "status"})).out,
              AllOf(HasSubstr("itadmin"), HasSubstr("[admin] [hidden]")));
  const Outcome refused = molvanectl({"account", "delete", "itadmin"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("company-admin"));
  EXPECT_EQ(done(molvanectl({"company-admin", "password"})).out,
            companyAdminPassword().password.value_or("") + "\n");

  // Another name lets the account go, so a mistyped one must not be enough.
  EXPECT_EQ(molvanectl({"company-admin", "apply", "Corp", "--yes"}).status, 1);
  EXPECT_EQ(molvanectl({"company-admin", "apply", "corpadmin"}).status, 2);
  Terminal terminal({kClient, "company-admin", "apply", "corpadmin"}, kAnn);
  terminal.answer("Type corpadmin to go on.", "itadmin");
  EXPECT_EQ(terminal.wait().status, 1);
  EXPECT_FALSE(isDisabled("itadmin"));
  EXPECT_EQ(companyAdminPassword().name, "itadmin");
  done(molvanectl({"company-admin", "apply", "corpadmin", "--yes"}));
  EXPECT_TRUE(isDisabled("itadmin"));
}

}  // namespace
}  // namespace molvane::e2e
