#include "Core/LocalAccounts.hpp"

#include <algorithm>

#include "Base/Characters.hpp"
#include "Core/Scheduling/HashCombine.hpp"

namespace molvane {
namespace {

// The raw values follow this, in the order of the cases.
constexpr std::string_view kDescriptionPrefix = "local account: ";
constexpr std::array<const char*, 11> kDescriptions = {
    "local account: invalid-name",   "local account: exists",          "local account: not-found",
    "local account: system-account", "local account: last-admin",      "local account: logged-in",
    "local account: weak-password",  "local account: company-account", "local account: needs-admin",
    "local account: bad-admin",      "local account: failed"};

bool same(const std::string& a, const std::string& b) { return canonicallyEqual(a, b); }

bool same(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  return a.has_value() == b.has_value() && (!a || same(*a, *b));
}

}  // namespace

bool operator==(const LocalAccount& a, const LocalAccount& b) {
  return same(a.name, b.name) && same(a.fullName, b.fullName) && a.uid == b.uid && a.isAdmin == b.isAdmin &&
         a.canUnlockFileVault == b.canUnlockFileVault && a.isDisabled == b.isDisabled &&
         a.isHidden == b.isHidden;
}

bool operator==(const AccountAdminProof& a, const AccountAdminProof& b) {
  return same(a.name, b.name) && same(a.password, b.password);
}

bool operator==(const CreateAccount& a, const CreateAccount& b) {
  return same(a.name, b.name) && same(a.fullName, b.fullName) && same(a.password, b.password) &&
         a.admin == b.admin && a.mustChange == b.mustChange && a.fileVault == b.fileVault;
}

bool operator==(const ResetAccountPassword& a, const ResetAccountPassword& b) {
  return same(a.name, b.name) && same(a.password, b.password) && a.mustChange == b.mustChange &&
         a.fileVault == b.fileVault;
}

bool operator==(const SetAccountAdmin& a, const SetAccountAdmin& b) {
  return same(a.name, b.name) && a.admin == b.admin;
}

bool operator==(const SetAccountEnabled& a, const SetAccountEnabled& b) {
  return same(a.name, b.name) && a.enabled == b.enabled;
}

bool operator==(const DeleteAccount& a, const DeleteAccount& b) { return same(a.name, b.name); }

bool operator==(const LocalAccountOperation& a, const LocalAccountOperation& b) {
  return a.change == b.change;
}

bool operator==(const CompanyAdminConfig& a, const CompanyAdminConfig& b) {
  return a.enabled == b.enabled && same(a.name, b.name) && same(a.fullName, b.fullName) &&
         a.rotationDays == b.rotationDays && a.updatedAt == b.updatedAt;
}

bool operator==(const CompanyAdminStatus& a, const CompanyAdminStatus& b) {
  return a.config == b.config && a.active == b.active && a.rotatedAt == b.rotatedAt &&
         same(a.problem, b.problem);
}

bool operator==(const LocalAccountsSnapshot& a, const LocalAccountsSnapshot& b) {
  return a.accounts == b.accounts && same(a.loggedIn, b.loggedIn) && a.fileVault == b.fileVault &&
         a.companyAdmin == b.companyAdmin;
}

const std::string& LocalAccountOperation::name() const {
  return std::visit([](const auto& one) -> const std::string& { return one.name; }, change);
}

std::string_view LocalAccountOperation::kind() const {
  if (const auto* admin = std::get_if<SetAccountAdmin>(&change))
    return admin->admin ? "make-admin" : "remove-admin";
  if (const auto* enabled = std::get_if<SetAccountEnabled>(&change))
    return enabled->enabled ? "enable" : "disable";
  if (std::holds_alternative<CreateAccount>(change)) return "create";
  return std::holds_alternative<DeleteAccount>(change) ? "delete" : "reset-password";
}

const char* LocalAccountFailure::what() const noexcept { return kDescriptions[case_]; }

std::string_view LocalAccountFailure::rawValue() const noexcept {
  return std::string_view(what()).substr(kDescriptionPrefix.size());
}

std::optional<LocalAccountFailure> LocalAccountFailure::parse(std::string_view rawValue) {
  for (std::size_t i = 0; i < kDescriptions.size(); ++i) {
    const LocalAccountFailure failure(static_cast<Case>(i));
    if (failure.rawValue() == rawValue) return failure;
  }
  return std::nullopt;
}

const LocalAccount* LocalAccountsSnapshot::find(std::string_view name) const {
  const auto found = std::find_if(accounts.begin(), accounts.end(), [&](const LocalAccount& account) {
    return canonicallyEqual(account.name, name);
  });
  return found == accounts.end() ? nullptr : &*found;
}

}  // namespace molvane

std::size_t std::hash<molvane::LocalAccount>::operator()(const molvane::LocalAccount& account) const {
  using molvane::hashOf;
  return molvane::hashCombined({hashOf(molvane::canonicalForm(account.name)),
                                hashOf(molvane::canonicalForm(account.fullName)), hashOf(account.uid),
                                hashOf(account.isAdmin), hashOf(account.canUnlockFileVault),
                                hashOf(account.isDisabled), hashOf(account.isHidden)});
}
