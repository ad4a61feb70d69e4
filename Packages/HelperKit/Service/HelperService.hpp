#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Base/Mutex.hpp"
#include "Core/LocalAccounts.hpp"
#include "Core/MaintenanceTask.hpp"
#include "Core/PathAllowlist.hpp"
#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"

namespace molvane {

class DeviceJobRunner;

/// The one service object behind all connections.
///
/// Every protocol method does its work on the calling thread and calls its reply exactly once before it
/// returns; whatever fails becomes the error of that reply. Methods of different connections run side by
/// side, so the service keeps no unguarded state of its own; changes of accounts wait for each other, and
/// the device jobs guard theirs.
///
/// Methods that act for a person take the person's user identifier as `peerUID`. Their protocol forms stand
/// for the helper process itself and are not reached through a connection: a PeerScopedHelper is what gets
/// exported.
class HelperService final : public MolvaneHelperXPCProtocol {
 public:
  HelperService() = delete;
  /// `jobs` and `companyAdmin` must not be null.
  HelperService(PathAllowlist allowlist, std::set<std::string> deniedBasenames,
                std::unique_ptr<DeviceJobRunner> jobs, std::unique_ptr<CompanyAdminKeeper> companyAdmin);
  ~HelperService() override;

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

  void startDeviceJob(const Data& spec, std::uint32_t peerUID,
                      const Reply<std::optional<std::string>, OptionalError>& reply);
  void removeApplication(const std::string& path, std::uint32_t peerUID,
                         const Reply<bool, OptionalError>& reply);
  void installPackage(const std::string& path, std::uint32_t peerUID, bool verified,
                      const Reply<bool, std::string, OptionalError>& reply);
  void installApplication(const std::string& path, std::uint32_t peerUID,
                          const Reply<bool, std::string, OptionalError>& reply);

  /// Removes the item at `path` permanently, a folder with all that it holds, a link itself and never its
  /// target. Throws HelperServiceError (denied, deniedBasename, rootDeletionForbidden, notFound) or the
  /// std::system_error of the removal, after which part of the item may be gone.
  void removeAllowedItem(const std::string& path) const;

  /// Logical size in bytes of the regular files below `path`, or of the file at `path`. A partial sum for
  /// trees of more than 20,000 entries. Throws HelperServiceError (denied, deniedBasename, notFound) or
  /// std::system_error.
  [[nodiscard]] std::int64_t sizeOfAllowedDirectory(const std::string& path) const;

  /// The task of that identifier. Throws HelperServiceError: unknownTask, or taskNotPrivileged for a task
  /// that the app runs itself.
  [[nodiscard]] static MaintenanceTask validateMaintenanceTask(const std::string& taskID);

 private:
  // Both take a standardised path and return the allowed root that holds it.
  [[nodiscard]] std::string validateReadablePath(const std::string& path) const;
  [[nodiscard]] std::string validateMutablePath(const std::string& path) const;

  /// Carries out an operation with no other change of an account at the same time, and returns the accounts
  /// as they are then. Throws as LocalAccountRunner::perform does.
  LocalAccountsSnapshot changeAccount(const LocalAccountOperation& operation);

  const PathAllowlist allowlist_;
  const std::set<std::string> deniedBasenames_;
  const std::unique_ptr<DeviceJobRunner> jobs_;
  /// Held while the tools run: two changes that are each allowed could together take the last administrator
  /// away, and an account that is being created must not be taken for the company administrator's. Taken
  /// before any other lock.
  Mutex accountChanges_;
  const std::unique_ptr<CompanyAdminKeeper> companyAdmin_;
};

}  // namespace molvane
