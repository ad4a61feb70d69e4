#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Core/Scheduling/ScheduledTask.hpp"

// The file in which scheduled tasks are kept: lines of JSON. The first is {"scheduledTasks":N,"version":1}
// with the number of tasks; each of the N that follow is one task. Every line ends with a newline.

namespace molvane {

/// A file of tasks is not what it should be. Says why, and in which line.
class BrokenScheduleFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The largest file of tasks that is read or written, in bytes.
inline constexpr std::size_t kMaximumScheduleFileSize = std::size_t{64} << 20U;

/// The tasks in the bytes of a file. Throws BrokenScheduleFile for anything that is not exactly such a file:
/// another version, a line that is no task, more or fewer tasks than the first line says, two tasks of one
/// identifier.
[[nodiscard]] std::vector<ScheduledTask> decodedScheduleFile(std::string_view bytes);

/// The bytes of a file of these tasks. Throws std::length_error beyond the largest size (of the file, or of
/// one task kMaximumJsonSize) and std::invalid_argument for a date that is not finite, since neither could be
/// read again.
[[nodiscard]] std::string encodedScheduleFile(const std::vector<std::shared_ptr<const ScheduledTask>>& tasks);

/// Reads the file at `path`; nothing when there is none. Throws BrokenScheduleFile, or std::system_error when
/// it cannot be read. Changes nothing.
[[nodiscard]] std::optional<std::vector<ScheduledTask>> readScheduleFile(const std::string& path);

}  // namespace molvane
