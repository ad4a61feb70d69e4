#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "Core/LocalAccounts.hpp"
#include "molvanectl/AccountReading.hpp"
#include "molvanectl/AccountWords.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/SecretInput.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

class AccountListCommand : public Command {
 public:
  CommandText text() const override {
    return {
        "list", "List the local accounts",
        "Lists the accounts of people: short name, user identifier, full name, and whether the account is "
        "an administrator's, can unlock the disk, is disabled, hidden or logged in at the console. The "
        "system's own accounts are left out. Reads the system's directory and asks nothing of the helper. "
        "With --json: an object with the keys accounts, loggedIn and fileVault.",
        "molvanectl account list"};
  }

  ExitStatus run(Session& session) override {
    const LocalAccountsSnapshot snapshot = readAccounts();
    if (session.output().json()) {
      session.output().record(Record::parse(encodedJson(snapshot)));
      return ExitStatus::done;
    }
    for (const LocalAccount& account : snapshot.accounts) {
      session.output().text(accountLine(account, snapshot));
    }
    return ExitStatus::done;
  }
};

/// A command that has the helper change one account.
class AccountChangeCommand : public Command {
 public:
  void declare(OptionSet& options) override { options.argument("NAME", name_, "Short name of the account."); }

  ExitStatus run(Session& session) final {
    const LocalAccountOperation operation = this->operation();
    const std::string document = encodedJson(operation);
    const auto [accounts, refusal, error] =
        session.ask(&MolvaneHelperXPCProtocol::manageLocalAccount, Data(document.begin(), document.end()));
    if (error) {
      session.output().error(*error);
      return ExitStatus::failed;
    }
    if (!accounts) return refused(refusal.value_or("failed"), operation, session.output());
    if (session.output().json()) {
      session.output().record({{"account", operation.name()},
                               {"done", operation.kind()},
                               {"snapshot", Record::parse(accounts->begin(), accounts->end())}});
    } else {
      session.output().text(accountSentence(operation));
    }
    return ExitStatus::done;
  }

 protected:
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] virtual LocalAccountOperation operation() const = 0;

 private:
  static ExitStatus refused(const std::string& refusal, const LocalAccountOperation& operation,
                            Output& output) {
    const bool known = LocalAccountFailure::parse(refusal).has_value();
    output.error(accountError(refusal, operation), {"refusal", known ? refusal : "failed", true});
    return ExitStatus::failed;
  }

  std::string name_;
};

/// A change that sets a password, for which an administrator may have to vouch.
class PasswordCommand : public AccountChangeCommand {
 public:
  void declare(OptionSet& options) override {
    AccountChangeCommand::declare(options);
    options.flag("--must-change", mustChange_, "A new password is to be chosen at the next login.");
    options.value("--password-fd", "N", passwordDescriptor_,
                  "Read the new password from this descriptor, one line, instead of asking on the terminal.");
    options.value("--proof-name", "NAME", proofName_,
                  "The administrator who vouches, so that the account can unlock the disk.");
    options.value("--proof-password-fd", "N", proofDescriptor_,
                  "Read the administrator's password from this descriptor, one line.");
  }

 protected:
  [[nodiscard]] bool mustChange() const { return mustChange_; }

  /// Asked for before the new password.
  [[nodiscard]] std::optional<AccountAdminProof> proof() const {
    const SecretInput input(proofDescriptor_);
    if (proofName_.empty()) {
      if (!proofDescriptor_.empty()) throw UsageError("--proof-password-fd needs --proof-name");
      return std::nullopt;
    }
    return AccountAdminProof{proofName_, input.read("Password of administrator " + proofName_)};
  }

  [[nodiscard]] std::string newPassword() const {
    return SecretInput(passwordDescriptor_).readNew("New password for " + name());
  }

  void checkOptions() const { static_cast<void>(SecretInput(passwordDescriptor_)); }

 private:
  bool mustChange_ = false;
  std::string passwordDescriptor_;
  std::string proofName_;
  std::string proofDescriptor_;
};

class AccountCreateCommand : public PasswordCommand {
 public:
  CommandText text() const override {
    return {"create", "Create an account",
            "Has the helper create an account. The password is asked for on the terminal, twice and without "
            "echo, or read from a descriptor; it is never an argument. With --json: an object with the keys "
            "account, done and snapshot, here and for every other change.",
            "molvanectl account create bob --full-name Bob"};
  }

  void declare(OptionSet& options) override {
    PasswordCommand::declare(options);
    options.value("--full-name", "TEXT", fullName_, "The person's name; the short name if not given.");
    options.flag("--admin", admin_, "Make it an administrator's account.");
  }

 protected:
  LocalAccountOperation operation() const override {
    checkOptions();
    std::optional<AccountAdminProof> vouching = proof();
    return {CreateAccount{name(), fullName_.empty() ? name() : fullName_, newPassword(), admin_, mustChange(),
                          std::move(vouching)}};
  }

 private:
  std::string fullName_;
  bool admin_ = false;
};

class AccountResetPasswordCommand : public PasswordCommand {
 public:
  CommandText text() const override {
    return {"reset-password", "Give an account a new password",
            "Has the helper set a new password, asked for as when an account is created. An account that can "
            "unlock the disk needs an administrator who vouches: --proof-name.",
            "molvanectl account reset-password bob --proof-name ann"};
  }

 protected:
  LocalAccountOperation operation() const override {
    checkOptions();
    std::optional<AccountAdminProof> vouching = proof();
    return {ResetAccountPassword{name(), newPassword(), mustChange(), std::move(vouching)}};
  }
};

class MakeAdminCommand : public AccountChangeCommand {
 public:
  CommandText text() const override {
    return {"make-admin", "Make an account an administrator's",
            "Has the helper put the account into the administrators' group.",
            "molvanectl account make-admin bob"};
  }

 protected:
  LocalAccountOperation operation() const override { return {SetAccountAdmin{name(), true}}; }
};

class RemoveAdminCommand : public AccountChangeCommand {
 public:
  CommandText text() const override {
    return {
        "remove-admin", "Take an account's administrator rights away",
        "Has the helper take the account out of the administrators' group. An administrator who can log in "
        "always remains.",
        "molvanectl account remove-admin bob"};
  }

 protected:
  LocalAccountOperation operation() const override { return {SetAccountAdmin{name(), false}}; }
};

class EnableCommand : public AccountChangeCommand {
 public:
  CommandText text() const override {
    return {"enable", "Let an account log in again", "Has the helper allow logins to the account.",
            "molvanectl account enable bob"};
  }

 protected:
  LocalAccountOperation operation() const override { return {SetAccountEnabled{name(), true}}; }
};

class DisableCommand : public AccountChangeCommand {
 public:
  CommandText text() const override {
    return {"disable", "Keep an account from logging in",
            "Has the helper forbid logins to the account, of which nothing is lost.",
            "molvanectl account disable bob"};
  }

 protected:
  LocalAccountOperation operation() const override { return {SetAccountEnabled{name(), false}}; }
};

class DeleteCommand : public AccountChangeCommand {
 public:
  CommandText text() const override {
    return {"delete", "Delete an account", "Has the helper delete the account. Its home folder is kept.",
            "molvanectl account delete bob"};
  }

 protected:
  LocalAccountOperation operation() const override { return {DeleteAccount{name()}}; }
};

}  // namespace

CommandGroup accountCommands() {
  return groupOf<AccountListCommand, AccountCreateCommand, AccountResetPasswordCommand, MakeAdminCommand,
                 RemoveAdminCommand, EnableCommand, DisableCommand, DeleteCommand>(
      {"account", "List and change local accounts",
       "The accounts of people on this machine. The helper checks every change, carries it out with the "
       "system's own tools, and reads the accounts back.",
       "molvanectl account list"});
}

}  // namespace molvane::ctl
