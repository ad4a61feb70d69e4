#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Base/Date.hpp"
#include "Base/JsonCoding.hpp"

// The model of local accounts that app and helper share. All types are plain values that travel as JSON. Two
// are equal when all their fields are; texts are equal when they are the same characters, however their
// accents are composed. Comparing and hashing texts beyond ASCII throws std::runtime_error when the Unicode
// library is missing.

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
};
bool operator==(const LocalAccount& a, const LocalAccount& b);

/// Name and password of an existing administrator, where the system asks for them. Never stored, never
/// written to a log or a reply.
struct AccountAdminProof {
  std::string name;
  std::string password;
};
bool operator==(const AccountAdminProof& a, const AccountAdminProof& b);

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
};
bool operator==(const CreateAccount& a, const CreateAccount& b);

struct ResetAccountPassword {
  std::string name;
  std::string password;
  bool mustChange = false;
  std::optional<AccountAdminProof> fileVault;
};
bool operator==(const ResetAccountPassword& a, const ResetAccountPassword& b);

struct SetAccountAdmin {
  std::string name;
  bool admin = false;
};
bool operator==(const SetAccountAdmin& a, const SetAccountAdmin& b);

struct SetAccountEnabled {
  std::string name;
  bool enabled = false;
};
bool operator==(const SetAccountEnabled& a, const SetAccountEnabled& b);

struct DeleteAccount {
  std::string name;
};
bool operator==(const DeleteAccount& a, const DeleteAccount& b);

/// One of these changes. It travels as a JSON object with one member, whose key names the case.
struct LocalAccountOperation {
  std::variant<CreateAccount, ResetAccountPassword, SetAccountAdmin, SetAccountEnabled, DeleteAccount> change;

  /// Short name of the account to act on.
  [[nodiscard]] const std::string& name() const;
  /// A label of what it does: "create", "reset-password", "make-admin", "remove-admin", "enable", "disable"
  /// or "delete". Lives as long as the program.
  [[nodiscard]] std::string_view kind() const;
};
bool operator==(const LocalAccountOperation& a, const LocalAccountOperation& b);

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
};
bool operator==(const CompanyAdminConfig& a, const CompanyAdminConfig& b);

/// The company administrator as the helper reports it.
struct CompanyAdminStatus {
  CompanyAdminConfig config;           ///< in force
  bool active = false;                 ///< the account exists, is usable and is managed by the helper
  std::optional<Date> rotatedAt;       ///< when the helper last set the password
  std::optional<std::string> problem;  ///< what went wrong the last time
};
bool operator==(const CompanyAdminStatus& a, const CompanyAdminStatus& b);

/// The machine's accounts at one moment.
struct LocalAccountsSnapshot {
  std::vector<LocalAccount> accounts;
  std::optional<std::string> loggedIn;             ///< short name of the console user
  bool fileVault = false;                          ///< FileVault is on for the startup disk
  std::optional<CompanyAdminStatus> companyAdmin;  ///< absent where it was never configured or not asked for

  /// The account of that short name; nullptr when there is none. Points into this value.
  [[nodiscard]] const LocalAccount* find(std::string_view name) const;
};
bool operator==(const LocalAccountsSnapshot& a, const LocalAccountsSnapshot& b);

// All fromJson throw a DecodingError. An operation that names no case, or several, is refused as
// typeMismatch, "Invalid number of keys found, expected one."; members that a type does not know are passed
// over.
void fromJson(const JsonValue& json, LocalAccount& account);
void fromJson(const JsonValue& json, AccountAdminProof& proof);
void fromJson(const JsonValue& json, LocalAccountOperation& operation);
void fromJson(const JsonValue& json, CompanyAdminConfig& config);
void fromJson(const JsonValue& json, CompanyAdminStatus& status);
void fromJson(const JsonValue& json, LocalAccountsSnapshot& snapshot);
[[nodiscard]] JsonValue toJson(const LocalAccount& account);
[[nodiscard]] JsonValue toJson(const AccountAdminProof& proof);
[[nodiscard]] JsonValue toJson(const LocalAccountOperation& operation);
[[nodiscard]] JsonValue toJson(const CompanyAdminConfig& config);
[[nodiscard]] JsonValue toJson(const CompanyAdminStatus& status);
[[nodiscard]] JsonValue toJson(const LocalAccountsSnapshot& snapshot);

}  // namespace molvane

template <>
struct std::hash<molvane::LocalAccount> {
  std::size_t operator()(const molvane::LocalAccount& account) const;
};

template <>
struct std::hash<molvane::LocalAccountFailure> {
  std::size_t operator()(const molvane::LocalAccountFailure& failure) const noexcept {
    return std::hash<std::string_view>()(failure.rawValue());
  }
};
