#include "HelperKit/Accounts/CompanyAdminTools.hpp"

#include <algorithm>
#include <utility>

#include "Base/Characters.hpp"
#include "Base/Text.hpp"
#include "Platform/Users.hpp"

namespace molvane {

namespace {

using LocalAccountRunner::Failure;
using LocalAccountRunner::Outcome;
using LocalAccountRunner::Step;
using LocalAccountRunner::steps;

constexpr std::int64_t kPasswordLength = 20;
constexpr double kDisableTimeout = 60;  // seconds

Step hideStep(const std::string& name) {
  return {"/usr/bin/dscl", {".", "-create", "/Users/" + name, "IsHidden", "1"}, {}};
}

/// Asks the directory whether the password is the account's. Typed at its prompt like every other.
Step authenticateStep(const CompanyAdminState& state) {
  return {"/usr/bin/dscl", {".", "-authonly", state.name}, {{std::nullopt, state.password}}};
}

bool isRefusal(const std::string& words) {
  return words.find("eDSAuthFailed") != std::string::npos ||
         words.find("eDSRecordNotFound") != std::string::npos;
}

bool isSilent(const std::string& log) { return trimmingWhitespaceAndNewlines(log).empty(); }

std::string sentenceOf(const std::string& log) { return Failure(log).errorDescription(); }

}  // namespace

CompanyAdminTools::Machine CompanyAdminTools::thisMachine() {
  return {.accounts = LocalAccountRunner::listedAccounts,
          .knowsUser = [](const std::string& name) { return userNamed(name).has_value(); },
          .run = [](const Step& step, double timeout) { return PromptedCommand::run(step, timeout); },
          .generatedPassword = LocalAccountRunner::generatedPassword};
}

std::string CompanyAdminTools::Sighting::obstacle(const std::string& name) const {
  switch (presence) {
    case Presence::listed:
      return "";
    case Presence::unlisted:
      return "The account " + name + " is there but is not listed.";
    case Presence::absent:
      return "There is no account " + name + ".";
    case Presence::unknown:
      return "The list of accounts cannot be read.";
  }
  return "";
}

CompanyAdminTools::Sighting CompanyAdminTools::look(const std::string& name) const {
  const std::optional<std::vector<LocalAccount>> listed = machine_.accounts();
  if (listed) {
    const auto found = std::find_if(listed->begin(), listed->end(), [&](const LocalAccount& account) {
      return canonicallyEqual(account.name, name);
    });
    if (found != listed->end()) return {Presence::listed, *found};
  }
  if (machine_.knowsUser(name)) return {Presence::unlisted, {}};
  return {listed ? Presence::absent : Presence::unknown, {}};
}

std::string CompanyAdminTools::Answer::problem() const {
  const std::string sentence = "The directory does not confirm the password";
  return isSilent(words) ? sentence + "." : sentence + ": " + sentenceOf(words);
}

CompanyAdminTools::Answer CompanyAdminTools::ask(const CompanyAdminState& state) const {
  const Outcome outcome = LocalAccountRunner::runAll({authenticateStep(state)}, machine_.run);
  if (!outcome.failed) return {Verdict::opens, ""};
  return {isRefusal(outcome.log) ? Verdict::refused : Verdict::noAnswer, outcome.log};
}

bool CompanyAdminTools::Setting::toolIsSilent() const { return isSilent(tool.log); }

std::string CompanyAdminTools::Setting::problem() const {
  if (tool.failed) return sentenceOf(tool.log);
  if (directory.verdict == Verdict::refused && !toolIsSilent()) return sentenceOf(tool.log);
  return directory.problem();
}

CompanyAdminTools::Setting CompanyAdminTools::set(const CompanyAdminState& state,
                                                  const std::vector<Step>& steps) const {
  Outcome tool = LocalAccountRunner::runAll(steps, machine_.run);
  return {std::move(tool), ask(state)};
}

CompanyAdminTools::Setting CompanyAdminTools::create(const CompanyAdminState& state,
                                                     const std::string& fullName) const {
  std::vector<Step> all =
      steps({CreateAccount{state.name, fullName, state.password, true, false, std::nullopt}});
  all.push_back(hideStep(state.name));
  return set(state, all);
}

CompanyAdminTools::Setting CompanyAdminTools::reset(const CompanyAdminState& state) const {
  return set(state, steps({ResetAccountPassword{state.name, state.password, false, std::nullopt}}));
}

Outcome CompanyAdminTools::finish(const LocalAccount& account) const {
  std::vector<Step> missing;
  if (!account.isAdmin) missing = steps({SetAccountAdmin{account.name, true}});
  if (!account.isHidden) missing.push_back(hideStep(account.name));
  return LocalAccountRunner::runAll(missing, machine_.run);
}

Outcome CompanyAdminTools::enable(const std::string& name) const {
  return LocalAccountRunner::runAll(steps({SetAccountEnabled{name, true}}), machine_.run);
}

void CompanyAdminTools::disable(const std::string& name) const {
  // Whatever becomes of it: an account that is let go or switched off is not worked on any further.
  machine_.run({"/usr/bin/pwpolicy", {"-u", name, "-disableuser"}, {}}, kDisableTimeout);
}

std::string CompanyAdminTools::newPassword() const { return machine_.generatedPassword(kPasswordLength); }

}  // namespace molvane
