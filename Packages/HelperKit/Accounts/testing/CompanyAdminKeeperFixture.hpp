#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"
#include "HelperKit/Accounts/testing/AccountTable.hpp"
#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::testing {

inline constexpr double kHour = 3600;  // seconds
inline constexpr double kDay = 86400;

inline const Date kBegin = Date::fromUnixSeconds(1'800'000'000);
inline Date after(double seconds) { return {kBegin.secondsSinceReference + seconds}; }

inline CompanyAdminConfig wanted(const std::string& name = "itadmin", bool enabled = true,
                                 std::int64_t days = 7) {
  return {enabled, name, "IT Department", days, kBegin};
}

/// A keeper over an AccountTable and a scratch folder, made anew for each call as by a helper that starts.
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

}  // namespace molvane::testing
