#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"

namespace molvane::testing {

/// A machine with nothing but accounts, whose tools can be told to fail. One thread at a time.
class AccountTable {
 public:
  struct Account {
    std::string fullName;
    std::string password;
    bool isAdmin = false;
    bool isHidden = false;
    bool isDisabled = false;
  };

  /// What becomes of a call instead of its usual end.
  struct Fault {
    bool takesEffect = false;
    PromptedCommand::Result result;
  };

  std::map<std::string, Account> accounts;
  bool listing = true;             ///< false: the directory does not list them
  std::vector<std::string> calls;  ///< "TOOL ARGUMENT...", without those that only ask

  /// Decides about a call, in the form of `calls`.
  std::function<std::optional<Fault>(const std::string& call)> fault;
  /// Is told of each call: "before CALL", "after CALL".
  std::function<void(const std::string& moment)> moment;

  /// The machine as the keeper sees it. Refers to this object.
  CompanyAdminKeeper::Machine machine();

 private:
  PromptedCommand::Result run(const LocalAccountRunner::Step& step);
  /// False when the tool refuses.
  bool act(const LocalAccountRunner::Step& step);

  int generated_ = 0;
};

}  // namespace molvane::testing
