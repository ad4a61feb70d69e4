#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "HelperKit/Service/HelperService.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"

namespace molvane {

/// What one connection exports: the shared service, bound to the user identifier that the kernel gave for the
/// peer when it was accepted. The only place where the caller's identity lives.
class PeerScopedHelper final : public MolvaneHelperXPCProtocol {
 public:
  PeerScopedHelper(std::shared_ptr<HelperService> service, std::uint32_t peerUID)
      : service_(std::move(service)), peerUID_(peerUID) {}

  [[nodiscard]] std::uint32_t peerUID() const { return peerUID_; }

  void ping(const Reply<std::string>& reply) override;
  void removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) override;
  void sizeOfAllowedDirectory(const std::string& path,
                              const Reply<std::int64_t, OptionalError>& reply) override;
  void runMaintenanceTask(const std::string& taskID,
                          const Reply<bool, std::string, OptionalError>& reply) override;
  void startDeviceJob(const Data& spec,
                      const Reply<std::optional<std::string>, OptionalError>& reply) override;
  void deviceJobStatus(const std::string& jobID,
                       const Reply<std::optional<Data>, OptionalError>& reply) override;
  void cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) override;
  void removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) override;
  void installPackage(const std::string& path, const Reply<bool, std::string, OptionalError>& reply) override;
  void installUnverifiedPackage(const std::string& path,
                                const Reply<bool, std::string, OptionalError>& reply) override;
  void installApplication(const std::string& path,
                          const Reply<bool, std::string, OptionalError>& reply) override;
  void manageLocalAccount(
      const Data& operation,
      const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) override;
  void applyCompanyAdmin(const Data& configuration,
                         const Reply<std::optional<Data>, OptionalError>& reply) override;
  void companyAdminPassword(
      const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) override;

 private:
  const std::shared_ptr<HelperService> service_;
  const std::uint32_t peerUID_;
};

}  // namespace molvane
