#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "HelperKit/Accounts/testing/AccountTable.hpp"
#include "HelperKit/Accounts/testing/CompanyAdminKeeperFixture.hpp"
#include "Platform/testing/FileSizeLimit.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using testing::AccountTable;
using testing::after;
using testing::CompanyAdminKeeperTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::kBegin;
using testing::kDay;
using testing::kHour;
using testing::wanted;

TEST_F(CompanyAdminKeeperTest, CreatesAHiddenAdministratorAndHandsItsPasswordOut) {
  EXPECT_EQ(password(), std::nullopt);
  EXPECT_EQ(apply(wanted("itadmin", true, 30), after(0.75)),
            (CompanyAdminStatus{wanted("itadmin", true, 30), true, kBegin, std::nullopt}));
  const AccountTable::Account& account = table_.accounts.at("itadmin");
  EXPECT_TRUE(account.isAdmin && account.isHidden);
  EXPECT_EQ(account.fullName, "IT Department");
  EXPECT_EQ(working().size(), 20U);
  EXPECT_THAT(table_.calls,
              ElementsAre("sysadminctl -addUser itadmin -fullName IT Department -password - -admin",
                          "dscl . -create /Users/itadmin IsHidden 1"));
  EXPECT_FALSE(fs::exists(pendingFile()));
  EXPECT_EQ(CompanyAdminKeeper(folder_, table_.machine()).managedName(), "itadmin");
}

TEST_F(CompanyAdminKeeperTest, ReplacesThePasswordWhenItIsDue) {
  apply();
  const std::string first = working();
  EXPECT_EQ(apply(wanted(), after(7 * kDay - kHour)).rotatedAt, kBegin);
  EXPECT_EQ(working(), first);
  EXPECT_EQ(apply(wanted(), after(7 * kDay)).rotatedAt, after(7 * kDay));
  const std::string second = working();
  EXPECT_NE(second, first);
  // The shortest interval is a day, and no number of days is too many.
  apply(wanted("itadmin", true, std::numeric_limits<std::int64_t>::min()), after(8 * kDay - 1));
  apply(wanted("itadmin", true, std::numeric_limits<std::int64_t>::max()), after(9000 * kDay));
  EXPECT_EQ(working(), second);
  apply(wanted("itadmin", true, 0), after(8 * kDay));
  EXPECT_NE(working(), second);
}

TEST_F(CompanyAdminKeeperTest, SwitchesTheAccountOffAndOn) {
  EXPECT_EQ(apply(wanted("itadmin", false)).active, false);
  EXPECT_THAT(table_.calls, ElementsAre());
  apply();
  const std::string first = working();
  EXPECT_EQ(apply(wanted("itadmin", false)),
            (CompanyAdminStatus{wanted("itadmin", false), false, kBegin, {}}));
  EXPECT_TRUE(table_.accounts.at("itadmin").isDisabled);
  EXPECT_EQ(working(), first);
  EXPECT_EQ(apply().active, true);
  EXPECT_EQ(working(), first);
  apply(wanted("itadmin", false));
  EXPECT_EQ(apply(wanted(), after(7 * kDay)).active, true);
  EXPECT_NE(working(), first);
  // Whatever becomes of the disabling.
  table_.fault = [](const auto&) { return AccountTable::Fault{.result = {.status = 9, .output = "no"}}; };
  EXPECT_EQ(apply(wanted("itadmin", false)).problem, std::nullopt);
}

TEST_F(CompanyAdminKeeperTest, LetsTheAccountGoWhenTheNameChanges) {
  apply();
  EXPECT_EQ(apply(wanted("corpadmin")).active, true);
  EXPECT_TRUE(table_.accounts.at("itadmin").isDisabled);
  EXPECT_TRUE(table_.accounts.at("corpadmin").isHidden);
  working("corpadmin");
  EXPECT_EQ(apply(wanted("Corp")).problem, "invalid-name");
  EXPECT_TRUE(table_.accounts.at("corpadmin").isDisabled);
  EXPECT_EQ(password(), std::nullopt);
  EXPECT_EQ(apply().problem, "exists");
}

TEST_F(CompanyAdminKeeperTest, LeavesWhatIsNotItsOwnAlone) {
  table_.accounts["bob"] = {.fullName = "Bob", .password = "bobs"};
  const CompanyAdminStatus status = apply(wanted("bob"));
  EXPECT_EQ(status, (CompanyAdminStatus{wanted("bob"), false, std::nullopt, "exists"}));
  table_.listing = false;
  EXPECT_EQ(apply(wanted("bob")).problem, "exists") << "a listing that failed made room for the account";
  for (const std::string name : {"", "root", "-rf", "Admin", "a b",
                                 "b\xC3\xB6"
                                 "b"}) {
    EXPECT_EQ(apply(wanted(name)).problem, "invalid-name") << name;
  }
  EXPECT_THAT(table_.calls, ElementsAre());
  EXPECT_EQ(table_.accounts.at("bob").password, "bobs");
  EXPECT_FALSE(fs::exists(folder_));

  table_.listing = true;
  apply();
  table_.listing = false;
  EXPECT_THAT(apply(wanted(), after(8 * kDay)).problem.value_or(""), HasSubstr("not listed"));
  working();
}

TEST_F(CompanyAdminKeeperTest, AFailedToolLeavesTheOldPasswordKnown) {
  using Fault = AccountTable::Fault;
  const std::vector<std::pair<Fault, std::string>> faults = {
      {Fault{.result = {.status = 1, .output = "busy\nError: not now "}}, "Error: not now"},
      {Fault{.result = {.status = 0, .output = "Error: in words alone"}}, "Error: in words alone"},
      {Fault{.result = {.status = -1, .output = ""}}, "failed"},
      {Fault{.result = {.status = -1, .output = "", .abandoned = true}}, "failed"},
      {Fault{.takesEffect = true, .result = {.status = 5, .output = "told off"}}, "told off"},
      {Fault{.takesEffect = true, .result = {.status = -1, .output = "", .abandoned = true}}, "failed"},
      {Fault{.result = {.status = 0, .output = "It is not permitted.\nbye"}}, "It is not permitted."},
      {Fault{.result = {.status = 0, .output = ""}},
       "The directory does not confirm the password: refused (eDSAuthFailed)"},
  };
  apply();
  Date now = kBegin;
  for (const auto& [fault, problem] : faults) {
    now.secondsSinceReference += 7 * kDay;
    const std::string before = working();
    table_.fault = [fault = fault](const std::string& call) {
      return call.starts_with("sysadminctl") ? std::optional(fault) : std::nullopt;
    };
    EXPECT_EQ(apply(wanted(), now).problem, problem);
    EXPECT_EQ(working() == before, !fault.takesEffect);
    table_.fault = nullptr;
    EXPECT_EQ(apply(wanted(), now).problem, std::nullopt);
    EXPECT_NE(working(), before);
  }
}

TEST_F(CompanyAdminKeeperTest, AToolLeftBehindHasNoOtherPasswordToOverwrite) {
  apply();
  table_.fault = [](const std::string& call) -> std::optional<AccountTable::Fault> {
    if (!call.starts_with("sysadminctl")) return std::nullopt;
    return AccountTable::Fault{.result = {.status = -1, .output = "", .abandoned = true}};
  };
  EXPECT_NE(apply(wanted(), after(7 * kDay)).problem, std::nullopt);
  const std::string pending = CompanyAdminFiles(folder_).pending().state.password;
  table_.fault = nullptr;
  EXPECT_EQ(working(), pending);
  // It would be due, but the tool may set the old one over it at any time.
  EXPECT_EQ(apply(wanted(), after(14 * kDay)).rotatedAt, after(14 * kDay));
  EXPECT_EQ(working(), pending);
}

TEST_F(CompanyAdminKeeperTest, AnAccountMadeMeanwhileByAnotherIsNotTakenOver) {
  table_.fault = [&](const std::string& call) {
    std::optional<AccountTable::Fault> fault;
    if (call.starts_with("sysadminctl")) {
      table_.accounts["itadmin"] = {.fullName = "", .password = "theirs"};
      fault = {.result = {.status = 1, .output = "the name is taken"}};
    }
    return fault;
  };
  EXPECT_EQ(apply().problem, "the name is taken");
  table_.fault = nullptr;
  EXPECT_EQ(apply().problem, "exists");
  EXPECT_EQ(table_.accounts.at("itadmin").password, "theirs");
  // Nor is one that was made after a creation that came to nothing.
  table_.accounts.clear();
  table_.fault = [](const std::string& call) -> std::optional<AccountTable::Fault> {
    if (!call.starts_with("sysadminctl")) return std::nullopt;
    return AccountTable::Fault{.result = {.status = 1, .output = "no"}};
  };
  EXPECT_EQ(apply().problem, "no");
  EXPECT_EQ(password(), std::nullopt);
  table_.fault = nullptr;
  table_.accounts["itadmin"] = {.fullName = "IT Department", .password = "theirs"};
  EXPECT_EQ(apply().problem, "exists");
}

TEST_F(CompanyAdminKeeperTest, ARecordThatOthersCouldChangeCountsWhenTheDirectoryConfirmsIt) {
  apply(wanted(), after(9000 * kDay));
  const std::string good = working();
  const std::string record = folder_ + "/company-admin.json";
  const auto widen = [&] {
    fs::permissions(folder_, fs::perms::all);
    fs::permissions(record, fs::perms::all);
  };
  widen();
  EXPECT_EQ(working(), good);
  EXPECT_EQ(fs::status(folder_).permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(record).permissions(), fs::perms::owner_read) << "still in doubt, but nobody else's";
  table_.fault = [](const auto&) { return AccountTable::Fault{.result = {.output = "no answer"}}; };
  EXPECT_THROW(static_cast<void>(password()), CompanyAdminKeeper::PasswordUnknown);
  EXPECT_THAT(apply(wanted("corpadmin")).problem.value_or(""), HasSubstr("no answer"));
  table_.fault = nullptr;
  EXPECT_EQ(CompanyAdminKeeper(folder_, table_.machine()).managedName(), "itadmin");
  EXPECT_EQ(apply(), (CompanyAdminStatus{wanted(), true, kBegin, {}}));
  EXPECT_EQ(working(), good);
  EXPECT_EQ(fs::status(record).permissions(), fs::perms::owner_read | fs::perms::owner_write);

  // On the word of somebody else no account is touched, not even let go.
  table_.accounts["ann"] = {.fullName = "Ann", .password = "anns", .isAdmin = true};
  CompanyAdminFiles(folder_).saveState({"ann", "planted", kBegin});
  widen();
  EXPECT_THROW(static_cast<void>(password()), CompanyAdminKeeper::PasswordUnknown);
  EXPECT_THAT(apply(wanted("ann")).problem.value_or(""), HasSubstr("Others could change the record"));
  EXPECT_EQ(apply(wanted("corpadmin")).problem, std::nullopt);
  EXPECT_FALSE(table_.accounts.at("ann").isDisabled || table_.accounts.at("ann").isHidden);
  working("corpadmin");
}

TEST_F(CompanyAdminKeeperTest, AFullDiskLosesNoPassword) {
  std::optional<testing::FileSizeLimit> full;
  full.emplace(10);
  EXPECT_THAT(apply().problem.value_or(""), HasSubstr("could"));
  full.reset();
  EXPECT_TRUE(table_.accounts.empty()) << "created with a password that nobody knows";
  apply();
  // Full only when the tool has done its work.
  table_.moment = [&](const std::string& moment) {
    if (moment.starts_with("after sysadminctl")) full.emplace(10);
  };
  EXPECT_NE(apply(wanted(), after(7 * kDay)).problem, std::nullopt);
  working();
  working();
  table_.moment = nullptr;
  full.reset();
  EXPECT_EQ(apply(wanted(), after(7 * kDay)), (CompanyAdminStatus{wanted(), true, after(7 * kDay), {}}));
  working();
}

TEST_F(CompanyAdminKeeperTest, SaysWhyItDoesNotKnow) {
  apply();
  const std::string good = working();
  // A file of a password that was being set, of which nothing can be read.
  std::ofstream(pendingFile()) << "{";
  EXPECT_EQ(working(), good);
  table_.accounts.at("itadmin").password = "other";
  EXPECT_THROW(static_cast<void>(password()), CompanyAdminKeeper::PasswordUnknown);
  EXPECT_EQ(apply().problem, std::nullopt);
  EXPECT_NE(working(), good);
  EXPECT_FALSE(fs::exists(pendingFile()));

  CompanyAdminFiles(folder_).savePending({"itadmin", "another", kBegin});
  const auto unknown = [this]() -> std::string {
    try {
      return password()->password;
    } catch (const CompanyAdminKeeper::PasswordUnknown& error) {
      return error.what();
    }
  };
  const std::string begin = "The company administrator’s password is not known: ";
  table_.listing = false;
  EXPECT_EQ(unknown(), begin + "The account itadmin is there but is not listed.");
  table_.listing = true;
  table_.accounts.at("itadmin").isDisabled = true;
  EXPECT_EQ(unknown(), begin + "The account itadmin is disabled.");
  table_.accounts.at("itadmin").isDisabled = false;
  table_.fault = [](const auto&) { return AccountTable::Fault{.result = {.status = 1, .output = ""}}; };
  EXPECT_EQ(unknown(), begin + "The directory does not confirm the password.");
  table_.accounts.erase("itadmin");
  EXPECT_EQ(unknown(), begin + "There is no account itadmin.");
  table_.listing = false;
  EXPECT_EQ(unknown(), begin + "The list of accounts cannot be read.");
}

TEST_F(CompanyAdminKeeperTest, APendingPasswordOfAnotherAccountIsPassedOver) {
  apply();
  table_.calls.clear();
  CompanyAdminFiles(folder_).savePending({"somebody", "else", kBegin});
  working();
  EXPECT_EQ(apply().problem, std::nullopt);
  EXPECT_THAT(table_.calls, ElementsAre());
}

TEST_F(CompanyAdminKeeperTest, CallsOfSeveralThreadsWaitForEachOther) {
  CompanyAdminKeeper keeper(folder_, table_.machine());
  std::atomic<int> inside = 0;
  table_.moment = [&](const std::string& moment) {
    if (moment.starts_with("before")) {
      EXPECT_EQ(++inside, 1);
      std::this_thread::yield();
    } else {
      --inside;
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(keeper.apply(wanted(), after(round * 8 * kDay)).problem, std::nullopt);
        const auto name = i % 2 == 0 ? keeper.managedName() : keeper.password()->name;
        EXPECT_EQ(name, "itadmin");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace molvane
