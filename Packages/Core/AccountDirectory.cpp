#include "Core/AccountDirectory.hpp"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <unordered_set>

#include "Base/Characters.hpp"
#include "Base/PropertyList.hpp"
#include "Core/LocalAccountPolicy.hpp"

namespace molvane::AccountDirectory {
namespace {

// As much as is kept of a tool's output: some twenty thousand records.
constexpr std::size_t kLongestListing = std::size_t{20} << 20U;

using Names = std::unordered_set<std::string>;

/// The strings of an attribute; nullptr when it is absent, empty or holds anything but strings.
const PropertyList::Array* strings(const PropertyList& record, std::string_view attribute) {
  const PropertyList* value = record.find(attribute);
  const auto* elements = value != nullptr ? value->as<PropertyList::Array>() : nullptr;
  if (elements == nullptr || elements->empty()) return nullptr;
  const auto isString = [](const PropertyList& element) { return element.as<std::string>() != nullptr; };
  return std::all_of(elements->begin(), elements->end(), isString) ? elements : nullptr;
}

const std::string* firstString(const PropertyList& record, std::string_view attribute) {
  const PropertyList::Array* found = strings(record, attribute);
  return found == nullptr ? nullptr : found->front().as<std::string>();
}

/// What the strings of an attribute say together, joined by blanks.
std::string joined(const PropertyList& record, std::string_view attribute) {
  std::string text;
  const PropertyList::Array* parts = strings(record, attribute);
  if (parts == nullptr) return text;
  for (const PropertyList& part : *parts) {
    text += *part.as<std::string>();
    text += ' ';
  }
  return text;
}

/// Decimal with an optional sign.
std::optional<std::int64_t> wholeNumber(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

bool meansYes(const std::string* text) {
  if (text == nullptr) return false;
  const std::string lower = lowercased(*text);
  return lower == "1" || lower == "yes" || lower == "true";
}

/// Nothing where `admins` is no record at all.
std::optional<Names> namesOfAdmins(std::string_view admins) {
  const std::optional<PropertyList> group = parsePropertyList(admins, kLongestListing);
  if (!group || group->as<PropertyList::Dictionary>() == nullptr) return std::nullopt;
  Names names;
  const PropertyList::Array* members = strings(*group, "dsAttrTypeStandard:GroupMembership");
  if (members == nullptr) return names;
  for (const PropertyList& member : *members) names.insert(canonicalForm(*member.as<std::string>()));
  return names;
}

std::optional<LocalAccount> account(const PropertyList& record, const Names& admins) {
  const std::string* name = firstString(record, "dsAttrTypeStandard:RecordName");
  const std::string* id = firstString(record, "dsAttrTypeStandard:UniqueID");
  if (name == nullptr || id == nullptr) return std::nullopt;
  const std::optional<std::int64_t> uid = wholeNumber(*id);
  if (!uid || *uid < LocalAccountPolicy::firstUserID) return std::nullopt;

  const std::string* fullName = firstString(record, "dsAttrTypeStandard:RealName");
  const std::string authority = joined(record, "dsAttrTypeStandard:AuthenticationAuthority");
  return LocalAccount{.name = *name,
                      .fullName = fullName != nullptr ? *fullName : *name,
                      .uid = *uid,
                      .isAdmin = admins.contains(canonicalForm(*name)),
                      .canUnlockFileVault = authority.find(";SecureToken;") != std::string::npos,
                      .isDisabled = authority.find(";DisabledUser;") != std::string::npos,
                      .isHidden = meansYes(firstString(record, "dsAttrTypeStandard:IsHidden"))};
}

/// Nothing where `users` is something else than all users' records.
std::optional<std::vector<LocalAccount>> accountsOf(std::string_view users, const Names& admins) {
  std::vector<LocalAccount> found;
  bool onlyRecords = true;
  const auto take = [&](const PropertyList& record) {
    onlyRecords = onlyRecords && record.as<PropertyList::Dictionary>() != nullptr;
    if (std::optional<LocalAccount> one = account(record, admins)) found.push_back(*std::move(one));
  };
  // One that is no record makes the listing something else.
  if (!readPropertyListArray(users, take, kLongestListing) || !onlyRecords) return std::nullopt;
  std::stable_sort(found.begin(), found.end(),
                   [](const LocalAccount& a, const LocalAccount& b) { return a.uid < b.uid; });
  return found;
}

}  // namespace

MaintenanceTask::Command usersCommand() {
  return {"/usr/bin/dscl",
          {"-plist", ".", "-readall", "/Users", "RecordName", "RealName", "UniqueID",
           "AuthenticationAuthority", "IsHidden"}};
}

MaintenanceTask::Command adminsCommand() {
  return {"/usr/bin/dscl", {"-plist", ".", "-read", "/Groups/admin", "GroupMembership"}};
}

MaintenanceTask::Command fileVaultCommand() { return {"/usr/bin/fdesetup", {"isactive"}}; }

std::vector<LocalAccount> accounts(std::string_view users, std::string_view admins) {
  return accountsOf(users, namesOfAdmins(admins).value_or(Names())).value_or(std::vector<LocalAccount>());
}

std::optional<std::vector<LocalAccount>> completeAccounts(std::string_view users, std::string_view admins) {
  const std::optional<Names> names = namesOfAdmins(admins);
  if (!names) return std::nullopt;
  return accountsOf(users, *names);
}

}  // namespace molvane::AccountDirectory
