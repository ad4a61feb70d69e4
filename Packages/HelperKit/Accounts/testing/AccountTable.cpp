#include "HelperKit/Accounts/testing/AccountTable.hpp"

#include <algorithm>
#include <stdexcept>

namespace molvane::testing {

using LocalAccountRunner::Step;

CompanyAdminKeeper::Machine AccountTable::machine() {
  return {.accounts =
              [this] {
                std::optional<std::vector<LocalAccount>> list;
                if (!listing) return list;
                list.emplace();
                for (const auto& [name, account] : accounts) {
                  list->push_back({name, account.fullName, 501, account.isAdmin, false, account.isDisabled,
                                   account.isHidden});
                }
                return list;
              },
          .knowsUser = [this](const std::string& name) { return accounts.contains(name); },
          .run = [this](const Step& step, double) { return run(step); },
          .generatedPassword =
              [this](std::int64_t length) {
                std::string password = "generated-" + std::to_string(++generated_);
                password.resize(static_cast<std::size_t>(length), '.');
                return password;
              }};
}

PromptedCommand::Result AccountTable::run(const Step& step) {
  std::string call = step.executable.substr(step.executable.rfind('/') + 1);
  for (const std::string& argument : step.arguments) call += " " + argument;
  for (const Step::Answer& answer : step.answers) {
    if (call.find(answer.reply) != std::string::npos) throw std::logic_error("a secret stands in " + call);
  }
  if (call.find("-authonly") == std::string::npos) calls.push_back(call);
  if (moment) moment("before " + call);
  const std::optional<Fault> broken = fault ? fault(call) : std::nullopt;
  const bool done = broken && !broken->takesEffect ? false : act(step);
  if (moment) moment("after " + call);
  if (broken) {
    PromptedCommand::Result result = broken->result;
    result.saidError = result.output.find("Error:") != std::string::npos;
    return result;
  }
  if (done) return {.status = 0, .output = ""};
  const auto asked = accounts.find(step.arguments.back());
  const bool disabled = asked != accounts.end() && asked->second.isDisabled;
  return {.status = 1, .output = disabled ? "eDSAuthAccountDisabled" : "refused (eDSAuthFailed)"};
}

bool AccountTable::act(const Step& step) {
  const std::vector<std::string>& arguments = step.arguments;
  const auto has = [&](const char* argument) {
    return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
  };
  if (has("-addUser")) {
    const Account made{
        .fullName = arguments.at(3), .password = step.answers.at(0).reply, .isAdmin = has("-admin")};
    return accounts.emplace(arguments.at(1), made).second;
  }
  std::string name = arguments.at(has("-o") ? 3 : has("-create") || has("-authonly") ? 2 : 1);
  name = name.substr(name.rfind('/') + 1);
  const auto found = accounts.find(name);
  if (found == accounts.end()) return false;
  Account& account = found->second;
  if (has("-resetPasswordFor")) {
    account.password = step.answers.at(0).reply;
  } else if (has("-authonly")) {
    return account.password == step.answers.at(0).reply && !account.isDisabled;
  } else if (has("IsHidden")) {
    account.isHidden = true;
  } else if (has("-enableuser") || has("-disableuser")) {
    account.isDisabled = has("-disableuser");
  } else if (has("-o")) {
    account.isAdmin = has("-a");
  } else {
    throw std::logic_error("a call that no account tool knows: " + step.executable);
  }
  return true;
}

}  // namespace molvane::testing
