#include "Core/LocalAccounts.hpp"

#include <gtest/gtest.h>

#include <set>
#include <unordered_set>

namespace molvane {
namespace {

std::string decodingFailure(std::string_view document) {
  try {
    (void)decodedJson<LocalAccountOperation>(document);
    return "decoded";
  } catch (const DecodingError& error) {
    return error.payload().debugDescription;
  }
}

TEST(LocalAccounts, AnOperationNamesExactlyOneChange) {
  constexpr const char* kRefusal = "Invalid number of keys found, expected one.";
  EXPECT_EQ(decodingFailure("{}"), kRefusal);
  EXPECT_EQ(decodingFailure(R"({"rename":{"name":"ann"}})"), kRefusal);
  EXPECT_EQ(decodingFailure(R"({"create":{},"delete":{"name":"ann"}})"), kRefusal);

  const auto reset = decodedJson<LocalAccountOperation>(
      R"({"resetPassword":{"name":"ann","password":"a secret","mustChange":true,"fileVault":null}})");
  EXPECT_EQ(reset, (LocalAccountOperation{ResetAccountPassword{"ann", "a secret", true, {}}}));
  EXPECT_EQ(encodedJson(reset),
            R"({"resetPassword":{"name":"ann","password":"a secret","mustChange":true}})");
  EXPECT_NE(decodingFailure(R"({"resetPassword":{"name":"ann","password":"a secret"}})"), "decoded");
}

TEST(LocalAccounts, ARefusedDocumentDoesNotTellItsPassword) {
  const std::string failure =
      decodingFailure(R"({"create":{"name":"ann","fullName":"Ann","password":["hunter22"],"admin":true}})");
  EXPECT_EQ(failure.find("hunter22"), std::string::npos) << failure;
  EXPECT_NE(failure, "decoded");
}

TEST(LocalAccounts, EveryChangeHasItsKind) {
  const auto kind = [](auto change) { return LocalAccountOperation{change}.kind(); };
  EXPECT_EQ(kind(CreateAccount{}), "create");
  EXPECT_EQ(kind(ResetAccountPassword{}), "reset-password");
  EXPECT_EQ(kind(SetAccountAdmin{"bob", true}), "make-admin");
  EXPECT_EQ(kind(SetAccountAdmin{"bob", false}), "remove-admin");
  EXPECT_EQ(kind(SetAccountEnabled{"bob", true}), "enable");
  EXPECT_EQ(kind(SetAccountEnabled{"bob", false}), "disable");
  EXPECT_EQ(kind(DeleteAccount{"bob"}), "delete");
  EXPECT_EQ((LocalAccountOperation{DeleteAccount{"bob"}}.name()), "bob");
}

TEST(LocalAccounts, ElevenFailuresHaveRawValuesAndNothingElse) {
  const std::set<std::string> rawValues = {"invalid-name", "exists",    "not-found",     "system-account",
                                           "last-admin",   "logged-in", "weak-password", "company-account",
                                           "needs-admin",  "bad-admin", "failed"};
  for (const std::string& raw : rawValues) {
    const auto failure = LocalAccountFailure::parse(raw);
    ASSERT_TRUE(failure) << raw;
    EXPECT_EQ(failure->rawValue(), raw);
    EXPECT_EQ(failure->errorDescription(), "local account: " + raw);
  }
  EXPECT_EQ(LocalAccountFailure::parse("last-admin"), LocalAccountFailure(LocalAccountFailure::lastAdmin));
  EXPECT_EQ(LocalAccountFailure::parse("bad-admin"), LocalAccountFailure(LocalAccountFailure::badAdmin));
  for (const char* text : {"", "Failed", "lastAdmin", "failed ", "local account: failed"}) {
    EXPECT_FALSE(LocalAccountFailure::parse(text)) << text;
  }
}

TEST(LocalAccounts, EqualityAndHashTakeTextsAsCharacters) {
  const LocalAccount composed{"am\u00E9lie", "Am\u00E9lie", 501, true, false, false, false};
  const LocalAccount decomposed{"ame\u0301lie", "Ame\u0301lie", 501, true, false, false, false};
  EXPECT_EQ(composed, decomposed);
  EXPECT_EQ((std::unordered_set<LocalAccount>{composed, decomposed}.size()), 1U);

  std::vector<LocalAccount> others(7, composed);
  others[0].name = "ann";
  others[1].fullName = "Ann";
  others[2].uid = 502;
  others[3].isAdmin = false;
  others[4].canUnlockFileVault = true;
  others[5].isDisabled = true;
  others[6].isHidden = true;
  for (const LocalAccount& other : others) EXPECT_NE(other, composed);
  EXPECT_EQ((std::unordered_set<LocalAccount>(others.begin(), others.end()).size()), 7U);
}

TEST(LocalAccounts, ASnapshotLeavesOutWhatIsAbsent) {
  EXPECT_EQ(encodedJson(LocalAccountsSnapshot{}), R"({"accounts":[],"fileVault":false})");
}

}  // namespace
}  // namespace molvane
