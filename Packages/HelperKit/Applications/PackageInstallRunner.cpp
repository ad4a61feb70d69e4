#include "HelperKit/Applications/PackageInstallRunner.hpp"

#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "HelperKit/Maintenance/MaintenanceRunner.hpp"

namespace molvane::PackageInstallRunner {

using PackageInstallPolicy::Failure;
using PackageInstallPolicy::FailureCase;

std::string install(const std::string& path, const std::string& home, uid_t peerUID, bool verified) {
  const ReceivedItem received = PackageInstallPolicy::validate(path, home, peerUID);
  const StagingFolder staging(PackageInstallPolicy::stagingRoot);
  staging.sweep();
  const StagedItem copy = PackageInstallPolicy::stage(received, peerUID, staging);

  if (verified) {
    const auto assessment = MaintenanceRunner::execute(PackageInstallPolicy::assess(copy.path()),
                                                       PackageInstallPolicy::assessmentTimeout);
    if (assessment.timedOut || assessment.status != 0) {
      throw Failure(FailureCase::notAccepted, assessment.output);
    }
  }
  const auto installation =
      MaintenanceRunner::execute(PackageInstallPolicy::install(copy.path()), PackageInstallPolicy::timeout);
  if (installation.timedOut) {
    throw Failure(FailureCase::installFailed, "The installer did not finish in time.");
  }
  if (installation.status != 0) throw Failure(FailureCase::installFailed, installation.output);
  return installation.output;
}

}  // namespace molvane::PackageInstallRunner
