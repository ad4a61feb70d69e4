#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Base/Date.hpp"
#include "Base/Mutex.hpp"
#include "Core/LocalAccounts.hpp"
#include "HelperKit/Accounts/CompanyAdminFiles.hpp"
#include "HelperKit/Accounts/LocalAccountStep.hpp"
#include "HelperKit/Accounts/PromptedCommand.hpp"

namespace molvane {

/// Keeps the company administrator: a hidden administrator's account of which only the helper knows the
/// password. It creates the account, replaces the password when it is due, lets the account go when another
/// one is configured, and hands the password out.
///
/// The password that it hands out is the one that works, whenever the helper was killed or the disk was full,
/// or it says that it does not know. A new password is on the disk as pending before a tool is told of it,
/// and becomes the state when the tool has done its work. One that is found pending later may be in force or
/// not; it is set once more, and then it is. Where that fails, the directory is asked which one works.
///
/// Any thread. One lock is held by each call to its end, while tools run and files are written; it is never
/// held while another one is taken.
class CompanyAdminKeeper {
 public:
  using State = CompanyAdminState;

  struct Credentials {
    std::string name;
    std::string password;

    bool operator==(const Credentials&) const = default;
  };

  /// Says why the password is not known. Holds no secret.
  class PasswordUnknown : public std::runtime_error {
   public:
    explicit PasswordUnknown(const std::string& why)
        : std::runtime_error("The company administrator’s password is not known: " + why) {}
  };

  /// What the keeper sees of the machine and does to it.
  struct Machine {
    std::function<LocalAccountsSnapshot()> snapshot;
    /// Whether the user database has the name, listed or not.
    std::function<bool(const std::string& name)> knowsUser;
    std::function<PromptedCommand::Result(const LocalAccountRunner::Step& step, double timeout)> run;
    std::function<std::string(std::int64_t length)> generatedPassword;
  };
  [[nodiscard]] static Machine thisMachine();

  static constexpr const char* kFolder = "/Library/Application Support/com.molvane.helper";

  /// Touches nothing.
  explicit CompanyAdminKeeper(std::string folder = kFolder, Machine machine = thisMachine());

  /// Brings the machine in line with the configuration, `now` being the time, and says how things are then.
  /// What went wrong is the status's problem: "invalid-name", "exists" for an account that the helper did not
  /// make, or a sentence of the tool or the system that failed. Never throws for what fails.
  [[nodiscard]] CompanyAdminStatus apply(const CompanyAdminConfig& config, Date now) MOLVANE_EXCLUDES(lock_);

  /// The account and its password; nothing when none is managed. May have to set the password for that.
  /// Throws PasswordUnknown.
  [[nodiscard]] std::optional<Credentials> password() MOLVANE_EXCLUDES(lock_);

  /// Short name of the managed account, also of one whose creation was cut short; nothing when there is none.
  [[nodiscard]] std::optional<std::string> managedName() MOLVANE_EXCLUDES(lock_);

 private:
  using Step = LocalAccountRunner::Step;
  struct Record;
  struct Outcome;

  [[nodiscard]] Record load() const MOLVANE_REQUIRES(lock_);
  [[nodiscard]] std::optional<std::string> bringInLine(const CompanyAdminConfig& config, Date now)
      MOLVANE_REQUIRES(lock_);
  [[nodiscard]] CompanyAdminStatus status(const CompanyAdminConfig& config,
                                          std::optional<std::string> problem) const MOLVANE_REQUIRES(lock_);
  void create(const CompanyAdminConfig& config, Date now) MOLVANE_REQUIRES(lock_);
  void rotate(const State& current, Date now) MOLVANE_REQUIRES(lock_);
  void settle(const Record& record, const LocalAccount& account) MOLVANE_REQUIRES(lock_);
  [[nodiscard]] Credentials settled(const Record& record, const LocalAccount& account)
      MOLVANE_REQUIRES(lock_);
  void finishCreation(const LocalAccount& account) MOLVANE_REQUIRES(lock_);
  void commit(const State& state) MOLVANE_REQUIRES(lock_);
  void setEnabled(const std::string& name, bool enabled) MOLVANE_REQUIRES(lock_);
  [[nodiscard]] bool works(const State& state) const MOLVANE_REQUIRES(lock_);
  [[nodiscard]] Outcome runAll(const std::vector<Step>& steps) const MOLVANE_REQUIRES(lock_);

  const Machine machine_;
  Mutex lock_;
  const CompanyAdminFiles files_;
};

}  // namespace molvane
