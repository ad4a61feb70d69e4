#include "HelperKit/Applications/ApplicationInstallRunner.hpp"

#include <exception>

#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "HelperKit/Applications/ApplicationPlacement.hpp"
#include "HelperKit/Applications/StagedBundle.hpp"
#include "HelperKit/Applications/StagingFolder.hpp"
#include "HelperKit/Maintenance/MaintenanceRunner.hpp"
#include "Platform/DirectoryHandle.hpp"
#include "Platform/FileManager.hpp"
#include "Platform/Log.hpp"

namespace molvane::ApplicationInstallRunner {

using ApplicationInstallPolicy::Failure;
using ApplicationInstallPolicy::FailureCase;

void salvage() try {
  if (!FileManager::isDirectory(ApplicationInstallPolicy::stagingRoot)) return;
  const StagingFolder staging(ApplicationInstallPolicy::stagingRoot);
  ApplicationPlacement(staging, ApplicationInstallPolicy::applications).salvage();
} catch (const std::exception& error) {
  logLine(std::string("MolvaneHelper: cannot look for installations that were cut off: ") + error.what());
}

std::string install(const std::string& path, const std::string& home, uid_t peerUID) {
  const auto app = ApplicationInstallPolicy::validate(path, home, peerUID);
  const std::string& original = app.received.path;
  const std::string& name = app.received.item.name;

  const StagingFolder staging(ApplicationInstallPolicy::stagingRoot);
  const ApplicationPlacement placement(staging, ApplicationInstallPolicy::applications);
  placement.sweep();

  StagedItem work = staging.makeFolder();
  const std::string copy = work.path() + "/" + name;
  const auto copying = MaintenanceRunner::execute(ApplicationInstallPolicy::copy(original, copy),
                                                  ApplicationInstallPolicy::copyTimeout);
  if (copying.failed()) throw Failure(FailureCase::failed, copying.failureText("Copying the app"));
  checkStagedBundle({openedAnew(work.descriptor()), name}, original, peerUID, app.bundleID);

  const auto assessment = MaintenanceRunner::execute(ApplicationInstallPolicy::assess(copy),
                                                     ApplicationInstallPolicy::assessmentTimeout);
  if (assessment.failed()) {
    throw Failure(FailureCase::notAccepted, assessment.failureText("The assessment"));
  }
  return placement.place(work, name, app.bundleID);
}

}  // namespace molvane::ApplicationInstallRunner
