#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// One posix_spawn being prepared: the program, its standard streams and a clean start (no other descriptor,
/// no signal blocked or ignored, the caller's environment). posix_spawn shares the caller's memory with the
/// child until the program has been loaded, so nothing is copied however large the caller is, and it reports
/// what went wrong in the child.
///
/// Descriptors that are handed in must be above 2 and stay open until spawn() has returned. Everything throws
/// std::system_error.
class SpawnRequest {
 public:
  /// Throws with EINVAL for an executable that is not an absolute path and for a text with a NUL in it.
  SpawnRequest(const std::string& executable, const std::vector<std::string>& arguments);
  ~SpawnRequest();
  SpawnRequest(const SpawnRequest&) = delete;
  SpawnRequest& operator=(const SpawnRequest&) = delete;

  /// The caller's own standard input; the null device when the caller has none.
  void inheritInput();
  void setNullInput();
  void setInput(const FileDescriptor& readEnd);
  /// Both standard output and standard error.
  void setOutput(const FileDescriptor& writeEnd);
  void setNullOutput();

  /// Starts the program and returns its process, which the caller must reap. Call it once, last.
  [[nodiscard]] pid_t spawn();

 private:
  std::string executable_;
  std::vector<std::string> words_;
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace molvane
