#include "Core/LocalAccountPolicy.hpp"

#include <gtest/gtest.h>

namespace molvane::LocalAccountPolicy {
namespace {

/// The raw value of the refusal; "accepted" when there is none.
template <typename Call>
std::string outcome(Call call) {
  try {
    call();
    return "accepted";
  } catch (const LocalAccountFailure& failure) {
    return std::string(failure.rawValue());
  }
}

constexpr bool kAdmin = true;
constexpr bool kUnlocks = true;
constexpr bool kDisabled = true;

LocalAccount account(std::string name, std::int64_t uid, bool admin = false, bool unlocks = false,
                     bool disabled = false) {
  return {.name = std::move(name),
          .fullName = "",
          .uid = uid,
          .isAdmin = admin,
          .canUnlockFileVault = unlocks,
          .isDisabled = disabled,
          .isHidden = false};
}

class LocalAccountPolicyTest : public testing::Test {
 protected:
  std::string check(const LocalAccountOperation& operation,
                    const std::optional<std::string>& company = std::nullopt) {
    return outcome([&] { LocalAccountPolicy::check(operation, snapshot, company); });
  }

  LocalAccountsSnapshot snapshot{
      .accounts = {account("_system", 500, kAdmin), account("ann", 501, kAdmin, kUnlocks),
                   account("bob", 502, kAdmin, kUnlocks), account("eve", 503),
                   account("fay", 504, false, kUnlocks)},
      .loggedIn = std::nullopt,
      .fileVault = true,
      .companyAdmin = std::nullopt};
  const AccountAdminProof ann{"ann", "anns secret"};
};

TEST(LocalAccountPolicy, ShortNames) {
  for (const std::string& valid : {std::string("a"), std::string(31, 'a'), std::string("abc.def-1_x")}) {
    EXPECT_TRUE(isValidName(valid)) << valid;
  }
  for (const std::string& invalid :
       {std::string(), std::string(32, 'a'), std::string("1abc"), std::string("_abc"), std::string(".abc"),
        std::string("admin"), std::string("root"), std::string("Admin"), std::string("ann b"),
        std::string("ann/b"), std::string("ann\n"), std::string("an\0n", 4), std::string("\u00E9mile"),
        std::string("-deleteUser"), std::string("am\u00E9lie")}) {
    EXPECT_FALSE(isValidName(invalid)) << invalid;
  }
}

TEST(LocalAccountPolicy, PasswordsAreMeasuredAsAPersonCounts) {
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
  const auto repeated = [](const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
  };
  EXPECT_TRUE(isValidPassword("        "));
  EXPECT_FALSE(isValidPassword("1234567"));
  EXPECT_TRUE(isValidPassword(std::string(128, 'x')));
  EXPECT_FALSE(isValidPassword(std::string(129, 'x')));
  EXPECT_FALSE(isValidPassword(repeated(family, 7)));
  EXPECT_TRUE(isValidPassword(repeated(family, 8)));
  EXPECT_TRUE(isValidPassword(repeated("\U0001F511", 128)));
  EXPECT_FALSE(isValidPassword(repeated("\U0001F511", 129)));
  EXPECT_FALSE(isValidPassword("1234\u20285678"));
  EXPECT_FALSE(isValidPassword("12345678\n"));
  EXPECT_FALSE(isValidPassword(std::string("1234\0005678", 9)));
}

TEST(LocalAccountPolicy, ProposesAShortName) {
  EXPECT_EQ(suggestedName("José María O'Neil-Ruiz"), "josemariaoneilruiz");
  EXPECT_EQ(suggestedName(std::string(30, 'A')), std::string(20, 'a'));
  EXPECT_EQ(suggestedName("李"), "");
}

TEST_F(LocalAccountPolicyTest, CreateIsCheckedInOrder) {
  CreateAccount create{"new", "New Person", "long enough", true, true, std::nullopt};
  EXPECT_EQ(check({create}), "accepted");
  create.fileVault = ann;
  EXPECT_EQ(check({create}), "accepted");

  // Each later fault stands behind all earlier ones.
  create.fileVault = AccountAdminProof{"eve", "secret"};
  EXPECT_EQ(check({create}), "bad-admin");
  create.password = "short";
  EXPECT_EQ(check({create}), "weak-password");
  create.name = "eve";
  EXPECT_EQ(check({create}), "exists");
  for (const std::string& fullName :
       {std::string("  \t"), std::string(65, 'x'), std::string("a\u2028b"), std::string()}) {
    create.fullName = fullName;
    EXPECT_EQ(check({create}), "invalid-name") << fullName;
  }
  create.fullName = "\u00E9" + std::string(63, 'x');
  EXPECT_EQ(check({create}), "exists") << "64 characters in 65 bytes";
  create.name = "root";
  EXPECT_EQ(check({create}), "invalid-name");
}

TEST_F(LocalAccountPolicyTest, OtherChangesLookAtTheirTargetInOrder) {
  const auto everyChange = [](const std::string& name) {
    return std::vector<LocalAccountOperation>{
        {SetAccountAdmin{name, true}},   {SetAccountAdmin{name, false}},
        {SetAccountEnabled{name, true}}, {SetAccountEnabled{name, false}},
        {DeleteAccount{name}},           {ResetAccountPassword{name, "short", false, std::nullopt}}};
  };
  for (const auto& change : everyChange("nobody")) EXPECT_EQ(check(change, "nobody"), "not-found");
  snapshot.loggedIn = "_system";
  for (const auto& change : everyChange("_system")) EXPECT_EQ(check(change, "_system"), "system-account");
  snapshot.loggedIn = "ann";
  for (const auto& change : everyChange("ann")) EXPECT_EQ(check(change, "ann"), "company-account");
  for (const auto& change : everyChange("ann")) EXPECT_EQ(check(change, "eve"), "logged-in");
  EXPECT_EQ(check({DeleteAccount{"bob"}}), "accepted");
}

TEST_F(LocalAccountPolicyTest, NamesAreTheSameHoweverTheyAreComposed) {
  snapshot.accounts.push_back(account("am\u00E9lie", 505));
  EXPECT_EQ(check({DeleteAccount{"ame\u0301lie"}}), "accepted");
  EXPECT_EQ(check({DeleteAccount{"ame\u0301lie"}}, "am\u00E9lie"), "company-account");
  snapshot.loggedIn = "am\u00E9lie";
  EXPECT_EQ(check({DeleteAccount{"ame\u0301lie"}}), "logged-in");
}

TEST_F(LocalAccountPolicyTest, ResettingAskForAProofWhereFileVaultNeedsOne) {
  const auto reset = [&](const std::string& name, const std::string& password,
                         std::optional<AccountAdminProof> proof) {
    return check({ResetAccountPassword{name, password, false, std::move(proof)}});
  };
  EXPECT_EQ(reset("eve", "long enough", std::nullopt), "accepted");
  EXPECT_EQ(reset("eve", "long enough", ann), "accepted");
  EXPECT_EQ(reset("eve", "long enough", AccountAdminProof{"fay", "x"}), "bad-admin") << "no administrator";
  EXPECT_EQ(reset("bob", "long enough", std::nullopt), "needs-admin");
  EXPECT_EQ(reset("bob", "short", std::nullopt), "weak-password");
  EXPECT_EQ(reset("bob", "long enough", ann), "accepted");
  EXPECT_EQ(reset("bob", "long enough", AccountAdminProof{"bob", "x"}), "bad-admin") << "vouches for itself";
  EXPECT_EQ(reset("bob", "long enough", AccountAdminProof{"ann", ""}), "bad-admin");
  EXPECT_EQ(reset("bob", "long enough", AccountAdminProof{"gone", "x"}), "bad-admin");
  snapshot.accounts[1].isDisabled = true;
  EXPECT_EQ(reset("bob", "long enough", ann), "bad-admin");
  snapshot.accounts[1] = account("ann", 501, kAdmin, !kUnlocks);
  EXPECT_EQ(reset("bob", "long enough", ann), "bad-admin");
}

TEST_F(LocalAccountPolicyTest, AnEnabledAdministratorAlwaysRemains) {
  const auto everyLoss = [&](const std::string& name) {
    const std::string outcome = check({DeleteAccount{name}});
    EXPECT_EQ(check({SetAccountAdmin{name, false}}), outcome);
    EXPECT_EQ(check({SetAccountEnabled{name, false}}), outcome);
    return outcome;
  };
  EXPECT_EQ(everyLoss("bob"), "accepted");
  snapshot.accounts[1].isDisabled = true;
  EXPECT_EQ(everyLoss("bob"), "last-admin") << "ann is disabled, _system does not count";
  EXPECT_EQ(check({SetAccountAdmin{"bob", true}}), "accepted");
  EXPECT_EQ(check({SetAccountEnabled{"ann", true}}), "accepted");
  EXPECT_EQ(everyLoss("eve"), "accepted") << "no administrator";

  snapshot.accounts[1] = account("ann", 501, kAdmin, !kUnlocks);
  EXPECT_EQ(everyLoss("bob"), "last-admin") << "nobody who can unlock the disk would remain";
  EXPECT_EQ(everyLoss("ann"), "accepted");
  snapshot.accounts[2] = account("bob", 502, kAdmin, !kUnlocks, !kDisabled);
  EXPECT_EQ(everyLoss("bob"), "accepted") << "nor could bob";
}

}  // namespace
}  // namespace molvane::LocalAccountPolicy
