#pragma once

#include <set>
#include <string>

#include "Base/CaseError.hpp"

/// Which applications may be removed.
namespace molvane::AppRemovalPolicy {

/// Each carries a path.
enum class FailureCase { notAnApp, outsideRoots, symlink, denied, missing, tooDeep };
[[nodiscard]] std::string describe(FailureCase which, const std::string& path);
using Failure = CaseError<FailureCase>;

/// Names of bundles that are never removed or replaced, wherever they stand. Compared byte for byte.
[[nodiscard]] const std::set<std::string>& deniedBasenames();

/// The applications folder of everybody, and the one in a home folder, each without a slash at the end.
[[nodiscard]] std::string applicationsFolder();
[[nodiscard]] std::string applicationsFolder(const std::string& home);

/// The standardised path of the application to be removed: a folder at the top or one folder deep in one of
/// the two applications folders. Throws Failure; notAnApp carries the path as it was given, the others carry
/// it standardised.
///
/// What it found may have changed when it returns, and folders on the way may be links: whoever removes the
/// application holds it first.
[[nodiscard]] std::string validate(const std::string& path, const std::string& home);

}  // namespace molvane::AppRemovalPolicy
