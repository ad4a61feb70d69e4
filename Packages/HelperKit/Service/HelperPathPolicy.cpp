#include "HelperKit/Service/HelperPathPolicy.hpp"

#include "Platform/ProcessDirectories.hpp"

namespace molvane::HelperPathPolicy {

const std::set<std::string>& defaultDeniedBasenames() {
  static const std::set<std::string> names = {"CloudKit", "FamilyCircle", "com.apple.accountsd",
                                              "com.apple.Safari"};
  return names;
}

PathAllowlist userSpaceAllowlist(const std::string& home) {
  return PathAllowlist({home + "/Library/Caches", home + "/Library/Logs", temporaryDirectory()});
}

PathAllowlist fixtureAllowlist(const std::string& root) { return PathAllowlist({root}); }

}  // namespace molvane::HelperPathPolicy
