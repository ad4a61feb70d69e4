#include "HelperKit/Accounts/LocalAccountRunner.hpp"

#include <cstdint>
#include <utility>

#include "Base/Text.hpp"
#include "Core/AccountDirectory.hpp"
#include "Core/LocalAccountPolicy.hpp"
#include "HelperKit/Maintenance/MaintenanceRunner.hpp"
#include "Platform/Log.hpp"
#include "Platform/SecureRandom.hpp"
#include "Platform/Users.hpp"

namespace molvane::LocalAccountRunner {
namespace {

constexpr std::int64_t kStepTimeout = 120;  // seconds

// Without what can be taken for something else: i, l, o, I, O, 0, 1.
constexpr std::string_view kPasswordAlphabet = "abcdefghjkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";

MaintenanceRunner::Execution listing(const MaintenanceTask::Command& command) {
  try {
    return MaintenanceRunner::execute(command, AccountDirectory::timeout);
  } catch (const std::exception& error) {
    logLine("MolvaneHelper: " + command.executable + ": " + error.what());
    return {};
  }
}

LocalAccountsSnapshot snapshotOf(std::vector<LocalAccount> accounts) {
  LocalAccountsSnapshot found;
  found.accounts = std::move(accounts);
  found.fileVault = listing(AccountDirectory::fileVaultCommand()).status == 0;
  found.loggedIn = consoleUser();
  return found;
}

Step::Answer newPassword(const std::string& password) { return {.prompt = std::nullopt, .reply = password}; }

/// Makes the tool ask for the proof, ahead of what else it asks for.
void addProof(Step& step, const std::optional<AccountAdminProof>& proof) {
  if (!proof) return;
  step.arguments.insert(step.arguments.end(), {"-adminUser", proof->name, "-adminPassword", "-"});
  step.answers.insert(step.answers.begin(),
                      {.prompt = "password for " + proof->name + " ", .reply = proof->password});
}

std::vector<Step> withMustChange(Step step, const std::string& name, bool mustChange) {
  std::vector<Step> steps = {std::move(step)};
  if (mustChange) {
    steps.push_back({"/usr/bin/pwpolicy", {"-u", name, "-setpolicy", "newPasswordRequired=1"}, {}});
  }
  return steps;
}

std::vector<Step> stepsOf(const CreateAccount& change) {
  Step step{"/usr/sbin/sysadminctl",
            {"-addUser", change.name, "-fullName", change.fullName, "-password", "-"},
            {newPassword(change.password)}};
  if (change.admin) step.arguments.emplace_back("-admin");
  addProof(step, change.fileVault);
  return withMustChange(std::move(step), change.name, change.mustChange);
}

std::vector<Step> stepsOf(const ResetAccountPassword& change) {
  Step step{"/usr/sbin/sysadminctl",
            {"-resetPasswordFor", change.name, "-newPassword", "-"},
            {newPassword(change.password)}};
  addProof(step, change.fileVault);
  return withMustChange(std::move(step), change.name, change.mustChange);
}

std::vector<Step> stepsOf(const SetAccountAdmin& change) {
  return {{"/usr/sbin/dseditgroup",
           {"-o", "edit", change.admin ? "-a" : "-d", change.name, "-t", "user", "admin"},
           {}}};
}

std::vector<Step> stepsOf(const SetAccountEnabled& change) {
  return {{"/usr/bin/pwpolicy", {"-u", change.name, change.enabled ? "-enableuser" : "-disableuser"}, {}}};
}

std::vector<Step> stepsOf(const DeleteAccount& change) {
  return {{"/usr/sbin/sysadminctl", {"-deleteUser", change.name, "-keepHome"}, {}}};
}

bool shows(const LocalAccount* account, const CreateAccount& change) {
  return account != nullptr && account->isAdmin == change.admin &&
         (!change.fileVault || account->canUnlockFileVault);
}

bool shows(const LocalAccount* account, const ResetAccountPassword& /*change*/) { return account != nullptr; }

bool shows(const LocalAccount* account, const SetAccountAdmin& change) {
  return account != nullptr && account->isAdmin == change.admin;
}

bool shows(const LocalAccount* account, const SetAccountEnabled& change) {
  return account != nullptr && account->isDisabled != change.enabled;
}

bool shows(const LocalAccount* account, const DeleteAccount& /*change*/) { return account == nullptr; }

std::string descriptionOf(const std::string& log) {
  const auto speaksOfError = [](const std::string& line) {
    return line.find("Error") != std::string::npos || line.find("not permitted") != std::string::npos;
  };
  const std::vector<std::string> all = lines(log);
  if (all.empty()) return "failed";
  for (auto line = all.rbegin(); line != all.rend(); ++line) {
    if (speaksOfError(*line)) return trimmingWhitespace(*line);
  }
  return trimmingWhitespace(all.back());
}

/// What has to be told of a step and does not stand in its output; empty when that is nothing.
std::string remark(const Step& step, const PromptedCommand::Result& result) {
  const std::string tool = "\nError: " + step.executable.substr(step.executable.rfind('/') + 1);
  if (result.timedOut) return tool + " did not end within " + std::to_string(kStepTimeout) + " seconds";
  const bool isHidden = result.saidError && result.output.find("Error:") == std::string::npos;
  return isHidden ? tool + " wrote \"Error:\", maybe within a password" : "";
}

}  // namespace

Failure::Failure(std::string log) : log_(std::move(log)), description_(descriptionOf(log_)) {}

std::optional<std::vector<LocalAccount>> listedAccounts() {
  const auto users = listing(AccountDirectory::usersCommand());
  const auto admins = listing(AccountDirectory::adminsCommand());
  // A list without its administrators would let the last of them go.
  if (users.status != 0 || admins.status != 0) return std::nullopt;
  try {
    return AccountDirectory::completeAccounts(users.output, admins.output);
  } catch (const std::exception& error) {
    logLine("MolvaneHelper: account list: " + std::string(error.what()));
    return std::nullopt;
  }
}

Outcome runAll(const std::vector<Step>& steps, const StepRunner& run) {
  Outcome outcome;
  for (const Step& step : steps) {
    const PromptedCommand::Result result = run(step, kStepTimeout);
    outcome.log += "\n" + result.output;
    outcome.failed = result.failed();
    outcome.abandoned = outcome.failed && result.abandoned;
    outcome.log += remark(step, result);
    if (outcome.failed) break;
  }
  return outcome;
}

LocalAccountsSnapshot snapshot() {
  return snapshotOf(listedAccounts().value_or(std::vector<LocalAccount>()));
}

std::optional<std::string> consoleUser() {
  std::optional<User> user = molvane::consoleUser();
  if (!user) return std::nullopt;
  return std::move(user->name);
}

std::vector<LocalAccount> accounts(std::string_view users, std::string_view admins) {
  return AccountDirectory::accounts(users, admins);
}

std::vector<Step> steps(const LocalAccountOperation& operation) {
  return std::visit([](const auto& change) { return stepsOf(change); }, operation.change);
}

bool achieved(const LocalAccountOperation& operation, const LocalAccountsSnapshot& snapshot) {
  const LocalAccount* account = snapshot.find(operation.name());
  return std::visit([&](const auto& change) { return shows(account, change); }, operation.change);
}

LocalAccountsSnapshot perform(const LocalAccountOperation& operation,
                              const std::optional<std::string>& company) {
  LocalAccountPolicy::check(operation, snapshot(), company);
  const Outcome outcome = runAll(
      steps(operation), [](const Step& step, double timeout) { return PromptedCommand::run(step, timeout); });
  outcome.require();
  std::optional<std::vector<LocalAccount>> listed = listedAccounts();
  if (!listed) throw Failure(outcome.log + "\nError: the accounts could not be read back");
  LocalAccountsSnapshot after = snapshotOf(*std::move(listed));
  if (!achieved(operation, after)) throw Failure(outcome.log);
  return after;
}

std::string generatedPassword(std::int64_t length) {
  if (length < 0) fatalError("a password of negative length");
  std::string password;
  for (const std::uint8_t byte : secureRandomBytes(static_cast<std::size_t>(length))) {
    password += kPasswordAlphabet[byte % kPasswordAlphabet.size()];
  }
  return password;
}

}  // namespace molvane::LocalAccountRunner
