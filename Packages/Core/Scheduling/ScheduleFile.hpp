#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Core/Scheduling/ScheduledTask.hpp"

// The file in which scheduled tasks are kept: lines of JSON. The first is
// {"scheduledTasks":N,"version":1,"complete":true} with the number of tasks; each of the N that follow is one
// task. "complete" says that every task has all its members, null where there is nothing; files of before
// lack it. Every line ends with a newline.

namespace molvane {

/// A file of tasks is not what it should be. Says why, and in which line.
class BrokenScheduleFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A file of tasks was written by a newer version than this: a version of the file or a schedule in it is not
/// known here. A sentence for the person.
class NewerScheduleFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The largest file of tasks that is read or written, in bytes.
inline constexpr std::size_t kMaximumScheduleFileSize = std::size_t{64} << 20U;

/// The tasks in the file at `path`; nothing when there is none. Changes nothing.
///
/// Throws NewerScheduleFile, and BrokenScheduleFile for anything else that is not exactly such a file: a line
/// that is no task, a member that is missing, more or fewer tasks than the first line says, two tasks of one
/// identifier. Throws std::system_error when the file cannot be read.
[[nodiscard]] std::optional<std::vector<ScheduledTask>> readScheduleFile(const std::string& path);

}  // namespace molvane
