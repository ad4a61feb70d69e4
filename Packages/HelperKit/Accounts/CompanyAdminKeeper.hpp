#pragma once

#include <optional>
#include <stdexcept>
#include <string>

#include "Base/Date.hpp"
#include "Base/Mutex.hpp"
#include "Core/LocalAccounts.hpp"
#include "HelperKit/Accounts/CompanyAdminFiles.hpp"
#include "HelperKit/Accounts/CompanyAdminTools.hpp"

namespace molvane {

/// Keeps the company administrator: a hidden administrator's account of which only the helper knows the
/// password. It creates the account, replaces the password when it is due, lets the account go when another
/// one is configured, and hands the password out.
///
/// A new password is on the disk as pending before a tool is told of it, and becomes the state when the
/// directory has confirmed it. One that is found pending later may be in force or not: it is set once more,
/// never another in its place, until the directory has spoken. So whenever the helper is killed or the disk
/// is full, the password that is handed out is the last one that was confirmed, or the keeper says that it
/// does not know. A password that somebody else has changed since is found out by the next `apply`.
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

  using Machine = CompanyAdminTools::Machine;

  static constexpr const char* kFolder = "/Library/Application Support/com.molvane.helper";

  /// Touches nothing.
  explicit CompanyAdminKeeper(std::string folder = kFolder,
                              Machine machine = CompanyAdminTools::thisMachine());

  /// Brings the machine in line with the configuration, `now` being the time, and says how things are then.
  /// An account that is active has been finished: an administrator, hidden, enabled. What is missing or went
  /// wrong is the status's problem: "invalid-name", "exists" for an account that the helper did not make, or
  /// a sentence. Never throws for what fails.
  [[nodiscard]] CompanyAdminStatus apply(const CompanyAdminConfig& config, Date now) MOLVANE_EXCLUDES(lock_);

  /// The account and its password; nothing when none is managed. May have to set a pending password for that,
  /// which stays pending.
  /// Throws PasswordUnknown.
  [[nodiscard]] std::optional<Credentials> password() MOLVANE_EXCLUDES(lock_);

  /// Short name of the managed account, also of one whose creation was cut short or whose record is in doubt;
  /// nothing when there is none.
  [[nodiscard]] std::optional<std::string> managedName() MOLVANE_EXCLUDES(lock_);

 private:
  struct Record;

  [[nodiscard]] Record load() const MOLVANE_REQUIRES(lock_);
  void askAboutDoubted(Date now) MOLVANE_REQUIRES(lock_);
  [[nodiscard]] std::optional<std::string> bringInLine(const CompanyAdminConfig& config, Date now)
      MOLVANE_REQUIRES(lock_);
  [[nodiscard]] CompanyAdminStatus status(const CompanyAdminConfig& config,
                                          std::optional<std::string> problem) const MOLVANE_REQUIRES(lock_);
  void create(const CompanyAdminConfig& config, const Record& record, Date now) MOLVANE_REQUIRES(lock_);
  [[nodiscard]] bool isNotOurs(const State& created, const std::string& fullName,
                               const CompanyAdminTools::Answer& answer) const MOLVANE_REQUIRES(lock_);
  [[nodiscard]] std::optional<std::string> keep(const CompanyAdminConfig& config, const Record& record,
                                                const LocalAccount& account, Date now)
      MOLVANE_REQUIRES(lock_);
  void keepPassword(const CompanyAdminConfig& config, const Record& record, Date now) MOLVANE_REQUIRES(lock_);
  void rotate(const State& current, Date now) MOLVANE_REQUIRES(lock_);
  [[nodiscard]] std::optional<Credentials> settled(const Record& record) const MOLVANE_REQUIRES(lock_);
  void commit(const State& state) MOLVANE_REQUIRES(lock_);

  Mutex lock_;
  const CompanyAdminTools tools_;
  const CompanyAdminFiles files_;
};

}  // namespace molvane
