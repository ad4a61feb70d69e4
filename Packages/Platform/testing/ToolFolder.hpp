#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "Platform/testing/TemporaryFolder.hpp"

namespace molvane::testing {

/// A temporary folder of small shell scripts that stand for tools. Removed at the end, with what the tools
/// left in it.
class ToolFolder {
 public:
  [[nodiscard]] std::string path(std::string_view name) const;

  /// Writes the file with exactly these bytes and this mode, and returns its path.
  std::string addFile(std::string_view name, std::string_view bytes, mode_t mode) const;

  /// Writes an executable script for /bin/sh and returns its path.
  std::string addScript(std::string_view name, std::string_view commands) const;

 private:
  TemporaryFolder folder_;
};

/// How many descriptors this process has open.
[[nodiscard]] int openDescriptorCount();

/// Whether this process has a child, ended or not, that was not reaped. Reaps one that ended.
[[nodiscard]] bool hasUnreapedChildren();

/// Keeps what descriptors 0, 1 and 2 are, so that a test may close or replace them, and puts them back at the
/// end. Whoever has one of these must not report a failure before it is gone.
class StandardStreamsKept {
 public:
  StandardStreamsKept();
  ~StandardStreamsKept();
  StandardStreamsKept(const StandardStreamsKept&) = delete;
  StandardStreamsKept& operator=(const StandardStreamsKept&) = delete;

 private:
  int kept_[3];
};

}  // namespace molvane::testing
