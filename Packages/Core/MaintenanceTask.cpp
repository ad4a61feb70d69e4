#include "Core/MaintenanceTask.hpp"

#include <cstddef>

#include "Base/JsonCoding.hpp"

namespace molvane {

namespace {

struct Entry {
  std::string_view id;
  std::string_view title;
  std::string_view detail;
  std::string_view successSummary;
  std::string_view failureSummary;
  bool requiresRoot;
  bool isSlow;
  std::vector<MaintenanceTask::Command> commands;
};

/// In the order of the cases.
const std::array<Entry, 11>& catalogue() {
  static const std::array<Entry, 11> entries{{
      {.id = "flush-dns",
       .title = "Flush DNS cache",
       .detail = "Clears the directory service cache and restarts mDNSResponder. Fixes stale name lookups.",
       .successSummary =
           "Cleared the DNS cache. A site that was loading from an old address should reach the right "
           "server now.",
       .failureSummary = "The DNS cache was not cleared, so name lookups are unchanged.",
       .requiresRoot = true,
       .isSlow = false,
       .commands = {{"/usr/bin/dscacheutil", {"-flushcache"}},
                    {"/usr/bin/killall", {"-HUP", "mDNSResponder"}}}},
      {.id = "rebuild-launchservices",
       .title = "Rebuild Launch Services database",
       .detail = "Fixes duplicate entries in \"Open With\" menus and wrong default apps.",
       .successSummary =
           "Rebuilt the \"Open With\" database. Duplicate entries are gone and files open with the app "
           "macOS has on record.",
       .failureSummary = "The \"Open With\" database was not rebuilt.",
       .requiresRoot = false,
       .isSlow = false,
       .commands =
           {{"/System/Library/Frameworks/CoreServices.framework/Frameworks/LaunchServices.framework/Support/"
             "lsregister",
             {"-kill", "-r", "-domain", "local", "-domain", "system", "-domain", "user"}}}},
      {.id = "reset-quicklook",
       .title = "Reset Quick Look thumbnails",
       .detail = "Clears cached previews so Finder regenerates them.",
       .successSummary =
           "Cleared the preview cache. Finder rebuilds thumbnails the next time you open a folder, so "
           "stale or blank previews go away.",
       .failureSummary = "The preview cache was not cleared.",
       .requiresRoot = false,
       .isSlow = false,
       .commands = {{"/usr/bin/qlmanage", {"-r", "cache"}}, {"/usr/bin/qlmanage", {"-r"}}}},
      {.id = "clear-font-caches",
       .title = "Clear font caches",
       .detail = "Removes the user font cache and restarts the font server. Fixes garbled text.",
       .successSummary =
           "Cleared the font caches and restarted the font server. Garbled or missing text is fixed "
           "once you reopen the affected apps.",
       .failureSummary = "The font caches were not cleared.",
       .requiresRoot = false,
       .isSlow = false,
       .commands = {{"/usr/bin/atsutil", {"databases", "-removeUser"}},
                    {"/usr/bin/atsutil", {"server", "-shutdown"}},
                    {"/usr/bin/atsutil", {"server", "-ping"}}}},
      {.id = "restart-finder",
       .title = "Restart Finder",
       .detail = "Relaunches Finder. Open windows are restored.",
       .successSummary = "Finder was relaunched and your windows were restored.",
       .failureSummary = "Finder was not relaunched.",
       .requiresRoot = false,
       .isSlow = false,
       .commands = {{"/usr/bin/killall", {"Finder"}}}},
      {.id = "restart-dock",
       .title = "Restart Dock",
       .detail = "Relaunches the Dock. Also resets misbehaving Mission Control.",
       .successSummary = "The Dock was relaunched. Mission Control and Spaces restarted with it.",
       .failureSummary = "The Dock was not relaunched.",
       .requiresRoot = false,
       .isSlow = false,
       .commands = {{"/usr/bin/killall", {"Dock"}}}},
      {.id = "reindex-spotlight",
       .title = "Reindex Spotlight (boot volume)",
       .detail = "Erases and rebuilds the Spotlight index of the boot volume. Search is slower until it "
                 "finishes (can "
                 "take an hour).",
       .successSummary =
           "Spotlight started rebuilding its index of the boot volume. Search stays incomplete until it "
           "finishes, which can take about an hour.",
       .failureSummary = "Spotlight was not asked to reindex; the existing index is untouched.",
       .requiresRoot = true,
       .isSlow = true,
       .commands = {{"/usr/bin/mdutil", {"-E", "/"}}}},
      {.id = "purge-memory",
       .title = "Purge inactive memory",
       .detail = "Forces the kernel to free inactive memory. Rarely needed; useful before benchmarks.",
       .successSummary =
           "Inactive memory was handed back to the system. Free memory goes up straight away; macOS "
           "will use it again as needed.",
       .failureSummary = "Inactive memory was not released.",
       .requiresRoot = true,
       .isSlow = false,
       .commands = {{"/usr/sbin/purge", {}}}},
      {.id = "verify-boot-volume",
       .title = "Verify boot volume",
       .detail = "Read-only APFS verification of the boot volume. Takes a few minutes; makes no changes.",
       .successSummary =
           "The boot volume was checked read-only and nothing was changed. The log holds what the check "
           "reported.",
       .failureSummary = "The volume check did not complete, so it says nothing about the disk's health.",
       .requiresRoot = false,
       .isSlow = true,
       .commands = {{"/usr/sbin/diskutil", {"verifyVolume", "/"}}}},
      {.id = "download-updates",
       .title = "Download software updates",
       .detail = "Downloads the updates Software Update offers, without installing them. Installing is done "
                 "in System "
                 "Settings.",
       .successSummary =
           "The updates were downloaded. They install from System Settings › General › Software Update.",
       .failureSummary = "The updates were not downloaded.",
       .requiresRoot = true,
       .isSlow = true,
       .commands = {{"/usr/sbin/softwareupdate", {"--download", "--all"}}}},
      {.id = "restart-mac",
       .title = "Restart the Mac",
       .detail = "Restarts the Mac a minute later, for a company recipe that goes on after the restart.",
       .successSummary = "The Mac restarts in a minute.",
       .failureSummary = "The restart was not scheduled.",
       .requiresRoot = true,
       .isSlow = false,
       .commands = {{"/sbin/shutdown", {"-r", "+1"}}}},
  }};
  return entries;
}

const Entry& entry(MaintenanceTask::Case which) { return catalogue().at(static_cast<std::size_t>(which)); }

}  // namespace

std::optional<MaintenanceTask> MaintenanceTask::parse(std::string_view id) {
  for (const MaintenanceTask task : allCases()) {
    if (task.rawValue() == id) return task;
  }
  return std::nullopt;
}

const std::array<MaintenanceTask, 11>& MaintenanceTask::allCases() {
  static constexpr std::array<MaintenanceTask, 11> kAll{
      flushDNS,         rebuildLaunchServices, resetQuickLook,   clearFontCaches, restartFinder, restartDock,
      reindexSpotlight, purgeMemory,           verifyBootVolume, downloadUpdates, restartMac};
  return kAll;
}

const std::array<MaintenanceTask, 10>& MaintenanceTask::listed() {
  static constexpr std::array<MaintenanceTask, 10> kListed{
      flushDNS,    rebuildLaunchServices, resetQuickLook, clearFontCaches,  restartFinder,
      restartDock, reindexSpotlight,      purgeMemory,    verifyBootVolume, downloadUpdates};
  return kListed;
}

std::string_view MaintenanceTask::rawValue() const { return entry(case_).id; }

std::string_view MaintenanceTask::title() const { return entry(case_).title; }

std::string_view MaintenanceTask::detail() const { return entry(case_).detail; }

std::string_view MaintenanceTask::successSummary() const { return entry(case_).successSummary; }

std::string_view MaintenanceTask::failureSummary() const { return entry(case_).failureSummary; }

bool MaintenanceTask::requiresRoot() const { return entry(case_).requiresRoot; }

bool MaintenanceTask::isSlow() const { return entry(case_).isSlow; }

const std::vector<MaintenanceTask::Command>& MaintenanceTask::commands() const {
  return entry(case_).commands;
}

void fromJson(const JsonValue& json, MaintenanceTask& task) {
  std::string id;
  fromJson(json, id);
  const std::optional<MaintenanceTask> parsed = MaintenanceTask::parse(id);
  if (!parsed) throwUnknownCase();
  task = *parsed;
}

JsonValue toJson(MaintenanceTask task) { return toJson(std::string(task.rawValue())); }

}  // namespace molvane
