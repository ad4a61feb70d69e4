#include <gtest/gtest.h>

#include "Core/LocalAccounts.hpp"
#include "GoldenRows.hpp"

namespace molvane::golden {
namespace {

TEST(GoldenJson, LocalAccountOperation) { checkJsonRows<LocalAccountOperation>("LocalAccountOperation"); }
TEST(GoldenJson, LocalAccountsSnapshot) { checkJsonRows<LocalAccountsSnapshot>("LocalAccountsSnapshot"); }
TEST(GoldenJson, CompanyAdminConfig) { checkJsonRows<CompanyAdminConfig>("CompanyAdminConfig"); }
TEST(GoldenJson, CompanyAdminStatus) { checkJsonRows<CompanyAdminStatus>("CompanyAdminStatus"); }

}  // namespace
}  // namespace molvane::golden
