#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Json.hpp"

namespace molvane {

/// One entry of the fixed catalogue of maintenance tasks. The app sends only an id; what runs for it stands
/// here.
///
/// A small value; everything about a task is a function of its case and lives as long as the program. The
/// texts are for the person and are written out in full.
class MaintenanceTask {
 public:
  enum Case {
    flushDNS,
    rebuildLaunchServices,
    resetQuickLook,
    clearFontCaches,
    restartFinder,
    restartDock,
    reindexSpotlight,
    purgeMemory,
    verifyBootVolume,
    downloadUpdates,
    restartMac,
  };

  /// An external tool to run: no shell, the arguments passed as they are.
  struct Command {
    std::string executable;  ///< absolute path
    std::vector<std::string> arguments;

    bool operator==(const Command&) const = default;
  };

  /// The first case, for a value that is read into.
  constexpr MaintenanceTask() noexcept = default;
  // NOLINTNEXTLINE(google-explicit-constructor): a case is a task
  constexpr MaintenanceTask(Case which) noexcept : case_(which) {}

  /// The task whose id is exactly `id`; nothing for any other text. No trimming, no case folding.
  [[nodiscard]] static std::optional<MaintenanceTask> parse(std::string_view id);

  /// Every task, in the order of the cases.
  [[nodiscard]] static const std::array<MaintenanceTask, 11>& allCases();

  /// The tasks that the app offers in its list: all but restartMac, which only a company recipe uses.
  [[nodiscard]] static const std::array<MaintenanceTask, 10>& listed();

  [[nodiscard]] constexpr Case which() const noexcept { return case_; }

  /// The id on the wire.
  [[nodiscard]] std::string_view rawValue() const;
  [[nodiscard]] std::string_view title() const;
  [[nodiscard]] std::string_view detail() const;
  [[nodiscard]] std::string_view successSummary() const;
  [[nodiscard]] std::string_view failureSummary() const;

  /// The task runs only in the helper; the others run in the app, as the user.
  [[nodiscard]] bool requiresRoot() const;

  /// The task takes minutes or longer.
  [[nodiscard]] bool isSlow() const;

  /// Run in order, each only when the one before succeeded. Never empty.
  [[nodiscard]] const std::vector<Command>& commands() const;

  friend constexpr bool operator==(MaintenanceTask a, MaintenanceTask b) noexcept {
    return a.case_ == b.case_;
  }

 private:
  Case case_ = flushDNS;
};

// JSON form: the id. fromJson throws a DecodingError, also for a text that is the id of no task.
void fromJson(const JsonValue& json, MaintenanceTask& task);
[[nodiscard]] JsonValue toJson(MaintenanceTask task);

}  // namespace molvane

template <>
struct std::hash<molvane::MaintenanceTask> {
  std::size_t operator()(molvane::MaintenanceTask task) const noexcept {
    return std::hash<molvane::MaintenanceTask::Case>()(task.which());
  }
};
