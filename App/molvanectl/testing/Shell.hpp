#pragma once

#include <string>

namespace molvane::ctl {

struct ShellResult {
  int status = -1;     ///< exit status of the script; -1 when a signal ended it
  std::string output;  ///< its standard output
};

/// Runs a script with bash. In it $M is the path of the built molvanectl, which is also first in PATH, and
/// $SOURCE the project's folder. Standard error goes where the test's goes unless the script sends it
/// elsewhere.
ShellResult shell(const std::string& script);

/// Fails the calling test, and answers empty output, when the script does not end with 0.
std::string outputOf(const std::string& script);

}  // namespace molvane::ctl
