#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <variant>
#include <vector>

#include "Base/Date.hpp"
#include "Base/JsonMembers.hpp"

// The model of local accounts that app and helper share. All types are plain values that travel as JSON, and
// compare as Base/JsonMembers.hpp says.

namespace molvane {

/// One local account as the helper lists it.
struct LocalAccount {
  std::string name;      ///< short name
  std::string fullName;  ///< display name; may be empty
  std::int64_t uid = 0;
  bool isAdmin = false;  ///< a member of the local administrators group
  bool canUnlockFileVault = false;
  bool isDisabled = false;  ///< may not log in
  bool isHidden = false;    ///< not shown in the login window

  static constexpr auto members() {
    return std::tuple(
        JsonMember{"name", &LocalAccount::name}, JsonMember{"fullName", &LocalAccount::fullName},
        JsonMember{"uid", &LocalAccount::uid}, JsonMember{"isAdmin", &LocalAccount::isAdmin},
        JsonMember{"canUnlockFileVault", &LocalAccount::canUnlockFileVault},
        JsonMember{"isDisabled", &LocalAccount::isDisabled}, JsonMember{"isHidden", &LocalAccount::isHidden});
  }
};

/// Name and password of an existing administrator, where the system asks for them. Never stored, never
/// written to a log or a reply.
struct AccountAdminProof {
  std::string name;
  std::string password;

  static constexpr auto members() {
    return std::tuple(JsonMember{"name", &AccountAdminProof::name},
                      JsonMember{"password", &AccountAdminProof::password});
  }
};

// The changes that the app may ask for. `name` is always the short name of the account to act on, `password`
// its new password in clear text; `fileVault` asks that the account may unlock FileVault and vouches for
// that.

struct CreateAccount {
  std::string name;
  std::string fullName;
  std::string password;
  bool admin = false;
  bool mustChange = false;  ///< a new password is to be chosen at the next login
  std::optional<AccountAdminProof> fileVault;

  static constexpr auto members() {
    return std::tuple(
        JsonMember{"name", &CreateAccount::name}, JsonMember{"fullName", &CreateAccount::fullName},
        JsonMember{"password", &CreateAccount::password}, JsonMember{"admin", &CreateAccount::admin},
        JsonMember{"mustChange", &CreateAccount::mustChange},
        JsonMember{"fileVault", &CreateAccount::fileVault});
  }
};

struct ResetAccountPassword {
  std::string name;
  std::string password;
  bool mustChange = false;
  std::optional<AccountAdminProof> fileVault;

  static constexpr auto members() {
    return std::tuple(JsonMember{"name", &ResetAccountPassword::name},
                      JsonMember{"password", &ResetAccountPassword::password},
                      JsonMember{"mustChange", &ResetAccountPassword::mustChange},
                      JsonMember{"fileVault", &ResetAccountPassword::fileVault});
  }
};

struct SetAccountAdmin {
  std::string name;
  bool admin = false;

  static constexpr auto members() {
    return std::tuple(JsonMember{"name", &SetAccountAdmin::name},
                      JsonMember{"admin", &SetAccountAdmin::admin});
  }
};

struct SetAccountEnabled {
  std::string name;
  bool enabled = false;

  static constexpr auto members() {
    return std::tuple(JsonMember{"name", &SetAccountEnabled::name},
                      JsonMember{"enabled", &SetAccountEnabled::enabled});
  }
};

struct DeleteAccount {
  std::string name;

  static constexpr auto members() { return std::tuple(JsonMember{"name", &DeleteAccount::name}); }
};

/// One of these changes. It travels as a JSON object with one member, whose key names the case.
struct LocalAccountOperation {
  std::variant<CreateAccount, ResetAccountPassword, SetAccountAdmin, SetAccountEnabled, DeleteAccount> change;

  /// Short name of the account to act on.
  [[nodiscard]] const std::string& name() const;
  /// A label of what it does: "create", "reset-password", "make-admin", "remove-admin", "enable", "disable"
  /// or "delete". Lives as long as the program.
  [[nodiscard]] std::string_view kind() const;

  static constexpr auto cases() {
    return JsonCases{
        &LocalAccountOperation::change,
        std::array<std::string_view, 5>{"create", "resetPassword", "setAdmin", "setEnabled", "delete"}};
  }
};

/// Why a change is refused, or that it failed. Thrown as it is. The app finds words for it.
class LocalAccountFailure final : public std::exception {
 public:
  enum Case {
    invalidName,     ///< the short name or the full name breaks the rules
    exists,          ///< there is an account of that name
    notFound,        ///< there is none
    systemAccount,   ///< a system account, uid below 501
    lastAdmin,       ///< no enabled administrator would be left
    loggedIn,        ///< the account of the console user
    weakPassword,    ///< the password breaks the rules
    companyAccount,  ///< the company administrator is changed in its own way only
    needsAdmin,      ///< an administrator's proof is needed
    badAdmin,        ///< the proof is not acceptable
    failed,          ///< the tools ran, but the change did not take effect
  };

  // NOLINTNEXTLINE(google-explicit-constructor): a case is a failure
  LocalAccountFailure(Case which) noexcept : case_(which) {}

  /// The failure of exactly that raw value; nothing for any other text.
  [[nodiscard]] static std::optional<LocalAccountFailure> parse(std::string_view rawValue);

  [[nodiscard]] Case which() const noexcept { return case_; }
  /// The text on the wire, such as "last-admin". Lives as long as the program.
  [[nodiscard]] std::string_view rawValue() const noexcept;
  /// "local account: " and the raw value.
  [[nodiscard]] std::string errorDescription() const { return what(); }
  [[nodiscard]] const char* what() const noexcept override;

  friend bool operator==(const LocalAccountFailure& a, const LocalAccountFailure& b) noexcept {
    return a.case_ == b.case_;
  }

 private:
  Case case_;
};

/// What the app wants of the company administrator.
struct CompanyAdminConfig {
  /// The intervals that the app offers, in days.
  static constexpr std::array<std::int64_t, 3> rotationChoices = {7, 30, 90};

  bool enabled = false;  ///< the account is to exist and be usable
  std::string name;      ///< short name
  std::string fullName;
  std::int64_t rotationDays = 0;  ///< after how many days the password is replaced
  Date updatedAt;                 ///< when the app last changed this

  static constexpr auto members() {
    return std::tuple(JsonMember{"enabled", &CompanyAdminConfig::enabled},
                      JsonMember{"name", &CompanyAdminConfig::name},
                      JsonMember{"fullName", &CompanyAdminConfig::fullName},
                      JsonMember{"rotationDays", &CompanyAdminConfig::rotationDays},
                      JsonMember{"updatedAt", &CompanyAdminConfig::updatedAt});
  }
};

/// The company administrator as the helper reports it.
struct CompanyAdminStatus {
  CompanyAdminConfig config;           ///< in force
  bool active = false;                 ///< the account exists, is usable and is managed by the helper
  std::optional<Date> rotatedAt;       ///< when the helper last set the password
  std::optional<std::string> problem;  ///< what went wrong the last time

  static constexpr auto members() {
    return std::tuple(JsonMember{"config", &CompanyAdminStatus::config},
                      JsonMember{"active", &CompanyAdminStatus::active},
                      JsonMember{"rotatedAt", &CompanyAdminStatus::rotatedAt},
                      JsonMember{"problem", &CompanyAdminStatus::problem});
  }
};

/// The machine's accounts at one moment.
struct LocalAccountsSnapshot {
  std::vector<LocalAccount> accounts;
  std::optional<std::string> loggedIn;             ///< short name of the console user
  bool fileVault = false;                          ///< FileVault is on for the startup disk
  std::optional<CompanyAdminStatus> companyAdmin;  ///< absent where it was never configured or not asked for

  /// The account of that short name; nullptr when there is none. Points into this value.
  [[nodiscard]] const LocalAccount* find(std::string_view name) const;

  static constexpr auto members() {
    return std::tuple(JsonMember{"accounts", &LocalAccountsSnapshot::accounts},
                      JsonMember{"loggedIn", &LocalAccountsSnapshot::loggedIn},
                      JsonMember{"fileVault", &LocalAccountsSnapshot::fileVault},
                      JsonMember{"companyAdmin", &LocalAccountsSnapshot::companyAdmin});
  }
};

}  // namespace molvane

template <>
struct std::hash<molvane::LocalAccount> {
  std::size_t operator()(const molvane::LocalAccount& account) const {
    return molvane::hashOfMembers(account);
  }
};

template <>
struct std::hash<molvane::LocalAccountFailure> {
  std::size_t operator()(const molvane::LocalAccountFailure& failure) const noexcept {
    return std::hash<std::string_view>()(failure.rawValue());
  }
};
