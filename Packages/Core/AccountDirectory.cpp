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

/// The strings of an attribute; none when it is absent or is anything but strings.
std::vector<const std::string*> strings(const PropertyList& record, std::string_view attribute) {
  const PropertyList* value = record.find(attribute);
  const auto* elements = value != nullptr ? value->as<PropertyList::Array>() : nullptr;
  std::vector<const std::string*> found;
  if (elements == nullptr) return found;
  found.reserve(elements->size());
  for (const PropertyList& element : *elements) {
    const auto* text = element.as<std::string>();
    if (text == nullptr) return {};
    found.push_back(text);
  }
  return found;
}

const std::string* firstString(const PropertyList& record, std::string_view attribute) {
  const std::vector<const std::string*> found = strings(record, attribute);
  return found.empty() ? nullptr : found.front();
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

Names namesOfAdmins(std::string_view admins) {
  Names names;
  const std::optional<PropertyList> group = parsePropertyList(admins, kLongestListing);
  if (!group) return names;
  for (const std::string* name : strings(*group, "dsAttrTypeStandard:GroupMembership")) {
    names.insert(canonicalForm(*name));
  }
  return names;
}

std::optional<LocalAccount> account(const PropertyList& record, const Names& admins) {
  const std::string* name = firstString(record, "dsAttrTypeStandard:RecordName");
  const std::string* id = firstString(record, "dsAttrTypeStandard:UniqueID");
  if (name == nullptr || id == nullptr) return std::nullopt;
  const std::optional<std::int64_t> uid = wholeNumber(*id);
  if (!uid || *uid < LocalAccountPolicy::firstUserID) return std::nullopt;

  const std::string* fullName = firstString(record, "dsAttrTypeStandard:RealName");
  std::string authority;
  for (const std::string* part : strings(record, "dsAttrTypeStandard:AuthenticationAuthority")) {
    authority += *part;
    authority += ' ';
  }
  return LocalAccount{.name = *name,
                      .fullName = fullName != nullptr ? *fullName : *name,
                      .uid = *uid,
                      .isAdmin = admins.contains(canonicalForm(*name)),
                      .canUnlockFileVault = authority.find(";SecureToken;") != std::string::npos,
                      .isDisabled = authority.find(";DisabledUser;") != std::string::npos,
                      .isHidden = meansYes(firstString(record, "dsAttrTypeStandard:IsHidden"))};
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
  const Names adminNames = namesOfAdmins(admins);
  std::vector<LocalAccount> found;
  const std::optional<PropertyList> listing = parsePropertyList(users, kLongestListing);
  const auto* records = listing ? listing->as<PropertyList::Array>() : nullptr;
  if (records == nullptr) return found;
  for (const PropertyList& record : *records) {
    // One that is no record makes the listing something else.
    if (record.as<PropertyList::Dictionary>() == nullptr) return {};
    if (std::optional<LocalAccount> one = account(record, adminNames)) found.push_back(*std::move(one));
  }
  std::stable_sort(found.begin(), found.end(),
                   [](const LocalAccount& a, const LocalAccount& b) { return a.uid < b.uid; });
  return found;
}

}  // namespace molvane::AccountDirectory
