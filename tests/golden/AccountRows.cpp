#include <gtest/gtest.h>

#include "Core/AccountDirectory.hpp"
#include "Core/LocalAccounts.hpp"
#include "GoldenRows.hpp"
#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"

namespace molvane::golden {
namespace {

TEST(GoldenJson, LocalAccountOperation) { checkJsonRows<LocalAccountOperation>("LocalAccountOperation"); }
TEST(GoldenJson, LocalAccountsSnapshot) { checkJsonRows<LocalAccountsSnapshot>("LocalAccountsSnapshot"); }
TEST(GoldenJson, CompanyAdminConfig) { checkJsonRows<CompanyAdminConfig>("CompanyAdminConfig"); }
TEST(GoldenJson, CompanyAdminStatus) { checkJsonRows<CompanyAdminStatus>("CompanyAdminStatus"); }
TEST(GoldenJson, CompanyAdminKeeperState) {
  checkJsonRows<CompanyAdminKeeper::State>("CompanyAdminKeeper.State");
}

TEST(Golden, Accounts) {
  checkRows("accounts.jsonl", [](Row& row) {
    const std::string got = encodedJson(AccountDirectory::accounts(row.bytes("users"), row.bytes("admins")));
    const auto expected = nlohmann::json::parse(row.fields().at("accounts").get<std::string>());
    if (nlohmann::json::parse(got) != expected) row.fail("got " + got);
  });
}

}  // namespace
}  // namespace molvane::golden
