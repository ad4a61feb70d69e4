#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace molvane::ctl {

/// What is said about a file that is not there, and about one that readSmallFile has thrown `why` for.
[[nodiscard]] inline std::string noFile(const std::string& path) { return "There is no file " + path + "."; }

[[nodiscard]] inline std::string whyUnreadable(const std::string& path, const std::error_code& why) {
  if (why.value() == EINVAL) return path + " is not a regular file.";
  return path + " cannot be read: " + why.message() + ".";
}

}  // namespace molvane::ctl
