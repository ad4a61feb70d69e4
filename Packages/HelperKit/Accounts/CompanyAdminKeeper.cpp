#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "Base/Characters.hpp"
#include "Base/NSError.hpp"
#include "Core/LocalAccountPolicy.hpp"
#include "HelperKit/Accounts/LocalAccountRunner.hpp"
#include "Platform/Log.hpp"
#include "Platform/Users.hpp"

namespace molvane {

namespace {

using LocalAccountRunner::Failure;
using LocalAccountRunner::Step;
using LocalAccountRunner::steps;

constexpr std::int64_t kPasswordLength = 20;
constexpr double kStepTimeout = 120;    // seconds
constexpr double kDisableTimeout = 60;  // seconds
constexpr double kSecondsPerDay = 86400;

Step disableStep(const std::string& name) { return {"/usr/bin/pwpolicy", {"-u", name, "-disableuser"}, {}}; }

Step hideStep(const std::string& name) {
  return {"/usr/bin/dscl", {".", "-create", "/Users/" + name, "IsHidden", "1"}, {}};
}

/// Asks the directory whether the password is the account's. Typed at its prompt like every other.
Step authenticateStep(const CompanyAdminState& state) {
  return {"/usr/bin/dscl", {".", "-authonly", state.name}, {{std::nullopt, state.password}}};
}

std::vector<Step> resetSteps(const CompanyAdminState& state) {
  return steps({ResetAccountPassword{state.name, state.password, false, std::nullopt}});
}

bool failed(const PromptedCommand::Result& result) { return result.failed(); }

bool isDue(const CompanyAdminState& state, const CompanyAdminConfig& config, Date now) {
  const auto days = static_cast<double>(std::max<std::int64_t>(1, config.rotationDays));
  const double age = now.secondsSinceReference - state.rotatedAt.secondsSinceReference;
  return !(age < days * kSecondsPerDay);
}

/// Call it only inside a catch block.
std::string descriptionOfCurrentException() {
  try {
    throw;
  } catch (const std::system_error& error) {
    return posixErrorDescription(error.code().value());
  } catch (const std::exception& error) {
    return error.what();
  }
}

}  // namespace

/// What the files say.
struct CompanyAdminKeeper::Record {
  std::optional<State> state;
  std::optional<State> pending;     ///< differs from the state
  bool pendingNotBelieved = false;  ///< a password was being set, and which one cannot be told

  [[nodiscard]] std::optional<std::string> name() const {
    if (state) return state->name;
    if (pending) return pending->name;
    return std::nullopt;
  }
};

/// How a list of steps ended.
struct CompanyAdminKeeper::Outcome {
  std::optional<Failure> failure;
  bool abandoned = false;  ///< the tool that failed may be at work yet

  void require() const {
    if (failure) throw Failure(*failure);
  }
};

CompanyAdminKeeper::Machine CompanyAdminKeeper::thisMachine() {
  return {.snapshot = LocalAccountRunner::snapshot,
          .knowsUser = [](const std::string& name) { return userNamed(name).has_value(); },
          .run = [](const Step& step, double timeout) { return PromptedCommand::run(step, timeout); },
          .generatedPassword = LocalAccountRunner::generatedPassword};
}

CompanyAdminKeeper::CompanyAdminKeeper(std::string folder, Machine machine)
    : machine_(std::move(machine)), files_(std::move(folder)) {}

CompanyAdminKeeper::Record CompanyAdminKeeper::load() const {
  using Trust = CompanyAdminFiles::Trust;
  Record record;
  if (CompanyAdminFiles::Found found = files_.state(); found.trust == Trust::believed) {
    record.state = std::move(found.state);
  }
  CompanyAdminFiles::Found found = files_.pending();
  record.pendingNotBelieved = found.trust == Trust::notBelieved;
  if (found.trust != Trust::believed) return record;
  // Of another account, or settled but for its removal, it has no meaning any more.
  const bool counts = !record.state || (record.state->name == found.state.name &&
                                        record.state->password != found.state.password);
  if (counts) record.pending = std::move(found.state);
  return record;
}

CompanyAdminStatus CompanyAdminKeeper::apply(const CompanyAdminConfig& config, Date now) {
  const MutexLock lock(lock_);
  std::optional<std::string> problem;
  try {
    problem = bringInLine(config, now);
  } catch (...) {
    problem = descriptionOfCurrentException();
  }
  return status(config, std::move(problem));
}

std::optional<std::string> CompanyAdminKeeper::bringInLine(const CompanyAdminConfig& config, Date now) {
  files_.clearUp();
  Record record = load();
  if (record.name() && !canonicallyEqual(*record.name(), config.name)) {
    machine_.run(disableStep(*record.name()), kDisableTimeout);
    files_.removePending();
    files_.removeState();
    record = {};
  }
  if (!config.enabled) {
    if (record.name()) machine_.run(disableStep(*record.name()), kDisableTimeout);
    return std::nullopt;
  }
  if (!LocalAccountPolicy::isValidName(config.name)) {
    return std::string(LocalAccountFailure(LocalAccountFailure::invalidName).rawValue());
  }
  const LocalAccountsSnapshot accounts = machine_.snapshot();
  const LocalAccount* const account = accounts.find(config.name);
  // A listing that failed shows no accounts, and system accounts are never listed.
  const bool there = account != nullptr || machine_.knowsUser(config.name);
  if (there && !record.name())
    return std::string(LocalAccountFailure(LocalAccountFailure::exists).rawValue());
  if (there && account == nullptr) return "The account " + config.name + " is there but is not listed.";
  if (account == nullptr) {
    create(config, now);
    return std::nullopt;
  }
  if (account->isDisabled) setEnabled(config.name, true);
  if (record.pending) {
    settle(record, *account);
    record = load();
  }
  if (record.state && (record.pendingNotBelieved || isDue(*record.state, config, now)))
    rotate(*record.state, now);
  return std::nullopt;
}

CompanyAdminStatus CompanyAdminKeeper::status(const CompanyAdminConfig& config,
                                              std::optional<std::string> problem) const {
  CompanyAdminStatus result{config, false, std::nullopt, std::move(problem)};
  const LocalAccountsSnapshot accounts = machine_.snapshot();
  const std::optional<State> state = load().state;
  if (!state || !canonicallyEqual(state->name, config.name)) return result;
  const LocalAccount* const account = accounts.find(config.name);
  result.active = account != nullptr && !account->isDisabled;
  result.rotatedAt = state->rotatedAt;
  return result;
}

void CompanyAdminKeeper::create(const CompanyAdminConfig& config, Date now) {
  const State next{config.name, machine_.generatedPassword(kPasswordLength), now};
  files_.savePending(next);
  const Outcome outcome =
      runAll(steps({CreateAccount{next.name, config.fullName, next.password, true, false, std::nullopt}}));
  // A tool that gave up may have found an account that somebody else has made meanwhile. One whose password
  // this is, is the keeper's, and is finished the next time.
  if (outcome.failure && !outcome.abandoned && !works(next)) files_.removePending();
  outcome.require();
  // Whatever keeps it from being hidden may keep the directory from being asked, too. The account is made.
  runAll({hideStep(next.name)}).require();
  commit(next);
}

void CompanyAdminKeeper::rotate(const State& current, Date now) {
  const State next{current.name, machine_.generatedPassword(kPasswordLength), now};
  files_.savePending(next);
  const Outcome outcome = runAll(resetSteps(next));
  if (outcome.failure && !outcome.abandoned) {
    if (works(next)) {
      commit(next);
    } else if (works(current)) {
      // Only this proves that the new one is not in force: the directory may give no answer at all.
      files_.removePending();
    }
  }
  outcome.require();
  commit(next);
}

/// Brings a password that is pending into force.
void CompanyAdminKeeper::settle(const Record& record, const LocalAccount& account) {
  const Outcome outcome = runAll(resetSteps(*record.pending));
  if (outcome.failure && !works(*record.pending)) outcome.require();
  if (!record.state) finishCreation(account);
  commit(*record.pending);
}

/// What was still to be done when the creation was cut short.
void CompanyAdminKeeper::finishCreation(const LocalAccount& account) {
  if (!account.isAdmin) runAll(steps({SetAccountAdmin{account.name, true}})).require();
  if (!account.isHidden) runAll({hideStep(account.name)}).require();
}

void CompanyAdminKeeper::commit(const State& state) {
  files_.saveState(state);
  files_.removePending();
}

void CompanyAdminKeeper::setEnabled(const std::string& name, bool enabled) {
  runAll(steps({SetAccountEnabled{name, enabled}})).require();
}

bool CompanyAdminKeeper::works(const State& state) const {
  return !failed(machine_.run(authenticateStep(state), kStepTimeout));
}

CompanyAdminKeeper::Outcome CompanyAdminKeeper::runAll(const std::vector<Step>& toDo) const {
  std::string log;
  for (const Step& step : toDo) {
    const PromptedCommand::Result result = machine_.run(step, kStepTimeout);
    log += "\n" + result.output;
    if (failed(result)) return {.failure = Failure(log), .abandoned = result.abandoned};
  }
  return {};
}

std::optional<CompanyAdminKeeper::Credentials> CompanyAdminKeeper::password() {
  const MutexLock lock(lock_);
  const Record record = load();
  if (!record.pending) {
    if (!record.state) return std::nullopt;
    if (record.pendingNotBelieved && !works(*record.state)) {
      throw PasswordUnknown("setting it was cut short.");
    }
    return Credentials{record.state->name, record.state->password};
  }
  const LocalAccountsSnapshot accounts = machine_.snapshot();
  if (const LocalAccount* const account = accounts.find(record.pending->name))
    return settled(record, *account);
  if (record.state) throw PasswordUnknown("there is no account " + record.state->name + ".");
  return std::nullopt;
}

CompanyAdminKeeper::Credentials CompanyAdminKeeper::settled(const Record& record,
                                                            const LocalAccount& account) {
  const Outcome outcome = runAll(resetSteps(*record.pending));
  if (outcome.failure && !works(*record.pending)) {
    if (record.state && works(*record.state)) return {record.state->name, record.state->password};
    throw PasswordUnknown(outcome.failure->errorDescription());
  }
  // It works, whatever becomes of the rest; what is not done now stays pending.
  try {
    if (!record.state) finishCreation(account);
    commit(*record.pending);
  } catch (...) {
    logLine("MolvaneHelper: company administrator: " + descriptionOfCurrentException());
  }
  return {record.pending->name, record.pending->password};
}

std::optional<std::string> CompanyAdminKeeper::managedName() {
  const MutexLock lock(lock_);
  return load().name();
}

}  // namespace molvane
