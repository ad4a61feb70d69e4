#pragma once

#include <string>
#include <string_view>

#include "HelperProtocol/DeviceJobSpec.hpp"
#include "molvanectl/Command.hpp"
#include "molvanectl/DeviceJobWords.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {

inline constexpr std::string_view kDiskHelp = "Name of the whole disk, for example disk4.";

/// "disk4", also of "/dev/disk4" and "/dev/rdisk4".
[[nodiscard]] std::string diskName(const std::string& disk);

/// The helper's answer to the request for a job.
struct DeviceJobStart {
  std::string jobID;  ///< empty where the job was refused
  NSError error;      ///< why it was
};
[[nodiscard]] DeviceJobStart startDeviceJob(Session& session, const DeviceJobSpec& spec);

/// A command that starts a job and follows it.
class JobStartCommand : public Command {
 public:
  void declare(OptionSet& options) override;
  ExitStatus run(Session& session) final;

 protected:
  /// Throws UsageError.
  [[nodiscard]] virtual DeviceJobSpec spec() const = 0;
  [[nodiscard]] virtual DeviceJobWords words() const = 0;

  /// Asks the questions that come before the job. Returns whether it may start; if not, that has been
  /// reported. Throws UsageError where nobody can be asked.
  [[nodiscard]] virtual bool mayStart(Session& /*session*/) const { return true; }

 private:
  void announce(const std::string& jobID, Output& output) const;

  bool detach_ = false;
};

}  // namespace molvane::ctl
