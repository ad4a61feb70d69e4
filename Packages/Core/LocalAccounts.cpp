#include "Core/LocalAccounts.hpp"

#include <algorithm>

#include "Base/Characters.hpp"

namespace molvane {
namespace {

// The raw values follow this, in the order of the cases.
constexpr std::string_view kDescriptionPrefix = "local account: ";
constexpr std::array<const char*, 11> kDescriptions = {
    "local account: invalid-name",   "local account: exists",          "local account: not-found",
    "local account: system-account", "local account: last-admin",      "local account: logged-in",
    "local account: weak-password",  "local account: company-account", "local account: needs-admin",
    "local account: bad-admin",      "local account: failed"};

}  // namespace

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
