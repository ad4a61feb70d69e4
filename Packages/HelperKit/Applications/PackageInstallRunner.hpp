#pragma once

#include <sys/types.h>

#include <string>

namespace molvane::PackageInstallRunner {

/// Installs a package of the person's company inbox: validates it, copies it to where only root can reach it,
/// has the copy assessed if `verified`, and installs the copy, which is gone when this returns or throws. The
/// person's own file is never changed. Copies that a killed helper left are removed on the way.
///
/// Returns what the installer said. Throws PackageInstallPolicy::Failure (installFailed, too, when the
/// installer ran and failed or did not finish in time, after which part of the package may be installed), or
/// std::system_error for what kept the package from being copied.
std::string install(const std::string& path, const std::string& home, uid_t peerUID, bool verified);

}  // namespace molvane::PackageInstallRunner
