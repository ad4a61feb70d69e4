#include <gmock/gmock.h>
#include <sys/mount.h>
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

TEST_F(CompanyAdmin, LeavesForeignAccountsAlone) {
  const std::string hash = shadowHash("bob");
  const json status = applyCompanyAdmin(companyConfig("bob"));
  EXPECT_EQ(status.at("problem"), "exists");
  EXPECT_EQ(status.at("active"), false);
  EXPECT_FALSE(status.contains("rotatedAt"));
  EXPECT_EQ(shadowHash("bob"), hash);
  EXPECT_FALSE(isAdministrator("bob"));
  EXPECT_EQ(applyCompanyAdmin(companyConfig("Admin")).at("problem"), "invalid-name");
  EXPECT_EQ(applyCompanyAdmin(companyConfig("-rf")).at("problem"), "invalid-name");
  EXPECT_EQ(companyAdminPassword().name, std::nullopt);

  for (const json& malformed : {json(), json::array(), json::object(), json{{"enabled", true}}}) {
    EXPECT_EQ(applyCompanyAdmin(malformed), "Bad device job: company admin") << malformed;
  }
}

// Nothing that somebody else may have put there is believed, and the account is not taken over on its word.
TEST_F(CompanyAdmin, StateFileThatIsNotTheHelpersIsNotBelieved) {
  applyCompanyAdmin(companyConfig());
  working();
  const std::string content = readFile(kStateFile);
  const auto expectNotHandedOut = [&](const char* what) {
    EXPECT_EQ(companyAdminPassword().password, std::nullopt) << what;
    const json status = applyCompanyAdmin(companyConfig());
    EXPECT_EQ(status.value("active", true), false) << what << status;
    EXPECT_TRUE(status.contains("problem")) << what;
    fs::remove_all(kStateFile);
  };
  writeFile("/Users/ann/planted.json",
            R"({"name":"itadmin","password":"planted by ann","rotatedAt":"2099-01-01T00:00:00Z"})");
  chown("/Users/ann/planted.json", 501, 20);

  fs::remove(kStateFile);
  fs::create_symlink("/Users/ann/planted.json", kStateFile);
  expectNotHandedOut("a link");
  fs::rename("/Users/ann/planted.json", kStateFile);
  expectNotHandedOut("another's file");
  writeFile(kStateFile, content.substr(0, content.size() / 2));
  expectNotHandedOut("a part");
  fs::rename(kStateFolder, "/Users/ann/elsewhere");
  fs::create_symlink("/Users/ann/elsewhere", kStateFolder);
  writeFile(kStateFile, content);
  expectNotHandedOut("a file behind a link");
  fs::remove(kStateFolder);
  fs::remove_all("/Users/ann/elsewhere");
}

TEST_F(CompanyAdmin, FullDiskLosesNoPassword) {
  fs::create_directories(kStateFolder);
  ASSERT_EQ(mount("full", kStateFolder.c_str(), "tmpfs", 0, "size=16k,mode=0700"), 0);
  const auto fill = [] {
    run({"/bin/dd", "if=/dev/zero", "of=" + (kStateFolder / "filler").string(), "bs=4k"});
  };
  fill();
  json status = applyCompanyAdmin(companyConfig());
  EXPECT_TRUE(status.contains("problem")) << status;
  EXPECT_FALSE(accountExists("itadmin")) << "created with a password that nobody knows";

  fs::remove(kStateFolder / "filler");
  EXPECT_FALSE(applyCompanyAdmin(companyConfig()).contains("problem"));
  const std::string password = working();
  setAge(8 * kDay);
  fill();
  status = applyCompanyAdmin(companyConfig());
  EXPECT_TRUE(status.contains("problem")) << status;
  EXPECT_EQ(working(), password);
  {
    // Full only when the new password is set.
    fs::remove(kStateFolder / "filler");
    HeldTool tool("sysadminctl@itadmin", "at changed hold\n");
    auto call = std::async(std::launch::async, [this] { return applyCompanyAdmin(companyConfig()); });
    tool.waitUntilHeld();
    tool.forget();
    fill();
    HeldTool::letGo();
    status = call.get();
    const HandedOut handedOut = companyAdminPassword();
    EXPECT_TRUE(handedOut.error || isPassword("itadmin", handedOut.password.value_or("")))
        << "a password that does not work was handed out";
  }
  fs::remove(kStateFolder / "filler");
  EXPECT_FALSE(applyCompanyAdmin(companyConfig()).contains("problem"));
  working();
  ASSERT_EQ(umount2(kStateFolder.c_str(), MNT_DETACH), 0);
}

}  // namespace
}  // namespace molvane::e2e
