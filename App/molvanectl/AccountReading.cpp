#include "molvanectl/AccountReading.hpp"

#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>

#include "Core/AccountDirectory.hpp"
#include "Platform/ChildProcess.hpp"
#include "Platform/Users.hpp"

namespace molvane::ctl {
namespace {

constexpr std::size_t kLongestAnswer = std::size_t{20} << 20U;

struct Answer {
  int status = -1;
  std::string output;
};

Answer answerOf(const MaintenanceTask::Command& command) {
  const auto cannot = [&](const std::string& why) {
    return std::runtime_error("The accounts cannot be read: " + command.executable + " " + why + ".");
  };
  try {
    ChildProcess tool({command.executable, command.arguments, ChildProcess::StandardInput::null});
    Answer answer;
    const auto keep = [&](std::string_view piece) {
      if (answer.output.size() + piece.size() > kLongestAnswer) throw cannot("says too much");
      answer.output += piece;
    };
    const auto deadline =
        ChildProcess::Clock::now() + std::chrono::duration_cast<ChildProcess::Duration>(
                                         std::chrono::duration<double>(AccountDirectory::timeout));
    if (!tool.pump(deadline, keep) || !tool.drain(deadline, keep)) throw cannot("does not end");
    answer.status = tool.terminationStatus().value_or(-1);
    return answer;
  } catch (const std::system_error& error) {
    throw cannot("cannot be run, " + error.code().message());
  }
}

std::string listing(const MaintenanceTask::Command& command) {
  Answer answer = answerOf(command);
  if (answer.status != 0) {
    throw std::runtime_error("The accounts cannot be read: " + command.executable + " ended with status " +
                             std::to_string(answer.status) + ".");
  }
  return std::move(answer.output);
}

}  // namespace

LocalAccountsSnapshot readAccounts() {
  if (setregid(getgid(), getgid()) != 0) throw std::runtime_error("The program's group cannot be given up.");
  LocalAccountsSnapshot snapshot;
  const std::string users = listing(AccountDirectory::usersCommand());
  auto accounts = AccountDirectory::completeAccounts(users, listing(AccountDirectory::adminsCommand()));
  if (!accounts) throw std::runtime_error("The accounts cannot be read: their list is not understood.");
  snapshot.accounts = *std::move(accounts);
  snapshot.fileVault = answerOf(AccountDirectory::fileVaultCommand()).status == 0;
  if (const std::optional<User> user = consoleUser()) snapshot.loggedIn = user->name;
  return snapshot;
}

}  // namespace molvane::ctl
