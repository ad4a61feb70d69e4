#include "molvanectl/Session.hpp"

#include <utility>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

Session::Session(Output& output, Console& console, ConnectionFactory connect, std::string socketPath)
    : output_(output), console_(console), connect_(std::move(connect)), socketPath_(std::move(socketPath)) {}

MolvaneHelperXPCProtocol& Session::helper() {
  if (helper_ == nullptr) helper_ = connect_(socketPath_);
  return *helper_;
}

NSError refusal(const OptionalError& error) {
  if (error) return *error;
  return {std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
          "The helper refused and gave no reason."};
}

}  // namespace molvane::ctl
