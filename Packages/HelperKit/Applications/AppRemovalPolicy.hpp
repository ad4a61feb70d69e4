#pragma once

#include <sys/stat.h>

#include <set>
#include <string>

#include "Base/CaseError.hpp"
#include "Platform/FileDescriptor.hpp"

/// Which applications may be removed.
namespace molvane::AppRemovalPolicy {

/// Each carries a path.
enum class FailureCase { notAnApp, outsideRoots, symlink, denied, missing, tooDeep };
[[nodiscard]] std::string describe(FailureCase which, const std::string& path);
using Failure = CaseError<FailureCase>;

/// Names of bundles that are never removed or replaced, wherever they stand. Compared byte for byte.
[[nodiscard]] const std::set<std::string>& deniedBasenames();

/// Whether an item of `folder` is the one that a protected name stands for there. On a volume that ignores
/// case it can be asked for under another name.
[[nodiscard]] bool isProtectedItem(const FileDescriptor& folder, const struct stat& item);

/// Whether an open folder is the "Utilities" of the folder above it, whatever name it was opened by. Throws
/// std::system_error.
[[nodiscard]] bool isUtilities(const FileDescriptor& folder);

/// The applications folder of everybody, and the one in a home folder, each without a slash at the end.
[[nodiscard]] std::string applicationsFolder();
[[nodiscard]] std::string applicationsFolder(const std::string& home);

/// The standardised path of the application to be removed: a folder at the top or one folder deep in one of
/// the two applications folders. Throws Failure; notAnApp carries the path as it was given, the others carry
/// it standardised.
///
/// What it found may have changed when it returns, folders on the way may be links, and names are compared as
/// text: whoever removes the application holds it first and asks isProtectedItem and isUtilities.
[[nodiscard]] std::string validate(const std::string& path, const std::string& home);

}  // namespace molvane::AppRemovalPolicy
