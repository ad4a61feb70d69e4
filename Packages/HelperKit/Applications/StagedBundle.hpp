#pragma once

#include <sys/types.h>

#include <string>

#include "Platform/DirectoryHandle.hpp"

namespace molvane {

/// Goes through the staged copy of an application, which nobody but root can change any more, and makes sure
/// that it is what was asked for. The person may have changed the original while it was copied, and a tool
/// that runs as root may have been led to things that the person cannot read.
///
/// The copy must be a folder that holds nothing but folders, files and links, all of them `peerUID`'s: the
/// tool keeps owners, so anything else came from elsewhere. Its identifier must be `bundleID`. What
/// gives rights to others is taken away: file capabilities, access control lists, and of the modes all but
/// what the owner may and reading and executing for the others.
///
/// Throws ApplicationInstallPolicy::Failure about `path`, the original's path (notOwned, notAnApp), or
/// std::system_error for a copy that cannot be read.
void checkStagedBundle(const HeldItem& copy, const std::string& path, uid_t peerUID,
                       const std::string& bundleID);

}  // namespace molvane
