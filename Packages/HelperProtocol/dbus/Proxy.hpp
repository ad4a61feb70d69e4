#pragma once

#include <memory>
#include <string>

#include "HelperProtocol/Connection.hpp"
#include "HelperProtocol/HelperXPCProtocol.hpp"
#include "HelperProtocol/dbus/Method.hpp"

namespace molvane::dbus {

class Channel;

/// The helper at the other end of a Unix socket, as the object that it exports.
///
/// Each method sends one call and waits for its answer, for as long as the helper takes: a maintenance task
/// may take an hour. It then calls the reply, on the calling thread. Texts that the wire cannot carry arrive
/// repaired (wireText). A call of more than kMaxRequestSize is not sent; it fails with EMSGSIZE of the POSIX
/// domain.
///
/// A method throws ConnectionError when the connection is lost before the answer has come, or the answer is
/// none; every call after that throws it as well. Where the reply has no place for an error, it throws
/// RemoteError.
///
/// One thread at a time may use it.
class Proxy final : public MolvaneHelperXPCProtocol {
 public:
  /// Connects to the helper that listens at `socketPath`. Throws ConnectionError when nobody does, when the
  /// helper does not let this process in, or when it takes longer than ten seconds. Nested in it is the
  /// std::system_error of the connecting, where it is that that failed.
  explicit Proxy(const std::string& socketPath);
  ~Proxy() override;

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
  std::unique_ptr<Channel> channel_;
};

}  // namespace molvane::dbus
