#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Base/NSError.hpp"
#include "HelperProtocol/Document.hpp"

namespace molvane {

/// What a method answers with. It is called exactly once, on the calling thread, before the method returns.
template <typename... Values>
using Reply = std::function<void(Values...)>;

using OptionalError = std::optional<NSError>;

/// Everything that the helper does for its client: 14 methods, each answering through its reply.
///
/// The service behind the connection implements it, and so does the client's proxy for the connection, so
/// whoever calls through this interface cannot tell them apart. On failure the reply carries the failure
/// value of its shape (false, -1, nothing) and an error; on success the value and no error.
///
/// Implementations that cross a connection throw ConnectionError (HelperProtocol/Connection.hpp) instead of
/// replying when the connection is lost before the answer has come; nothing is known then about what the
/// helper did. They throw RemoteError when an error came for a reply that has no place for one.
class MolvaneHelperXPCProtocol {
 public:
  virtual ~MolvaneHelperXPCProtocol() = default;

  /// Answers "pong".
  virtual void ping(const Reply<std::string>& reply) = 0;

  /// Removes an item below one of the allowed roots, permanently.
  virtual void removeAllowedItem(const std::string& path, const Reply<bool, OptionalError>& reply) = 0;

  /// Logical size in bytes of the regular files below a path under the allowed roots; -1 on failure.
  virtual void sizeOfAllowedDirectory(const std::string& path,
                                      const Reply<std::int64_t, OptionalError>& reply) = 0;

  /// Runs a task of the maintenance catalogue; answers whether it succeeded and its transcript. A task that
  /// failed is no error.
  virtual void runMaintenanceTask(const std::string& taskID,
                                  const Reply<bool, std::string, OptionalError>& reply) = 0;

  /// Starts a device job described by a JSON document; answers the job's identifier.
  virtual void startDeviceJob(const Data& spec,
                              const Reply<std::optional<std::string>, OptionalError>& reply) = 0;

  /// The JSON status of a device job.
  virtual void deviceJobStatus(const std::string& jobID,
                               const Reply<std::optional<Data>, OptionalError>& reply) = 0;

  /// Asks a device job to stop; false when there is no such job or it has ended.
  virtual void cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) = 0;

  /// Removes an application bundle from an applications folder.
  virtual void removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) = 0;

  /// Installs a package from the caller's company inbox after its signature was assessed.
  virtual void installPackage(const std::string& path,
                              const Reply<bool, std::string, OptionalError>& reply) = 0;

  /// Installs a package from the caller's company inbox without the assessment.
  virtual void installUnverifiedPackage(const std::string& path,
                                        const Reply<bool, std::string, OptionalError>& reply) = 0;

  /// Installs an application from the caller's company inbox.
  virtual void installApplication(const std::string& path,
                                  const Reply<bool, std::string, OptionalError>& reply) = 0;

  /// Carries out a JSON account operation; answers the new snapshot, or a refusal text. The error is kept for
  /// malformed requests.
  virtual void manageLocalAccount(
      const Data& operation,
      const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) = 0;

  /// Brings the company administrator in line with a JSON configuration; answers its JSON status.
  virtual void applyCompanyAdmin(const Data& configuration,
                                 const Reply<std::optional<Data>, OptionalError>& reply) = 0;

  /// Short name and current password of the company administrator, or neither.
  virtual void companyAdminPassword(
      const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) = 0;
};

}  // namespace molvane
