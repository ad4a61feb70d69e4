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
#include "Platform/testing/FileSizeLimit.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane {
namespace {

namespace fs = std::filesystem;
using testing::AccountTable;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr double kHour = 3600;
constexpr double kDay = 86400;

const Date kBegin = Date::fromUnixSeconds(1'800'000'000);
Date after(double seconds) { return {kBegin.secondsSinceReference + seconds}; }

CompanyAdminConfig wanted(const std::string& name = "itadmin", bool enabled = true, std::int64_t days = 7) {
  return {enabled, name, "IT Department", days, kBegin};
}

class CompanyAdminKeeperTest : public ::testing::Test {
 protected:
  CompanyAdminStatus apply(const CompanyAdminConfig& config = wanted(), Date now = kBegin) {
    return CompanyAdminKeeper(folder_, table_.machine()).apply(config, now);
  }
  std::optional<CompanyAdminKeeper::Credentials> password() {
    return CompanyAdminKeeper(folder_, table_.machine()).password();
  }
  /// The password handed out, which must be the account's.
  std::string working(const std::string& name = "itadmin") {
    const auto handedOut = password().value_or(CompanyAdminKeeper::Credentials{});
    EXPECT_EQ(handedOut.name, name);
    EXPECT_EQ(handedOut.password, table_.accounts.at(name).password);
    return handedOut.password;
  }
  [[nodiscard]] std::string pendingFile() const { return folder_ + "/company-admin.pending.json"; }

  TemporaryFolder temporary_;
  std::string folder_ = temporary_.path() + "/state";
  AccountTable table_;
};

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

/// What the keeper may find, and what may go wrong then.
struct Situation {
  std::string state;    ///< the password on record; empty: no file
  std::string pending;  ///< likewise; "{": a file that cannot be read
  std::string account;  ///< "absent", "half made", "finished" or "disabled"
  std::string tools;    ///< "work", "fail", "fail half way", "lie", "hang", "work but fail"
  bool listing = true;
  bool answers = true;  ///< the directory, when it is asked about a password
};

class CompanyAdminSituationTest : public CompanyAdminKeeperTest {
 protected:
  void setUp(const Situation& found) {
    fs::remove_all(folder_);
    table_ = AccountTable();
    fs::create_directory(folder_);
    for (const auto& [file, password] :
         {std::pair(folder_ + "/company-admin.json", found.state), std::pair(pendingFile(), found.pending)}) {
      if (password.empty()) continue;
      // The keeper's own way of writing would wait for the disk each time.
      std::ofstream(file) << (password == "{" ? "{"
                                              : encodedJson(CompanyAdminState{"itadmin", password, kBegin}));
      fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    }
    if (found.account == "absent") return;
    const bool whole = found.account != "half made";
    table_.accounts["itadmin"] = {"IT Department", whole ? "in force" : "", whole, whole,
                                  found.account == "disabled"};
  }

  void setFaults(const Situation& found) {
    table_.listing = found.listing;
    table_.fault = [this, found](const std::string& call) -> std::optional<AccountTable::Fault> {
      const bool asks = call.find("-authonly") != std::string::npos;
      if (asks ? found.answers : found.tools == "work") return std::nullopt;
      const bool creates = call.find("-addUser") != std::string::npos;
      if (creates && found.tools == "fail half way") table_.accounts["itadmin"].fullName = "IT Department";
      const bool works = !asks && (found.tools == "hang" || found.tools == "work but fail");
      const int status = !asks && found.tools == "lie" ? 0 : 1;
      return AccountTable::Fault{works,
                                 {.status = status, .output = "so", .abandoned = found.tools == "hang"}};
    };
  }

  [[nodiscard]] bool isFinished() const {
    const auto found = table_.accounts.find("itadmin");
    return found != table_.accounts.end() && found->second.isAdmin && found->second.isHidden &&
           !found->second.isDisabled;
  }

  /// What is handed out is the account's password, or nothing is; then "" is returned.
  std::string honest() {
    try {
      const std::string told = password().value_or(CompanyAdminKeeper::Credentials{}).password;
      EXPECT_TRUE(told.empty() || table_.accounts["itadmin"].password == told) << told;
      return told;
    } catch (const CompanyAdminKeeper::PasswordUnknown&) {
      return "";
    }
  }

  void walk(const Situation& found) {
    const bool rubbish = found.pending == "{";
    const bool pending = !found.pending.empty() && !rubbish && found.pending != found.state;
    setUp(found);
    setFaults(found);
    const CompanyAdminStatus status = apply();
    EXPECT_TRUE(status.problem || (status.active && isFinished())) << "called active, not finished";
    // Nobody asks about a password on record while none is pending; that `apply` could not is the problem.
    if (!status.problem || pending) honest();
    table_.fault = nullptr;
    table_.listing = true;
    const CompanyAdminStatus later = apply();
    if (found.account != "absent" && found.state.empty() && !pending) {
      EXPECT_EQ(later.problem, "exists");
      return;
    }
    EXPECT_EQ(later.problem, std::nullopt);
    EXPECT_TRUE(isFinished());
    // A tool that has outlived its helper may set a pending one at any time.
    EXPECT_EQ(honest(), pending ? found.pending : table_.accounts.at("itadmin").password);
    EXPECT_FALSE(fs::exists(pendingFile()));
  }
};

TEST_F(CompanyAdminSituationTest, EachEndsInOneGoodAccountOrAProblemThatIsTold) {
  for (const char* const state : {"", "in force", "dead"}) {
    for (const char* const pending : {"", "in force", "never set", "{"}) {
      for (const char* const account : {"absent", "half made", "finished", "disabled"}) {
        for (const char* const tools : {"work", "fail", "fail half way", "lie", "hang", "work but fail"}) {
          for (const auto& [listing, answers] : {std::pair(true, true), {true, false}, {false, true}}) {
            const bool few = !listing || account == std::string("disabled") || pending == std::string("{");
            if (few && tools != std::string("work")) continue;
            SCOPED_TRACE(::testing::Message()
                         << "state " << state << ", pending " << pending << ", account " << account
                         << ", tools " << tools << ", listing " << listing << ", answers " << answers);
            walk({state, pending, account, tools, listing, answers});
          }
        }
      }
    }
  }
}

/// Pictures of the files and the accounts at every moment when a tool is called or has done its work: what a
/// helper that is killed there leaves behind.
class CompanyAdminCrashTest : public CompanyAdminKeeperTest {
 protected:
  struct Picture {
    std::string folder;
    std::map<std::string, AccountTable::Account> accounts;
    std::string moment;
  };

  std::vector<Picture> picturesDuring(const std::function<void()>& work) {
    std::vector<Picture> pictures;
    table_.moment = [&](const std::string& moment) {
      const std::string copy = temporary_.path() + "/picture" + std::to_string(count_++);
      fs::exists(folder_) ? fs::copy(folder_, copy) : static_cast<void>(fs::create_directory(copy));
      pictures.push_back({copy, table_.accounts, moment});
    };
    work();
    table_.moment = nullptr;
    return pictures;
  }

  void restore(const Picture& picture) {
    fs::remove_all(folder_);
    fs::copy(picture.folder, folder_);
    table_.accounts = picture.accounts;
  }

  /// Nothing is handed out that does not work. Returns whether something was.
  bool isHonest(bool mayKnowNothing) {
    try {
      const auto handedOut = password();
      EXPECT_TRUE(handedOut || mayKnowNothing) << "the account is forgotten";
      if (!handedOut) return false;
      EXPECT_EQ(handedOut->password, table_.accounts.at(handedOut->name).password);
      return true;
    } catch (const CompanyAdminKeeper::PasswordUnknown& unknown) {
      EXPECT_THAT(unknown.what(), HasSubstr("not known: "));
      return false;
    }
  }

  void endsWell(const std::vector<Picture>& pictures, bool creation) {
    EXPECT_GE(pictures.size(), 2U);
    for (const Picture& picture : pictures) {
      SCOPED_TRACE(picture.moment);
      for (const bool toolsFail : {false, true}) {
        for (const bool askedFirst : {false, true}) {
          restore(picture);
          if (toolsFail) {
            table_.fault = [](const std::string& call) {
              return call.starts_with("sysadminctl")
                         ? std::optional(AccountTable::Fault{.result = {.status = 1, .output = "no"}})
                         : std::nullopt;
            };
          }
          const bool known = !askedFirst || isHonest(creation);
          EXPECT_TRUE(known || toolsFail || creation);
          table_.fault = nullptr;
          const CompanyAdminStatus status = apply(wanted(), after(8 * kDay));
          EXPECT_TRUE(status.active);
          EXPECT_EQ(status.problem, std::nullopt);
          working();
          const AccountTable::Account& account = table_.accounts.at("itadmin");
          EXPECT_TRUE(account.isAdmin && account.isHidden && !account.isDisabled);
          EXPECT_FALSE(fs::exists(pendingFile()));
        }
      }
    }
  }

 private:
  int count_ = 0;
};

TEST_F(CompanyAdminCrashTest, EndsWellWhileCreating) {
  endsWell(picturesDuring([&] { apply(wanted(), after(8 * kDay)); }), true);
}

TEST_F(CompanyAdminCrashTest, EndsWellWhileRotating) {
  apply();
  apply(wanted("itadmin", false));
  endsWell(picturesDuring([&] { apply(wanted(), after(8 * kDay)); }), false);
}

TEST_F(CompanyAdminCrashTest, EndsWellWhileWhatACrashLeftIsSettled) {
  apply();
  const auto pictures = picturesDuring([&] { apply(wanted(), after(8 * kDay)); });
  for (const Picture& picture : pictures) {
    restore(picture);
    endsWell(picturesDuring([&] {
               static_cast<void>(password());
               apply(wanted(), after(8 * kDay));
             }),
             false);
  }
}

TEST_F(CompanyAdminCrashTest, EndsWellWhileAnAccountIsLetGo) {
  apply(wanted("corpadmin"));
  endsWell(picturesDuring([&] { apply(wanted(), after(8 * kDay)); }), true);
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
