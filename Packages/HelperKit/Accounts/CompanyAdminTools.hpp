#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Core/LocalAccounts.hpp"
#include "HelperKit/Accounts/CompanyAdminFiles.hpp"
#include "HelperKit/Accounts/LocalAccountRunner.hpp"

namespace molvane {

/// What the keeper of the company administrator sees of the machine and does to it. No state of its own; any
/// thread may call and is blocked meanwhile. Throws for nothing that a tool does.
class CompanyAdminTools {
 public:
  struct Machine {
    /// All accounts; nothing when the directory does not answer.
    std::function<std::optional<std::vector<LocalAccount>>()> accounts;
    /// Whether the user database has the name, listed or not.
    std::function<bool(const std::string& name)> knowsUser;
    LocalAccountRunner::StepRunner run;
    std::function<std::string(std::int64_t length)> generatedPassword;
  };
  [[nodiscard]] static Machine thisMachine();

  explicit CompanyAdminTools(Machine machine) : machine_(std::move(machine)) {}

  enum class Presence {
    listed,
    unlisted,  ///< the user database knows the name, the list does not show it
    absent,    ///< neither does
    unknown,   ///< the list cannot be read, and the user database does not know the name
  };
  struct Sighting {
    Presence presence = Presence::unknown;
    LocalAccount account;  ///< of a listed one

    /// Why the account cannot be worked on, as a sentence; empty when it is listed.
    [[nodiscard]] std::string obstacle(const std::string& name) const;
  };
  [[nodiscard]] Sighting look(const std::string& name) const;

  /// What the directory says when it is asked whether a password opens the account.
  enum class Verdict { opens, refused, noAnswer };
  struct Answer {
    Verdict verdict = Verdict::noAnswer;
    std::string words;  ///< of the tool that asks; no secret

    [[nodiscard]] bool opens() const { return verdict == Verdict::opens; }
    /// A sentence for an answer that does not confirm the password.
    [[nodiscard]] std::string problem() const;
  };
  /// A disabled account opens with no password, and may give no answer.
  [[nodiscard]] Answer ask(const CompanyAdminState& state) const;

  /// A password that a tool was told to set, and what the directory says then. The tool's word alone proves
  /// nothing.
  struct Setting {
    LocalAccountRunner::Outcome tool;
    Answer directory;

    [[nodiscard]] bool toolIsSilent() const;
    /// Why it is not in force, or what else the tool could not do: the tool's sentence where it has one.
    [[nodiscard]] std::string problem() const;
  };
  /// Makes the account, an administrator, and hides it.
  [[nodiscard]] Setting create(const CompanyAdminState& state, const std::string& fullName) const;
  [[nodiscard]] Setting reset(const CompanyAdminState& state) const;

  /// Makes it an administrator and hides it, as far as it is not.
  [[nodiscard]] LocalAccountRunner::Outcome finish(const LocalAccount& account) const;
  [[nodiscard]] LocalAccountRunner::Outcome enable(const std::string& name) const;
  void disable(const std::string& name) const;

  [[nodiscard]] std::string newPassword() const;

 private:
  [[nodiscard]] Setting set(const CompanyAdminState& state,
                            const std::vector<LocalAccountRunner::Step>& steps) const;

  const Machine machine_;
};

}  // namespace molvane
