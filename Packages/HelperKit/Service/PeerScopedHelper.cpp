#include "HelperKit/Service/PeerScopedHelper.hpp"

namespace molvane {

void PeerScopedHelper::ping(const Reply<std::string>& reply) { reply("pong"); }

void PeerScopedHelper::removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) {
  service_->removeAllowedItem(path, reply);
}

void PeerScopedHelper::sizeOfAllowedDirectory(const std::string& path,
                                              const Reply<std::int64_t, OptionalError>& reply) {
  service_->sizeOfAllowedDirectory(path, reply);
}

void PeerScopedHelper::runMaintenanceTask(const std::string& taskID,
                                          const Reply<bool, std::string, OptionalError>& reply) {
  service_->runMaintenanceTask(taskID, reply);
}

void PeerScopedHelper::startDeviceJob(const Data& spec,
                                      const Reply<std::optional<std::string>, OptionalError>& reply) {
  service_->startDeviceJob(spec, peerUID_, reply);
}

void PeerScopedHelper::deviceJobStatus(const std::string& jobID,
                                       const Reply<std::optional<Data>, OptionalError>& reply) {
  service_->deviceJobStatus(jobID, reply);
}

void PeerScopedHelper::cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) {
  service_->cancelDeviceJob(jobID, reply);
}

void PeerScopedHelper::removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) {
  service_->removeApplication(path, peerUID_, reply);
}

void PeerScopedHelper::installPackage(const std::string& path,
                                      const Reply<bool, std::string, OptionalError>& reply) {
  service_->installPackage(path, peerUID_, true, reply);
}

void PeerScopedHelper::installUnverifiedPackage(const std::string& path,
                                                const Reply<bool, std::string, OptionalError>& reply) {
  service_->installPackage(path, peerUID_, false, reply);
}

void PeerScopedHelper::installApplication(const std::string& path,
                                          const Reply<bool, std::string, OptionalError>& reply) {
  service_->installApplication(path, peerUID_, reply);
}

void PeerScopedHelper::manageLocalAccount(
    const Data& operation,
    const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) {
  service_->manageLocalAccount(operation, reply);
}

void PeerScopedHelper::applyCompanyAdmin(const Data& configuration,
                                         const Reply<std::optional<Data>, OptionalError>& reply) {
  service_->applyCompanyAdmin(configuration, reply);
}

void PeerScopedHelper::companyAdminPassword(
    const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) {
  service_->companyAdminPassword(reply);
}

}  // namespace molvane
