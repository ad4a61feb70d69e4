#pragma once

#include <gtest/gtest.h>

#include <future>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Harness.hpp"
#include "HeldTool.hpp"

namespace molvane::e2e {

inline constexpr const char* kAnnsPassword = "tangerine-for-ann";
inline constexpr const char* kBobsPassword = "tangerine-for-bob";
inline const std::filesystem::path kStateFolder = "/Library/Application Support/com.molvane.helper";
inline const std::filesystem::path kStateFile = kStateFolder / "company-admin.json";

/// What manageLocalAccount answers.
struct AccountReply {
  std::optional<nlohmann::json> snapshot;
  std::optional<std::string> text;   ///< a refusal, or what went wrong
  std::optional<std::string> error;  ///< of the error reply; the others are absent then

  /// The account of that name in the snapshot; null when it is not there.
  [[nodiscard]] nlohmann::json account(const std::string& name) const;
};
void PrintTo(const AccountReply& reply, std::ostream* stream);

/// What companyAdminPassword answers.
struct HandedOut {
  std::optional<std::string> name;
  std::optional<std::string> password;
  std::optional<std::string> error;
};

/// A test of accounts. It begins with Ann and Bob as the root was set up with, no company administrator and
/// no helper running. At its end the secrets that it used are looked for in all that the helper and the tools
/// left behind.
class AccountFixture : public testing::Test {
 protected:
  AccountFixture();
  void TearDown() override;

  /// Registers a secret, which must be nowhere at the end of the test. What is too short to be a password is
  /// not registered: it may stand anywhere by chance.
  std::string secret(std::string text);

  /// Calls the helper on a connection of its own; any thread may.
  AccountReply manage(const nlohmann::json& operation) { return manageBytes(operation.dump()); }
  AccountReply manageBytes(const std::string& document);
  /// The status; for an error reply its description as a string.
  nlohmann::json applyCompanyAdmin(const nlohmann::json& config);
  /// The password is registered as one that only the state folder may hold.
  HandedOut companyAdminPassword();

  /// Operation documents; passwords are registered.
  nlohmann::json create(const std::string& name, const std::string& password, bool admin = false);
  nlohmann::json resetPassword(const std::string& name, const std::string& password);
  static nlohmann::json withProof(nlohmann::json operation, const std::string& name,
                                  const std::string& password);

  static nlohmann::json companyConfig(const std::string& name = "itadmin", bool enabled = true);

 private:
  void expectSecretsNowhere() const;

  std::filesystem::file_time_type begin_;
  std::mutex mutex_;
  std::vector<std::string> secrets_;
  std::vector<std::string> handedOut_;
  std::string replies_;
};

/// The account's hash in the root's shadow file; empty when there is none.
std::string shadowHash(const std::string& name);

/// Whether the password is the account's, whether it is enabled or not.
bool isPassword(const std::string& name, const std::string& password);

/// Whether the account is in the root's user database.
bool accountExists(const std::string& name);
bool isAdministrator(const std::string& name);
bool isHidden(const std::string& name);
bool isDisabled(const std::string& name);

}  // namespace molvane::e2e
