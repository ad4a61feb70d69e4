#include <gmock/gmock.h>
#include <unistd.h>

#include "AccountHarness.hpp"

namespace molvane::e2e {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

class Accounts : public AccountFixture {
 protected:
  ~Accounts() override { chown("/dev/console", 501, 20); }

  static void sitAtTheScreen(uid_t uid) { ASSERT_EQ(chown("/dev/console", uid, 20), 0); }
};

json setAdmin(const std::string& name, bool admin) {
  return {{"setAdmin", {{"name", name}, {"admin", admin}}}};
}
json setEnabled(const std::string& name, bool enabled) {
  return {{"setEnabled", {{"name", name}, {"enabled", enabled}}}};
}
json remove(const std::string& name) { return {{"delete", {{"name", name}}}}; }

std::string database() {
  return readFile("/etc/passwd") + readFile("/etc/shadow") + readFile("/etc/group") +
         run({"/bin/ls", "-lR", "/var/db/dslocal/nodes"}).out;
}

TEST_F(Accounts, AreCreated) {
  const AccountReply reply = manage(create("carol", R"( "it\'s" $HOME `ls` ü%s )"));
  ASSERT_TRUE(reply.snapshot) << testing::PrintToString(reply);
  EXPECT_EQ(reply.text, std::nullopt);
  EXPECT_EQ(reply.account("carol"), (json{{"name", "carol"},
                                          {"fullName", "Somebody carol"},
                                          {"uid", 503},
                                          {"isAdmin", false},
                                          {"canUnlockFileVault", false},
                                          {"isDisabled", false},
                                          {"isHidden", false}}));
  EXPECT_TRUE(reply.account("ann").at("isAdmin"));
  EXPECT_EQ(reply.snapshot->at("accounts").size(), 3U);
  EXPECT_EQ(reply.snapshot->at("loggedIn"), "ann");
  EXPECT_EQ(reply.snapshot->at("fileVault"), true);
  EXPECT_TRUE(isPassword("carol", R"( "it\'s" $HOME `ls` ü%s )"));
  EXPECT_TRUE(fs::is_directory("/Users/carol"));

  json chief = withProof(create("dave", "correct horse", true), "ann", kAnnsPassword);
  chief["create"]["fullName"] = "Dave: \"D\" <&> \xC3\x89mile";
  chief["create"]["mustChange"] = true;
  const AccountReply second = manage(chief);
  ASSERT_TRUE(second.snapshot) << testing::PrintToString(second);
  EXPECT_EQ(second.account("dave").at("fullName"), "Dave: \"D\" <&> \xC3\x89mile");
  EXPECT_EQ(second.account("dave").at("uid"), 504);
  EXPECT_TRUE(second.account("dave").at("canUnlockFileVault"));
  EXPECT_TRUE(isAdministrator("dave"));
  EXPECT_TRUE(isPassword("dave", "correct horse"));
  EXPECT_THAT(run({"/usr/bin/chage", "-l", "dave"}).out, HasSubstr("password must be changed"));
}

TEST_F(Accounts, AreChangedAndDeleted) {
  ASSERT_TRUE(manage(resetPassword("bob", "battery staple")).snapshot);
  EXPECT_TRUE(isPassword("bob", "battery staple"));
  EXPECT_FALSE(isPassword("bob", kBobsPassword));

  EXPECT_TRUE(manage(setAdmin("bob", true)).account("bob").at("isAdmin"));
  EXPECT_TRUE(isAdministrator("bob"));
  EXPECT_FALSE(manage(setAdmin("bob", false)).account("bob").at("isAdmin"));
  EXPECT_FALSE(isAdministrator("bob"));

  EXPECT_TRUE(manage(setEnabled("bob", false)).account("bob").at("isDisabled"));
  EXPECT_TRUE(isDisabled("bob"));
  EXPECT_FALSE(manage(setEnabled("bob", true)).account("bob").at("isDisabled"));
  EXPECT_FALSE(isDisabled("bob"));
  EXPECT_TRUE(isPassword("bob", "battery staple"));

  const AccountReply deleted = manage(remove("bob"));
  ASSERT_TRUE(deleted.snapshot) << testing::PrintToString(deleted);
  EXPECT_EQ(deleted.account("bob"), nullptr);
  EXPECT_FALSE(accountExists("bob"));
  EXPECT_TRUE(fs::is_directory("/Users/bob/Library")) << "the home folder is gone";
}

TEST_F(Accounts, ProofLetsAPasswordOfTheDiskBeReset) {
  sitAtTheScreen(502);
  EXPECT_EQ(manage(resetPassword("ann", "new for ann")).text, "needs-admin");
  EXPECT_EQ(manage(withProof(resetPassword("ann", "new for ann"), "ann", kAnnsPassword)).text, "bad-admin");
  ASSERT_TRUE(manage(withProof(create("dave", "correct horse", true), "ann", kAnnsPassword)).snapshot);
  const AccountReply reply = manage(withProof(resetPassword("ann", "new for ann"), "dave", "correct horse"));
  ASSERT_TRUE(reply.snapshot) << testing::PrintToString(reply);
  EXPECT_TRUE(isPassword("ann", "new for ann"));
  EXPECT_TRUE(reply.account("ann").at("canUnlockFileVault"));
}

TEST_F(Accounts, RefusalsComeBeforeAnythingRuns) {
  ASSERT_TRUE(applyCompanyAdmin(companyConfig()).at("active"));
  const std::string before = database();
  const std::string calls = readFile(kToolLog);
  const auto refusal = [this](const json& operation) { return manage(operation).text; };

  EXPECT_EQ(refusal(create("Carol", "long enough")), "invalid-name");
  EXPECT_EQ(refusal(create("root", "long enough")), "invalid-name");
  EXPECT_EQ(refusal(create("bob", "long enough")), "exists");
  EXPECT_EQ(refusal(create("carol", "short")), "weak-password");
  EXPECT_EQ(refusal(create("carol", "with a\nline feed")), "weak-password");
  EXPECT_EQ(refusal(withProof(create("carol", "long enough"), "bob", kBobsPassword)), "bad-admin");
  EXPECT_EQ(refusal(withProof(create("carol", "long enough"), "ann", "")), "bad-admin");
  EXPECT_EQ(refusal(remove("nobody-there")), "not-found");
  EXPECT_EQ(refusal(remove("root")), "not-found") << "system accounts are not listed";
  EXPECT_EQ(refusal(setAdmin("ann", true)), "logged-in");
  EXPECT_EQ(refusal(remove("ann")), "logged-in");
  EXPECT_EQ(refusal(remove("itadmin")), "company-account");
  EXPECT_EQ(refusal(setEnabled("itadmin", false)), "company-account");
  EXPECT_EQ(refusal(resetPassword("itadmin", "long enough")), "company-account");
  // The company administrator is an administrator too, but cannot unlock the disk.
  sitAtTheScreen(502);
  EXPECT_EQ(refusal(setAdmin("ann", false)), "last-admin");
  EXPECT_EQ(refusal(setEnabled("ann", false)), "last-admin");
  EXPECT_EQ(refusal(remove("ann")), "last-admin");

  EXPECT_EQ(database(), before);
  const std::string since = readFile(kToolLog).substr(calls.size());
  for (const char* changing : {"sysadminctl", "dseditgroup", "pwpolicy", "-create"}) {
    EXPECT_THAT(since, Not(HasSubstr(changing)));
  }
  companyAdminPassword();
}

// Each would be allowed alone.
TEST_F(Accounts, TwoAtOnceDoNotTakeTheLastAdministratorAway) {
  sitAtTheScreen(502);
  ASSERT_TRUE(manage(withProof(create("dave", "correct horse", true), "ann", kAnnsPassword)).snapshot);
  for (int round = 0; round < 5; ++round) {
    auto first = std::async(std::launch::async, [this] { return manage(setAdmin("ann", false)); });
    auto second = std::async(std::launch::async, [this] { return manage(setAdmin("dave", false)); });
    const AccountReply ann = first.get();
    const AccountReply dave = second.get();
    EXPECT_NE(ann.snapshot.has_value(), dave.snapshot.has_value());
    EXPECT_EQ((ann.snapshot ? dave : ann).text, "last-admin");
    EXPECT_NE(isAdministrator("ann"), isAdministrator("dave"));
    ASSERT_TRUE(manage(setAdmin(ann.snapshot ? "ann" : "dave", true)).snapshot);
  }
}

TEST_F(Accounts, StrangePasswordsAreKeptAsTheyAre) {
  // 512 bytes: more than crypt(3) takes, so the stand-in keeps the hash of their digest.
  std::string longest;
  for (int i = 0; i < 128; ++i) longest += "\xF0\x9F\x8D\x8A";
  ASSERT_TRUE(manage(resetPassword("bob", longest)).snapshot);
  EXPECT_TRUE(isPassword("bob",
                         "256100d0b0671884b6c882c5bc1d07b3a5e9625f2de54485cd958932ad38ef6b"
                         "ad03ae5e9bfb5c99ce345710dc55d48b964cf126add094f9d5eca93fc8279e18"));

  // Words of the tool's own messages, which the helper must not take for the tool's.
  const auto reset = [this](const std::string& word) {
    // Not looked for afterwards: they stand in the tools' own texts.
    const AccountReply reply =
        manage({{"resetPassword", {{"name", "bob"}, {"password", word}, {"mustChange", false}}}});
    EXPECT_TRUE(isPassword("bob", word)) << word;
    return reply;
  };
  EXPECT_TRUE(reset("Error: no").snapshot);
  const ToolBehaviour tells("sysadminctl", "tell\n");
  for (const std::string word : {"password", "New password:", "        ", "tab\tinside", "Resetting"}) {
    const AccountReply reply = reset(word);
    EXPECT_TRUE(reply.snapshot) << word << ": " << testing::PrintToString(reply);
  }
  // But for the word of a failure, which nobody can tell apart from one: then that is what is said.
  EXPECT_EQ(reset("Error: no").text, "Error: sysadminctl wrote \"Error:\", maybe within a password");
}

// A terminal would take them for keys.
TEST_F(Accounts, ControlCharactersAreNotTyped) {
  for (const char key : {'\x01', '\x03', '\x04', '\x15', '\x16', '\x1a', '\x1c', '\x7f'}) {
    const AccountReply reply = manage(resetPassword("bob", std::string("long ") + key + " enough"));
    EXPECT_FALSE(reply.snapshot) << int{key};
    EXPECT_NE(reply.text.value_or(""), "") << int{key};
    EXPECT_TRUE(isPassword("bob", kBobsPassword)) << int{key};
  }
  // Nor would an argument take a NUL.
  json nul = create("carol", "long enough");
  nul["create"]["fullName"] = std::string("Carol\0C", 7);
  EXPECT_THAT(manage(nul).text.value_or(""), HasSubstr("NUL character"));
  EXPECT_FALSE(accountExists("carol"));
}

}  // namespace
}  // namespace molvane::e2e
