#include "HelperKit/Service/HelperService.hpp"

#include <utility>

#include "Base/PathText.hpp"
#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Maintenance/MaintenanceRunner.hpp"
#include "HelperKit/Service/AllowedItem.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"
#include "Platform/StandardPath.hpp"

namespace molvane {
namespace {

using Refusal = HelperServiceErrorCase;

constexpr double kMaintenanceTimeout = 3600;  // seconds, for each command

}  // namespace

HelperService::HelperService(PathAllowlist allowlist, std::set<std::string> deniedBasenames,
                             std::unique_ptr<DeviceJobRunner> jobs,
                             std::unique_ptr<CompanyAdminKeeper> companyAdmin)
    : allowlist_(std::move(allowlist)),
      deniedBasenames_(std::move(deniedBasenames)),
      jobs_(std::move(jobs)),
      companyAdmin_(std::move(companyAdmin)) {}

HelperService::~HelperService() = default;

void HelperService::ping(const Reply<std::string>& reply) { reply("pong"); }

std::string HelperService::validateReadablePath(const std::string& path) const {
  std::optional<std::string> root = allowlist_.rootContaining(path);
  if (!root) throw HelperServiceError(Refusal::denied, path);
  const std::string name = lastPathComponent(path);
  if (deniedBasenames_.contains(name)) throw HelperServiceError(Refusal::deniedBasename, name);
  return *std::move(root);
}

std::string HelperService::validateMutablePath(const std::string& path) const {
  std::string root = validateReadablePath(path);
  for (const std::string& prefix : allowlist_.allowedPrefixes()) {
    // Standardised once more: a root may have become reachable under another name since start-up.
    if (path == PathAllowlist::normalize(prefix)) {
      throw HelperServiceError(Refusal::rootDeletionForbidden, path);
    }
  }
  return root;
}

void HelperService::removeAllowedItem(const std::string& path) const {
  const std::string standardized = standardizingPath(path);
  const std::string root = validateMutablePath(standardized);
  AllowedItem(root, standardized).remove();
}

void HelperService::removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) {
  try {
    removeAllowedItem(path);
  } catch (...) {
    return reply(false, replyErrorOfCurrentException());
  }
  reply(true, std::nullopt);
}

std::int64_t HelperService::sizeOfAllowedDirectory(const std::string& path) const {
  const std::string standardized = standardizingPath(path);
  const std::string root = validateReadablePath(standardized);
  return AllowedItem(root, standardized).logicalSize();
}

void HelperService::sizeOfAllowedDirectory(const std::string& path,
                                           const Reply<std::int64_t, OptionalError>& reply) {
  std::int64_t size = 0;
  try {
    size = sizeOfAllowedDirectory(path);
  } catch (...) {
    return reply(-1, replyErrorOfCurrentException());
  }
  reply(size, std::nullopt);
}

MaintenanceTask HelperService::validateMaintenanceTask(const std::string& taskID) {
  const std::optional<MaintenanceTask> task = MaintenanceTask::parse(taskID);
  if (!task) throw HelperServiceError(Refusal::unknownTask, taskID);
  if (!task->requiresRoot()) throw HelperServiceError(Refusal::taskNotPrivileged, taskID);
  return *task;
}

void HelperService::runMaintenanceTask(const std::string& taskID,
                                       const Reply<bool, std::string, OptionalError>& reply) {
  MaintenanceRunner::Result result;
  try {
    result = MaintenanceRunner::run(validateMaintenanceTask(taskID), kMaintenanceTimeout);
  } catch (...) {
    return reply(false, "", replyErrorOfCurrentException());
  }
  reply(result.succeeded, result.output, std::nullopt);
}

}  // namespace molvane
