// The helper is killed outright at every step of creating and rotating the company administrator.

#include <gmock/gmock.h>

#include <stdexcept>

#include "AccountHarness.hpp"

namespace molvane::e2e {
namespace {

using nlohmann::json;

// What becomes of the tool that was running.
enum class Tool { kDiesToo, kFinishesBefore, kFinishesAfter };

struct Moment {
  const char* name;
  const char* tool;        // that holds then
  const char* directives;  // one of which holds
  int nth;                 // call of the tool
};

struct Crash {
  Moment moment;
  Tool tool;
};
void PrintTo(const Crash& crash, std::ostream* stream) { *stream << crash.moment.name; }

const std::vector<Moment> kCreating{
    {"BeforeAnything", "dscl@-readall", "hold", 1},
    {"BeforeTheToolAsks", "sysadminctl@itadmin", "hold", 1},
    {"WhenThePasswordWasTyped", "sysadminctl@itadmin", "at asked hold", 1},
    {"WhenTheAccountHasNoPasswordYet", "sysadminctl@itadmin", "at recorded hold", 1},
    {"WhenTheAccountIsMade", "sysadminctl@itadmin", "at changed hold", 1},
    {"BeforeItIsHidden", "dscl@_Users_itadmin", "hold", 1},
    {"WhenItIsHidden", "dscl@_Users_itadmin", "at changed hold", 1},
    {"WhenTheDirectoryIsAsked", "dscl@-authonly", "at asked hold", 1},
    {"WhenTheStateIsSaved", "dscl@-readall", "hold", 2},
};

const std::vector<Moment> kRotating{
    {"BeforeAnything", "dscl@-readall", "hold", 1},
    {"WhenItIsEnabledAgain", "pwpolicy@-enableuser", "at changed hold", 1},
    {"BeforeTheToolAsks", "sysadminctl@itadmin", "hold", 1},
    {"WhenThePasswordWasTyped", "sysadminctl@itadmin", "at asked hold", 1},
    {"WhenThePasswordIsSet", "sysadminctl@itadmin", "at changed hold", 1},
    {"WhenTheDirectoryIsAsked", "dscl@-authonly", "at asked hold", 1},
    {"WhenTheStateIsSaved", "dscl@-readall", "hold", 2},
};

std::vector<Crash> crashes(const std::vector<Moment>& moments) {
  std::vector<Crash> all;
  for (const Moment& moment : moments) {
    for (const Tool tool : {Tool::kDiesToo, Tool::kFinishesBefore, Tool::kFinishesAfter}) {
      all.push_back({moment, tool});
    }
  }
  return all;
}

std::string nameOf(const testing::TestParamInfo<Crash>& info) {
  static constexpr std::array kEnds{"ToolDiesToo", "ToolFinishesBefore", "ToolFinishesAfter"};
  return std::string(info.param.moment.name) + kEnds.at(static_cast<std::size_t>(info.param.tool));
}

class CompanyAdminKilled : public AccountFixture {
 protected:
  /// Makes a call and kills the helper at the moment.
  void killDuring(const std::function<void()>& call, HeldTool& tool, int nth) {
    const auto cutOff = std::async(std::launch::async, [&] {
      EXPECT_THROW(call(), std::runtime_error) << "the helper answered before it was killed";
    });
    tool.waitUntilHeld();
    for (int i = 1; i < nth; ++i) {
      HeldTool::letGo();
      tool.waitUntilHeld();
    }
    endHelper();
    cutOff.wait();
    tool.forget();
  }

  void expectWellAfterApply() {
    const json status = applyCompanyAdmin(companyConfig());
    EXPECT_EQ(status.at("active"), true) << status;
    EXPECT_FALSE(status.contains("problem")) << status;
    const HandedOut handedOut = companyAdminPassword();
    EXPECT_EQ(handedOut.name, "itadmin");
    EXPECT_TRUE(isPassword("itadmin", handedOut.password.value_or("")));
    EXPECT_TRUE(isAdministrator("itadmin") && isHidden("itadmin"));
    EXPECT_FALSE(isDisabled("itadmin"));
  }

  /// There is a company administrator, disabled, whose password is to be replaced.
  void makeOneThatIsDue() {
    applyCompanyAdmin(companyConfig());
    applyCompanyAdmin(companyConfig("itadmin", false));
    json state = json::parse(readFile(kStateFile));
    state["rotatedAt"] = "2020-02-02T20:20:20Z";
    writeFile(kStateFile, state.dump());
    known_ = true;
  }

  /// What is handed out works, or it is said that nothing is known.
  void expectHonest() {
    const HandedOut handedOut = companyAdminPassword();
    if (handedOut.error) {
      EXPECT_NE(*handedOut.error, "");
    } else if (handedOut.password) {
      EXPECT_TRUE(isPassword("itadmin", *handedOut.password))
          << "a password that does not work was handed out";
    } else {
      EXPECT_FALSE(known_) << "the account is forgotten";
    }
  }

  bool known_ = false;  ///< there was a company administrator before
};

class CompanyAdminCrash : public CompanyAdminKilled, public testing::WithParamInterface<Crash> {
 protected:
  /// Applies the configuration and kills the helper at the moment; then asks the next helper, which must not
  /// hand out what does not work; then applies once more, after which all must be well.
  void crash() {
    const auto& [moment, fate] = GetParam();
    // With the helper its terminal goes, too, sooner or later. What is to finish must not mind.
    const std::string mind = fate == Tool::kDiesToo ? "" : "ignore-hup\n";
    HeldTool tool(moment.tool, mind + moment.directives + "\n");
    killDuring([this] { applyCompanyAdmin(companyConfig()); }, tool, moment.nth);
    switch (fate) {
      case Tool::kDiesToo:
        tool.killTool();
        break;
      case Tool::kFinishesBefore:
        tool.letFinish();
        break;
      case Tool::kFinishesAfter:
        expectHonest();
        tool.letFinish();
        break;
    }
    expectHonest();
    expectHonest();
    expectWellAfterApply();
  }
};

class CompanyAdminCreationCrash : public CompanyAdminCrash {};
TEST_P(CompanyAdminCreationCrash, EndsWell) { crash(); }
INSTANTIATE_TEST_SUITE_P(At, CompanyAdminCreationCrash, testing::ValuesIn(crashes(kCreating)), nameOf);

class CompanyAdminRotationCrash : public CompanyAdminCrash {};
TEST_P(CompanyAdminRotationCrash, EndsWell) {
  makeOneThatIsDue();
  crash();
}
INSTANTIATE_TEST_SUITE_P(At, CompanyAdminRotationCrash, testing::ValuesIn(crashes(kRotating)), nameOf);

// The password on record is that of an account which somebody has deleted.
class CompanyAdminReplacementCrash : public CompanyAdminCrash {};
TEST_P(CompanyAdminReplacementCrash, EndsWell) {
  makeOneThatIsDue();
  run({"/usr/sbin/sysadminctl", "-deleteUser", "itadmin", "-keepHome"});
  crash();
}
INSTANTIATE_TEST_SUITE_P(At, CompanyAdminReplacementCrash,
                         testing::Values(Crash{kCreating[3], Tool::kDiesToo},
                                         Crash{kCreating[3], Tool::kFinishesAfter},
                                         Crash{kCreating[4], Tool::kDiesToo}),
                         nameOf);

// The first tool makes the account while the next helper's tool is about to.
TEST_F(CompanyAdminKilled, ToolThatOutlivesItsHelperMeetsTheNext) {
  HeldTool first("sysadminctl@itadmin", "ignore-hup\nat asked hold\n");
  killDuring([this] { applyCompanyAdmin(companyConfig()); }, first, 1);
  HeldTool second("sysadminctl@itadmin", "hold\nhold\n");
  auto call = std::async(std::launch::async, [this] { return applyCompanyAdmin(companyConfig()); });
  second.waitUntilHeld();
  // Of the two holds one may be passed now.
  HeldTool::letGo();
  ASSERT_TRUE(eventually([] { return isAdministrator("itadmin"); }));
  second.letFinish();
  call.get();
  second.forget();
  expectHonest();
  expectWellAfterApply();
}

// Killed again while it finds out which password is in force.
class CompanyAdminRecoveryCrash : public CompanyAdminCrash {};
TEST_P(CompanyAdminRecoveryCrash, EndsWell) {
  makeOneThatIsDue();
  {
    HeldTool tool("sysadminctl@itadmin", "at asked hold\n");
    killDuring([this] { applyCompanyAdmin(companyConfig()); }, tool, 1);
    tool.killTool();
  }
  HeldTool tool(GetParam().moment.tool, GetParam().moment.directives + std::string("\n"));
  killDuring([this] { companyAdminPassword(); }, tool, 1);
  tool.killTool();
  expectHonest();
  expectWellAfterApply();
}
INSTANTIATE_TEST_SUITE_P(At, CompanyAdminRecoveryCrash,
                         testing::Values(Crash{kRotating[2], Tool::kDiesToo},
                                         Crash{kRotating[3], Tool::kDiesToo},
                                         Crash{kRotating[4], Tool::kDiesToo}),
                         nameOf);

}  // namespace
}  // namespace molvane::e2e
