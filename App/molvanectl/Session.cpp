#include "molvanectl/Session.hpp"

#include <utility>

#include "molvanectl/Command.hpp"

namespace molvane::ctl {

Session::Session(Output& output, Person& person, ConnectionFactory connect, std::string socketPath)
    : output_(output), person_(person), connect_(std::move(connect)), socketPath_(std::move(socketPath)) {}

MolvaneHelperXPCProtocol& Session::helper() {
  if (helper_ == nullptr) helper_ = connect_(socketPath_);
  return *helper_;
}

void Session::reconnect() {
  helper_.reset();
  helper();
}

NSError refusal(const OptionalError& error) {
  if (error) return *error;
  return {std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
          "The helper said no and gave no reason."};
}

}  // namespace molvane::ctl
