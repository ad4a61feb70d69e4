#pragma once

#include <sys/types.h>

#include <string>

namespace molvane::ApplicationInstallRunner {

/// Installs an application of the person's company inbox: validates it, copies it to where only root can
/// reach it, checks the copy anew, has it assessed, and moves it into /Applications, in place of an older
/// copy of itself if there is one. The work folder is gone when this returns or throws; the person's own
/// bundle is never changed. What a killed helper left is tidied up on the way.
///
/// Returns the path at which the application is now. Throws ApplicationInstallPolicy::Failure or
/// std::system_error; then /Applications is as it was.
std::string install(const std::string& path, const std::string& home, uid_t peerUID);

/// Puts applications back into /Applications that a helper which was killed had moved out of the way and not
/// replaced. For the start of the helper. Removes nothing; throws nothing, what cannot be done is logged.
void salvage();

}  // namespace molvane::ApplicationInstallRunner
