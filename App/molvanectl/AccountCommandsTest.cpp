#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "Core/LocalAccounts.hpp"
#include "Platform/FileDescriptor.hpp"
#include "molvanectl/AccountWords.hpp"
#include "molvanectl/testing/InProcess.hpp"

namespace molvane::ctl {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// A pipe with a text in it, closed at the other end.
class Piped {
 public:
  explicit Piped(const std::string& text) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    read_.reset(ends[0]);
    const FileDescriptor write(ends[1]);
    EXPECT_EQ(::write(write.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  [[nodiscard]] std::string number() const { return std::to_string(read_.get()); }

 private:
  FileDescriptor read_;
};

LocalAccountOperation sent(const InProcess& program) {
  return decodedJson<LocalAccountOperation>(program.helper.documents.back());
}

TEST(AccountChanges, SendWhatTheyAreCalled) {
  InProcess program;
  program.helper.accounts = R"({"accounts":[],"fileVault":false})";
  const std::pair<const char*, LocalAccountOperation> commands[] = {
      {"make-admin", {SetAccountAdmin{"bob", true}}},
      {"remove-admin", {SetAccountAdmin{"bob", false}}},
      {"enable", {SetAccountEnabled{"bob", true}}},
      {"disable", {SetAccountEnabled{"bob", false}}},
      {"delete", {DeleteAccount{"bob"}}}};
  for (const auto& [command, operation] : commands) {
    EXPECT_EQ(program.run({"account", command, "bob"}), ExitStatus::done);
    EXPECT_EQ(sent(program), operation) << command;
    EXPECT_EQ(program.out.written, accountSentence(operation) + "\n");
  }
  EXPECT_EQ(program.run({"account", "delete", "bob", "--json"}), ExitStatus::done);
  EXPECT_EQ(program.out.written,
            R"({"account":"bob","done":"delete","snapshot":{"accounts":[],"fileVault":false}})"
            "\n");
}

TEST(AccountChanges, PasswordsComeFromDescriptorsLineByLine) {
  InProcess program;
  program.helper.accounts = R"({"accounts":[],"fileVault":false})";
  const Piped both("anns secret\n pass wörd \nrest\n");
  EXPECT_EQ(program.run({"account", "create", "bob", "--full-name", "Bob B", "--admin", "--must-change",
                         "--proof-name", "ann", "--proof-password-fd", both.number(), "--password-fd",
                         both.number()}),
            ExitStatus::done);
  EXPECT_EQ(sent(program), (LocalAccountOperation{CreateAccount{"bob", "Bob B", " pass wörd ", true, true,
                                                                AccountAdminProof{"ann", "anns secret"}}}));

  const Piped withoutNewline("new secret");
  EXPECT_EQ(program.run({"account", "reset-password", "bob", "--password-fd", withoutNewline.number()}),
            ExitStatus::done);
  EXPECT_EQ(sent(program),
            (LocalAccountOperation{ResetAccountPassword{"bob", "new secret", false, std::nullopt}}));
  EXPECT_THAT(program.out.written + program.err.written, Not(HasSubstr("secret")));
}

TEST(AccountChanges, WithoutAUsablePasswordNothingIsAsked) {
  InProcess program;
  const auto create = [&](const std::string& descriptor) {
    return program.run({"account", "create", "bob", "--password-fd", descriptor});
  };
  for (const char* number : {"x", "-1", "1x", " 0", "99999999999"}) {
    EXPECT_EQ(create(number), ExitStatus::usage) << number;
  }
  EXPECT_EQ(program.run({"account", "create", "bob", "--proof-password-fd", "0"}), ExitStatus::usage);
  EXPECT_EQ(create(Piped("\xFFsecret\n").number()), ExitStatus::usage);
  EXPECT_THAT(program.err.written, Not(HasSubstr("secret")));
  EXPECT_EQ(create(Piped("").number()), ExitStatus::failed);
  EXPECT_EQ(create(Piped("\nsecond\n").number()), ExitStatus::failed);
  EXPECT_EQ(create(Piped(std::string(20000, 'x')).number()), ExitStatus::failed);
  EXPECT_EQ(create("987654"), ExitStatus::failed) << "not open";
  EXPECT_EQ(create(Piped("windows secret\r\n").number()), ExitStatus::failed);
  EXPECT_THAT(program.err.written,
              HasSubstr("New password for bob ends with a carriage return, as a line of a text"));
  EXPECT_EQ(create(Piped(std::string("two\0parts\n", 10)).number()), ExitStatus::failed);
  EXPECT_THAT(program.err.written, HasSubstr("holds a NUL character"));
  int person = -1;
  int screen = -1;
  ASSERT_EQ(openpty(&person, &screen, nullptr, nullptr, nullptr), 0);
  const FileDescriptor hands(person);
  const FileDescriptor terminal(screen);
  ASSERT_EQ(write(person, "shown secret\n", 13), 13);
  EXPECT_EQ(create(std::to_string(screen)), ExitStatus::usage);
  EXPECT_EQ(program.helper.connections, 0);
}

TEST(AccountChanges, ARefusalIsASentence) {
  InProcess program;
  for (const char* refusal : {"invalid-name", "exists", "not-found", "system-account", "last-admin",
                              "logged-in", "company-account", "needs-admin"}) {
    program.helper.accountRefusal = refusal;
    EXPECT_EQ(program.run({"account", "delete", "bob"}), ExitStatus::failed);
    EXPECT_THAT(program.err.written,
                AllOf(StartsWith("molvanectl: "), HasSubstr("bob"), Not(HasSubstr(refusal)),
                      HasSubstr(" (com.molvane.helper.account, ")));
  }
  program.helper.accountRefusal = "bad-admin";
  const Piped secrets("first secret\nsecond secret\n");
  EXPECT_EQ(program.run({"account", "reset-password", "bob", "--proof-name", "eve", "--proof-password-fd",
                         secrets.number(), "--password-fd", secrets.number(), "--json"}),
            ExitStatus::failed);
  const auto report = nlohmann::json::parse(program.err.written);
  EXPECT_EQ(report["refusal"], "bad-admin");
  EXPECT_EQ(report["error"]["domain"], "com.molvane.helper.account");
  EXPECT_EQ(report["error"]["code"], 10);
  EXPECT_THAT(report["error"]["description"].get<std::string>(), StartsWith("eve cannot vouch"));
  EXPECT_THAT(program.out.written, IsEmpty());
}

TEST(AccountChanges, TheWordsOfAToolAndAnErrorArePassedOn) {
  InProcess program;
  program.helper.accountRefusal = "Error: the disk is full";
  EXPECT_EQ(program.run({"account", "enable", "bob"}), ExitStatus::failed);
  EXPECT_THAT(program.err.written,
              AllOf(HasSubstr("The system says: Error: the disk is full"), HasSubstr(", 11)")));

  program.helper.accountRefusal = "";
  program.helper.accountError = NSError{"com.molvane.helper", 7, "Bad device job: account"};
  EXPECT_EQ(program.run({"account", "enable", "bob"}), ExitStatus::failed);
  EXPECT_EQ(program.err.written, "molvanectl: Bad device job: account (com.molvane.helper, 7)\n");
}

TEST(AccountList, TellsWhatIsSpecialAndCommandsNoTerminal) {
  LocalAccount account;
  account.name = "amélie";
  account.fullName = "Am\nélie\x1b[2J";
  account.uid = 501;
  LocalAccountsSnapshot snapshot;
  EXPECT_EQ(accountLine(account, snapshot).substr(0, 28), "amélie                  501");
  EXPECT_THAT(accountLine(account, snapshot), AllOf(Not(HasSubstr("\n")), Not(HasSubstr(" ["))));
  account.fullName = "Amélie";
  account.isAdmin = account.canUnlockFileVault = account.isDisabled = account.isHidden = true;
  snapshot.loggedIn = "ame\u0301lie";
  EXPECT_THAT(accountLine(account, snapshot),
              HasSubstr("Amélie [admin] [unlocks disk] [disabled] [hidden] [logged in]"));
}

TEST(AccountList, SaysSoWhenTheDirectoryCannotBeRead) {
  if (access("/usr/bin/dscl", X_OK) == 0) GTEST_SKIP() << "this machine has a directory";
  InProcess program;
  EXPECT_EQ(program.run({"account", "list"}), ExitStatus::failed);
  EXPECT_EQ(
      program.err.written,
      "molvanectl: The accounts cannot be read: /usr/bin/dscl cannot be run, No such file or directory.\n");
}

TEST(CompanyAdmin, ApplySendsTheConfigurationAndTellsTheStatus) {
  InProcess program;
  program.helper.companyAdminStatus =
      R"({"config":{"enabled":true,"name":"itadmin","fullName":"IT","rotationDays":7,"updatedAt":1},)"
      R"("active":true,"rotatedAt":0})";
  EXPECT_EQ(program.run({"company-admin", "apply", "itadmin", "--full-name", "IT", "--rotation-days", "7"}),
            ExitStatus::done);
  EXPECT_EQ(program.out.written,
            "The company administrator itadmin is active. Its password was set at 2001-01-01T00:00:00Z.\n");
  const auto config = decodedJson<CompanyAdminConfig>(program.helper.documents.back());
  EXPECT_EQ(config, (CompanyAdminConfig{true, "itadmin", "IT", 7, config.updatedAt}));
  EXPECT_GT(config.updatedAt.secondsSinceReference, 0);

  EXPECT_EQ(program.run({"company-admin", "apply", "itadmin", "--disabled"}), ExitStatus::done);
  const auto disabled = decodedJson<CompanyAdminConfig>(program.helper.documents.back());
  EXPECT_EQ(disabled, (CompanyAdminConfig{false, "itadmin", "itadmin", 30, disabled.updatedAt}));

  for (const char* days : {"0", "-7", "week", "7.5", "9223372036854775808"}) {
    EXPECT_EQ(program.run({"company-admin", "apply", "itadmin", "--rotation-days=" + std::string(days)}),
              ExitStatus::usage)
        << days;
  }
}

TEST(CompanyAdmin, AnotherNameIsAskedAboutAndOneThatCannotBeRefused) {
  InProcess program;
  program.helper.companyAdmin = {"itadmin", "k3ptS3cret"};
  program.helper.companyAdminStatus =
      R"({"config":{"enabled":true,"name":"x","fullName":"","rotationDays":7,"updatedAt":1},"active":true})";
  const auto apply = [&](const std::string& name, const std::string& option = "--disabled") {
    program.helper.documents.clear();
    return program.run({"company-admin", "apply", name, option});
  };
  for (const char* const name : {"root", "Corp", "1x", "a b", "x\ny"}) {
    EXPECT_EQ(apply(name, "--yes"), ExitStatus::failed);
    EXPECT_THAT(program.err.written, HasSubstr("cannot be the company administrator: a short name has"));
  }
  EXPECT_EQ(program.helper.connections, 0);
  EXPECT_EQ(apply("itadmin"), ExitStatus::done);
  EXPECT_EQ(apply("corpadmin"), ExitStatus::usage);
  EXPECT_THAT(program.err.written, HasSubstr("where nobody can be asked, say so with --yes"));
  EXPECT_THAT(program.helper.documents, IsEmpty());
  EXPECT_EQ(apply("corpadmin", "--yes"), ExitStatus::done);

  program.console.hasPerson = program.errIsTerminal = true;
  EXPECT_EQ(apply("corpadmin", "--json"), ExitStatus::usage);
  for (const char* const typed : {"itadmin", "y", ""}) {
    program.console.typed = {typed};
    EXPECT_EQ(apply("corpadmin"), ExitStatus::failed);
    EXPECT_THAT(program.helper.documents, IsEmpty());
  }
  EXPECT_EQ(
      program.err.written,
      "molvanectl: The helper manages itadmin now. It will disable that account and forget its password. "
      "Type corpadmin to go on.\n"
      "molvanectl: That is not corpadmin. Nothing was changed.\n");
  program.console.typed = {"corpadmin"};
  EXPECT_EQ(apply("corpadmin"), ExitStatus::done);
  EXPECT_THAT(program.helper.documents, ::testing::SizeIs(1));

  // It may be another account that the helper cannot look at just now.
  program.helper.companyAdmin.reset();
  program.helper.accountError = NSError{"NSPOSIXErrorDomain", 5, "The account itadmin is not listed."};
  program.console.hasPerson = false;
  EXPECT_EQ(apply("corpadmin"), ExitStatus::usage);
  EXPECT_THAT(program.err.written, HasSubstr("molvanectl: The account itadmin is not listed. If the helper"));
  EXPECT_THAT(program.helper.documents, IsEmpty());
  apply("corpadmin", "--yes");
  EXPECT_THAT(program.helper.documents, ::testing::SizeIs(1));
}

TEST(CompanyAdmin, AProblemIsASentenceAndAFailure) {
  InProcess program;
  const auto apply = [&](const std::string& problem) {
    program.helper.companyAdminStatus =
        R"({"config":{"enabled":true,"name":"bob","fullName":"","rotationDays":7,"updatedAt":1},"active":false,)"
        R"("problem":")" +
        problem + R"("})";
    EXPECT_EQ(program.run({"company-admin", "apply", "bob"}), ExitStatus::failed);
    EXPECT_THAT(program.out.written, IsEmpty());
    return program.err.written;
  };
  EXPECT_THAT(apply("exists"), HasSubstr("There is an account named bob already"));
  EXPECT_THAT(apply("invalid-name"), HasSubstr("bob cannot be the company administrator"));
  EXPECT_THAT(apply("Error: no"), HasSubstr("The system says: Error: no"));
}

TEST(CompanyAdmin, ThePasswordStandsAloneAndOnlyWhereItIsAskedFor) {
  const std::string none = "The helper manages no company administrator.\n";
  InProcess program;
  program.expect(
      {{{"company-admin", "password"}, ExitStatus::failed, "", "molvanectl: " + none},
       {{"company-admin", "status"}, ExitStatus::done, none},
       {{"company-admin", "status", "--json"}, ExitStatus::done, "{\"name\":null,\"account\":null}\n"}});
  program.helper.companyAdmin = {"itadmin", "k3ptS3cret"};
  program.expect({{{"company-admin", "password"}, ExitStatus::done, "k3ptS3cret\n"},
                  {{"company-admin", "password", "--json"},
                   ExitStatus::done,
                   "{\"name\":\"itadmin\",\"password\":\"k3ptS3cret\"}\n"}});
  program.run({"company-admin", "status"});
  EXPECT_THAT(program.out.written + program.err.written, Not(HasSubstr("k3ptS3cret")));
  program.helper.companyAdmin.reset();
  program.helper.accountError = NSError{"NSPOSIXErrorDomain", 5, "No."};
  program.expect(
      {{{"company-admin", "password"}, ExitStatus::failed, "", "molvanectl: No. (NSPOSIXErrorDomain, 5)\n"}});
}

}  // namespace
}  // namespace molvane::ctl
