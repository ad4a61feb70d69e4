#pragma once

#include <string>

namespace molvane::AppRemovalRunner {

/// Removes an application that AppRemovalPolicy lets go, permanently and recursively, for the person whose
/// home folder is given.
///
/// The way to it is walked without following a link, from /Applications or from the home folder on, because
/// what lies below these is not root's alone; whatever is swapped on it meanwhile, nothing outside is
/// touched.
///
/// Throws AppRemovalPolicy::Failure before anything is touched, or the std::system_error of the removal,
/// after which part of the application may be gone.
void remove(const std::string& path, const std::string& home);

}  // namespace molvane::AppRemovalRunner
