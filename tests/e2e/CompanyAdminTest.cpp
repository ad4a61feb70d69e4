#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "AccountHarness.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::MatchesRegex;

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kReferenceDate = 978307200;  // of JSON dates, in seconds since 1970

class CompanyAdmin : public AccountFixture {
 protected:
  /// The handed-out password, which must be the one that works.
  std::string working(const std::string& name = "itadmin") {
    const HandedOut handedOut = companyAdminPassword();
    EXPECT_EQ(handedOut.name, name) << handedOut.error.value_or("");
    EXPECT_TRUE(isPassword(name, handedOut.password.value_or("")));
    return handedOut.password.value_or("");
  }

  static json state() { return json::parse(readFile(kStateFile)); }

  /// Makes the state file say that the password was set so many seconds ago.
  static void setAge(std::int64_t seconds) {
    json changed = state();
    const std::time_t then = std::time(nullptr) - seconds;
    std::array<char, 32> text{};
    (void)std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&then));
    changed["rotatedAt"] = text.data();
    writeFile(kStateFile, changed.dump());
  }

  static mode_t modeOf(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }
};

TEST_F(CompanyAdmin, IsCreatedHiddenAndHandedOut) {
  EXPECT_EQ(companyAdminPassword().name, std::nullopt);
  EXPECT_EQ(companyAdminPassword().error, std::nullopt);
  const json status = applyCompanyAdmin(companyConfig());
  EXPECT_EQ(status.at("config"), companyConfig());
  EXPECT_EQ(status.at("active"), true);
  EXPECT_NEAR(status.at("rotatedAt").get<double>() + kReferenceDate, static_cast<double>(std::time(nullptr)),
              60);
  EXPECT_FALSE(status.contains("problem")) << status;

  const std::string password = working();
  EXPECT_THAT(password, MatchesRegex("[a-hjkmnp-zA-HJ-NP-Z2-9]{20}"));
  EXPECT_TRUE(isAdministrator("itadmin") && isHidden("itadmin"));
  EXPECT_EQ(modeOf(kStateFolder), 0700U);
  EXPECT_EQ(modeOf(kStateFile), 0600U);
  EXPECT_EQ(state().size(), 3U);
  EXPECT_EQ(state().at("name"), "itadmin");
  EXPECT_EQ(state().at("password"), password);
  EXPECT_THAT(state().at("rotatedAt").get<std::string>(), MatchesRegex("[0-9-]{10}T[0-9:]{8}Z"));

  const std::string hash = shadowHash("itadmin");
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).at("active"), true);
  EXPECT_EQ(working(), password);
  EXPECT_EQ(shadowHash("itadmin"), hash) << "set again though it was new";
}

TEST_F(CompanyAdmin, IsRotatedSwitchedOffAndOnAndLetGo) {
  applyCompanyAdmin(companyConfig());
  const std::string first = working();
  setAge(7 * kDay - 3600);
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).value("problem", ""), "");
  EXPECT_EQ(working(), first);
  setAge(7 * kDay);
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).value("problem", ""), "");
  const std::string second = working();
  EXPECT_NE(second, first);

  EXPECT_EQ(applyCompanyAdmin(companyConfig("itadmin", false)).at("active"), false);
  EXPECT_TRUE(isDisabled("itadmin"));
  EXPECT_EQ(working(), second);
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).at("active"), true);
  EXPECT_FALSE(isDisabled("itadmin"));
  EXPECT_EQ(working(), second);

  EXPECT_EQ(applyCompanyAdmin(companyConfig("corpadmin")).at("active"), true);
  EXPECT_TRUE(isDisabled("itadmin")) << "disabled, not deleted";
  EXPECT_TRUE(isHidden("corpadmin"));
  EXPECT_NE(working("corpadmin"), second);
  // What was let go is a foreign account now.
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).at("problem"), "exists");
}

TEST_F(CompanyAdmin, WhatIsActiveHasBeenFinished) {
  const auto expectFinished = [this] {
    const json status = applyCompanyAdmin(companyConfig());
    EXPECT_TRUE(status.at("active") == true && !status.contains("problem")) << status;
    working();
    EXPECT_TRUE(isAdministrator("itadmin") && isHidden("itadmin"));
  };
  expectFinished();
  run({"/usr/sbin/sysadminctl", "-deleteUser", "itadmin", "-keepHome"});
  {
    const ToolBehaviour breaks("sysadminctl@itadmin", "at recorded print Error: no\nat recorded exit 1\n");
    const json status = applyCompanyAdmin(companyConfig());
    EXPECT_EQ(status.value("problem", ""), "Error: no");
    EXPECT_EQ(status.at("active"), false) << "half made, with no password";
  }
  working();
  expectFinished();

  // Somebody has changed all of it.
  run({"/usr/sbin/usermod", "--password", "$6$salt$nobody", "itadmin"});
  run({"/usr/sbin/dseditgroup", "-o", "edit", "-d", "itadmin", "-t", "user", "admin"});
  run({"/usr/bin/dscl", ".", "-create", "/Users/itadmin", "IsHidden", "0"});
  {
    const ToolBehaviour lies("dseditgroup", "no-effect\n");
    const json status = applyCompanyAdmin(companyConfig());
    EXPECT_EQ(status.value("problem", ""), "The account itadmin is not an administrator.");
    EXPECT_EQ(status.at("active"), false);
  }
  expectFinished();
}

TEST_F(CompanyAdmin, APasswordIsReplacedWhenTheDirectoryHasConfirmedTheNewOne) {
  applyCompanyAdmin(companyConfig());
  const std::string first = working();
  setAge(8 * kDay);
  {
    const std::string sentence = "Operation is not permitted without secure token unlock.";
    const ToolBehaviour refuses("sysadminctl@itadmin", "print " + sentence + "\nexit 0\n");
    EXPECT_EQ(applyCompanyAdmin(companyConfig()).value("problem", ""), sentence);
    EXPECT_EQ(working(), first);
  }
  EXPECT_EQ(applyCompanyAdmin(companyConfig()).value("problem", ""), "");
  EXPECT_NE(working(), first);
}

}  // namespace
}  // namespace molvane::e2e
