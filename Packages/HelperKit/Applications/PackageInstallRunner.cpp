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
    if (assessment.failed()) {
      throw Failure(FailureCase::notAccepted, assessment.failureText("The assessment"));
    }
  }
  const auto installation =
      MaintenanceRunner::execute(PackageInstallPolicy::install(copy.path()), PackageInstallPolicy::timeout);
  if (installation.failed()) {
    throw Failure(FailureCase::installFailed, installation.failureText("The installer"));
  }
  return installation.output;
}

}  // namespace molvane::PackageInstallRunner
