#pragma once

#include <optional>
#include <string>
#include <string_view>

/// The names by which the helper goes, and by which it knows its client.
namespace molvane::HelperIdentity {

inline constexpr std::string_view helperBundleID = "com.molvane.helper";
inline constexpr std::string_view machServiceName = helperBundleID;
inline constexpr std::string_view launchDaemonPlistName = "com.molvane.helper.plist";
inline constexpr std::string_view appBundleID = "com.molvane.app";

/// The team identifier that the build wrote into the bundle, read anew each time; empty when there is none.
[[nodiscard]] std::string teamID();

/// The team identifier that `bundleValue`, the text under the bundle's key, stands for: without white space
/// and newlines at its ends. Empty when there is no text, and for a build variable that was left unexpanded.
[[nodiscard]] std::string teamID(const std::optional<std::string>& bundleValue);

/// What the code of a peer must satisfy, in the platform's requirement language. With an empty team
/// identifier only the bundle identifier is asked for, which protects nothing: refuse all peers instead.
[[nodiscard]] std::string peerRequirement(std::string_view teamID);

}  // namespace molvane::HelperIdentity
