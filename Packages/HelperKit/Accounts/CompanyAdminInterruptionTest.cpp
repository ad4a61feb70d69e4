#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "HelperKit/Accounts/testing/CompanyAdminKeeperFixture.hpp"

// What an earlier helper may have left, and what a killed one leaves at every moment.

namespace molvane {
namespace {

namespace fs = std::filesystem;
using testing::AccountTable;
using testing::after;
using testing::CompanyAdminKeeperTest;
using ::testing::HasSubstr;
using testing::kBegin;
using testing::kDay;
using testing::wanted;

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

}  // namespace
}  // namespace molvane
