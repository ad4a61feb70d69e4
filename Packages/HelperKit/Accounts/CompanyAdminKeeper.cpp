#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "Base/Characters.hpp"
#include "Base/NSError.hpp"
#include "Core/LocalAccountPolicy.hpp"

namespace molvane {

namespace {

using Presence = CompanyAdminTools::Presence;
using Verdict = CompanyAdminTools::Verdict;

constexpr double kSecondsPerDay = 86400;

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

[[noreturn]] void fail(const std::string& sentence) { throw std::runtime_error(sentence); }

std::string doubt(const CompanyAdminState& state) {
  return "Others could change the record of the account " + state.name;
}

/// What an account that the directory shows lacks of being active, as a sentence; empty when that is nothing.
std::string shortcoming(const LocalAccount& account) {
  const std::string subject = "The account " + account.name + " is ";
  if (account.isDisabled) return subject + "disabled.";
  if (!account.isAdmin) return subject + "not an administrator.";
  if (!account.isHidden) return subject + "not hidden.";
  return "";
}

}  // namespace

/// What the files say.
struct CompanyAdminKeeper::Record {
  std::optional<State> state;
  std::optional<State> pending;     ///< differs from the state
  std::optional<State> doubted;     ///< others could have written it; only where there is no state
  bool pendingNotBelieved = false;  ///< a password was being set, and which one cannot be told

  [[nodiscard]] std::optional<std::string> name() const {
    if (state) return state->name;
    if (pending) return pending->name;
    return std::nullopt;
  }
};

CompanyAdminKeeper::CompanyAdminKeeper(std::string folder, Machine machine)
    : tools_(std::move(machine)), files_(std::move(folder)) {}

CompanyAdminKeeper::Record CompanyAdminKeeper::load() const {
  using Trust = CompanyAdminFiles::Trust;
  Record record;
  CompanyAdminFiles::Found state = files_.state();
  if (state.trust == Trust::believed) record.state = std::move(state.state);
  if (state.trust == Trust::doubted) record.doubted = std::move(state.state);
  CompanyAdminFiles::Found found = files_.pending();
  record.pendingNotBelieved = found.trust == Trust::notBelieved || found.trust == Trust::doubted;
  if (found.trust == Trust::doubted && !record.state && !record.doubted) record.doubted = found.state;
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

/// What others could have written is believed when the directory confirms the password, but for a date that
/// has not come. What the directory refuses stays in doubt. Throws where it gives no answer, since an account
/// may hang on that.
void CompanyAdminKeeper::askAboutDoubted(Date now) {
  using Found = CompanyAdminFiles::Found;
  const auto confirmed = [&](Found& found) {
    if (found.trust != CompanyAdminFiles::Trust::doubted) return false;
    const CompanyAdminTools::Answer answer = tools_.ask(found.state);
    if (answer.verdict == Verdict::noAnswer) fail(doubt(found.state) + ". " + answer.problem());
    Date& date = found.state.rotatedAt;
    date.secondsSinceReference = std::min(date.secondsSinceReference, now.secondsSinceReference);
    return answer.opens();
  };
  if (Found found = files_.state(); confirmed(found)) files_.saveState(found.state);
  if (Found found = files_.pending(); confirmed(found)) files_.savePending(found.state);
}

std::optional<std::string> CompanyAdminKeeper::bringInLine(const CompanyAdminConfig& config, Date now) {
  files_.clearUp();
  askAboutDoubted(now);
  Record record = load();
  if (record.name() && !canonicallyEqual(*record.name(), config.name)) {
    tools_.disable(*record.name());
    files_.removePending();
    files_.removeState();
    record = {};
  }
  if (!config.enabled) {
    if (record.name()) tools_.disable(*record.name());
    return std::nullopt;
  }
  if (!LocalAccountPolicy::isValidName(config.name)) {
    return std::string(LocalAccountFailure(LocalAccountFailure::invalidName).rawValue());
  }
  const CompanyAdminTools::Sighting sighting = tools_.look(config.name);
  const bool there = sighting.presence == Presence::listed || sighting.presence == Presence::unlisted;
  if (there && !record.name()) {
    if (record.doubted) return doubt(*record.doubted) + ", and its password does not open it.";
    return std::string(LocalAccountFailure(LocalAccountFailure::exists).rawValue());
  }
  switch (sighting.presence) {
    case Presence::listed:
      return keep(config, record, sighting.account, now);
    case Presence::absent:
      create(config, record, now);
      return std::nullopt;
    case Presence::unlisted:
    case Presence::unknown:
      break;
  }
  return sighting.obstacle(config.name);
}

CompanyAdminStatus CompanyAdminKeeper::status(const CompanyAdminConfig& config,
                                              std::optional<std::string> problem) const {
  CompanyAdminStatus result{config, false, std::nullopt, std::move(problem)};
  const std::optional<State> state = load().state;
  if (!state || !canonicallyEqual(state->name, config.name)) return result;
  result.rotatedAt = state->rotatedAt;
  const CompanyAdminTools::Sighting sighting = tools_.look(config.name);
  const bool listed = sighting.presence == Presence::listed;
  const std::string lacks = listed ? shortcoming(sighting.account) : sighting.obstacle(config.name);
  result.active = lacks.empty();
  if (config.enabled && !result.active && !result.problem) result.problem = lacks;
  return result;
}

void CompanyAdminKeeper::create(const CompanyAdminConfig& config, const Record& record, Date now) {
  // The tool of a helper that was killed may be at work yet, and make the account with the pending password.
  const bool again = record.pending.has_value();
  const State next{config.name, again ? record.pending->password : tools_.newPassword(), now};
  files_.savePending(next);
  const CompanyAdminTools::Setting setting = tools_.create(next, config.fullName);
  if (!setting.tool.failed && setting.directory.opens()) return commit(next);
  if (!again && !setting.tool.abandoned && isNotOurs(next, config.fullName, setting.directory)) {
    files_.removePending();
  }
  fail(setting.problem());
}

/// After a creation whose password does not open the account: whether it certainly made none. One that is
/// there may be half made, or be somebody else's, who would hardly have given it the same full name.
bool CompanyAdminKeeper::isNotOurs(const State& created, const std::string& fullName,
                                   const CompanyAdminTools::Answer& answer) const {
  if (answer.verdict != Verdict::refused) return false;
  const CompanyAdminTools::Sighting sighting = tools_.look(created.name);
  if (sighting.presence != Presence::listed) return sighting.presence == Presence::absent;
  return !canonicallyEqual(sighting.account.fullName, fullName);
}

/// Brings an account of the keeper's own in line.
std::optional<std::string> CompanyAdminKeeper::keep(const CompanyAdminConfig& config, const Record& record,
                                                    const LocalAccount& account, Date now) {
  if (account.isDisabled) tools_.enable(account.name).require();
  std::optional<std::string> problem;
  try {
    keepPassword(config, record, now);
  } catch (...) {
    problem = descriptionOfCurrentException();
  }
  // Neither waits for the other to succeed.
  const LocalAccountRunner::Outcome finishing = tools_.finish(account);
  if (!problem) finishing.require();
  return problem;
}

void CompanyAdminKeeper::keepPassword(const CompanyAdminConfig& config, const Record& record, Date now) {
  State current = record.pending ? *record.pending : *record.state;
  if (record.pending) {
    const CompanyAdminTools::Setting setting = tools_.reset(current);
    if (!setting.directory.opens()) fail(setting.problem());
    // An earlier tool may set it once more, over another one. So its age counts from now.
    current.rotatedAt = now;
    commit(current);
  }
  if (record.pendingNotBelieved || isDue(current, config, now)) return rotate(current, now);
  if (record.pending) return;
  const CompanyAdminTools::Answer answer = tools_.ask(current);
  if (answer.verdict == Verdict::refused) return rotate(current, now);
  if (!answer.opens()) fail(answer.problem());
  files_.removePending();
}

void CompanyAdminKeeper::rotate(const State& current, Date now) {
  const State next{current.name, tools_.newPassword(), now};
  files_.savePending(next);
  const CompanyAdminTools::Setting setting = tools_.reset(next);
  if (setting.directory.opens()) {
    commit(next);
    setting.tool.require();
    return;
  }
  // Only this proves that the new one is not in force: the directory may give no answer at all.
  if (!setting.tool.abandoned && tools_.ask(current).opens()) files_.removePending();
  fail(setting.problem());
}

void CompanyAdminKeeper::commit(const State& state) {
  files_.saveState(state);
  files_.removePending();
}

std::optional<CompanyAdminKeeper::Credentials> CompanyAdminKeeper::password() {
  const MutexLock lock(lock_);
  const Record record = load();
  if (record.pending) return settled(record);
  const std::optional<State>& known = record.state ? record.state : record.doubted;
  if (!known) return std::nullopt;
  if (record.doubted && !tools_.ask(*known).opens()) {
    throw PasswordUnknown(doubt(*known) + ", and the directory does not confirm it.");
  }
  if (record.pendingNotBelieved && !tools_.ask(*known).opens()) {
    throw PasswordUnknown("setting it was cut short.");
  }
  return Credentials{known->name, known->password};
}

/// What is to be handed out while a password is pending; nothing when the account was never made.
std::optional<CompanyAdminKeeper::Credentials> CompanyAdminKeeper::settled(const Record& record) const {
  const State& pending = *record.pending;
  const CompanyAdminTools::Sighting sighting = tools_.look(pending.name);
  if (sighting.presence == Presence::absent && !record.state) return std::nullopt;
  if (sighting.presence != Presence::listed) throw PasswordUnknown(sighting.obstacle(pending.name));
  // Before it is enabled, the directory confirms nothing.
  if (sighting.account.isDisabled) throw PasswordUnknown(shortcoming(sighting.account));
  const CompanyAdminTools::Setting setting = tools_.reset(pending);
  if (!setting.directory.opens()) {
    if (record.state && tools_.ask(*record.state).opens()) {
      return Credentials{record.state->name, record.state->password};
    }
    throw PasswordUnknown(setting.toolIsSilent() ? setting.directory.problem() : setting.problem());
  }
  // It stays pending: another one could be due, and an earlier tool set this one over it.
  return Credentials{pending.name, pending.password};
}

std::optional<std::string> CompanyAdminKeeper::managedName() {
  const MutexLock lock(lock_);
  const Record record = load();
  return record.doubted ? record.doubted->name : record.name();
}

}  // namespace molvane
