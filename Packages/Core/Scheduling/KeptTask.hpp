#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Json.hpp"
#include "Core/Scheduling/ScheduledTask.hpp"
#include "Platform/SafeFile.hpp"

// What a file of tasks holds beside the tasks. Inside Scheduling only; what others need stands in
// ScheduleFile.hpp, and so does what the functions here throw.

namespace molvane {

/// A task as it stands in a file.
struct KeptTask {
  ScheduledTask task;
  JsonValue::Object unknownMembers;  ///< those that this version does not know, to be written again

  bool operator==(const KeptTask&) const = default;
};

/// The tasks in the bytes of a file.
[[nodiscard]] std::vector<KeptTask> decodedScheduleFile(std::string_view bytes);

/// The bytes of a file of these tasks. Throws std::length_error beyond the largest size (of the file, or of
/// one task kMaximumJsonSize) and std::invalid_argument for a date that is not finite, since neither could be
/// read again.
[[nodiscard]] std::string encodedScheduleFile(const std::vector<std::shared_ptr<const KeptTask>>& tasks);

/// The tasks in a file, and the file in the state in which they were read.
struct HeldTasks {
  std::vector<KeptTask> tasks;
  HeldFile file;
};

/// Reads the file at `path`; nothing when there is none.
[[nodiscard]] std::optional<HeldTasks> readAndHoldTasks(const std::string& path);

}  // namespace molvane
