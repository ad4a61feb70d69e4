#include "HelperProtocol/HelperIdentity.hpp"

#include "Base/Text.hpp"
#include "Platform/Bundle.hpp"

namespace molvane::HelperIdentity {

std::string teamID() { return teamID(Bundle::main().infoString("AppTeamID")); }

std::string teamID(const std::optional<std::string>& bundleValue) {
  const std::string trimmed = trimmingWhitespaceAndNewlines(bundleValue.value_or(""));
  return trimmed.starts_with("$(") ? std::string() : trimmed;
}

std::string peerRequirement(std::string_view teamID) {
  std::string identifier = "identifier \"" + std::string(appBundleID) + "\"";
  if (teamID.empty()) return identifier;
  // The two fields mark an intermediate and a leaf of the Developer ID chain.
  return "anchor apple generic and " + identifier +
         " and certificate 1[field.1.2.840.113635.100.6.2.6]"
         " and certificate leaf[field.1.2.840.113635.100.6.1.13]"
         " and certificate leaf[subject.OU] = \"" +
         std::string(teamID) + "\"";
}

}  // namespace molvane::HelperIdentity
