#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Base/Characters.hpp"
#include "Base/Date.hpp"
#include "Core/LocalAccountPolicy.hpp"
#include "Core/LocalAccounts.hpp"
#include "molvanectl/AccountReading.hpp"
#include "molvanectl/AccountWords.hpp"
#include "molvanectl/Commands.hpp"
#include "molvanectl/Confirmation.hpp"
#include "molvanectl/OptionSet.hpp"
#include "molvanectl/Session.hpp"

namespace molvane::ctl {
namespace {

constexpr const char* kNobody = "The helper manages no company administrator.";

struct ManagedAccount {
  std::string name;
  std::string password;
};

std::optional<ManagedAccount> managedAccount(Session& session) {
  auto [name, password, error] = session.ask(&MolvaneHelperXPCProtocol::companyAdminPassword);
  if (error) throw RemoteError(*error);
  if (!name || !password) return std::nullopt;
  return ManagedAccount{*std::move(name), *std::move(password)};
}

class CompanyAdminApplyCommand : public Command {
 public:
  CommandText text() const override {
    return {
        "apply", "Set the company administrator up",
        "Has the helper bring the company administrator in line with what is asked for: creates the hidden "
        "account, enables or disables it, and gives it a new password when the last one is old enough. An "
        "account of another name that the helper managed before is disabled and let go, with its password; "
        "so then, or when the helper cannot tell, the new name has to be typed once more, or --yes given. "
        "With --json: an object with the keys config, active, rotatedAt and problem, times "
        "in seconds since 2001.",
        "molvanectl company-admin apply itadmin --rotation-days 7"};
  }

  void declare(OptionSet& options) override {
    options.argument("NAME", name_, "Short name of the account.");
    options.value("--full-name", "TEXT", fullName_, "Its full name; the short name if not given.");
    options.value("--rotation-days", "DAYS", rotationDays_,
                  "After how many days the password is replaced; 30 if not given.");
    options.flag("--disabled", disabled_, "Disable the account but keep managing it.");
    options.flag("--yes", yes_, "Do not ask; needed for another name where there is no terminal.");
  }

  ExitStatus run(Session& session) override {
    const std::string document = encodedJson(CompanyAdminConfig{
        !disabled_, name_, fullName_.empty() ? name_ : fullName_, rotationDays(), Date::now()});
    // The helper lets the old account go before it looks at the new name.
    if (!LocalAccountPolicy::isValidName(name_)) {
      session.output().error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
                              companyAdminProblem("invalid-name", name_)});
      return ExitStatus::failed;
    }
    if (!yes_ && !mayLetGo(session)) return ExitStatus::failed;
    const auto [answer, error] =
        session.ask(&MolvaneHelperXPCProtocol::applyCompanyAdmin, Data(document.begin(), document.end()));
    Output& output = session.output();
    if (error || !answer) {
      output.error(refusal(error));
      return ExitStatus::failed;
    }
    const auto status =
        decodedJson<CompanyAdminStatus>({reinterpret_cast<const char*>(answer->data()), answer->size()});
    if (output.json()) {
      output.record(Record::parse(answer->begin(), answer->end()));
    } else if (!status.problem) {
      output.text(sentence(status));
    }
    if (!status.problem) return ExitStatus::done;
    if (!output.json()) {
      output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed),
                    companyAdminProblem(*status.problem, name_)});
    }
    return ExitStatus::failed;
  }

 private:
  /// Asks before an account of another name is let go. Returns whether it may be; if not, that has been
  /// reported.
  [[nodiscard]] bool mayLetGo(Session& session) const {
    std::string warning;
    try {
      const std::optional<ManagedAccount> managed = managedAccount(session);
      if (!managed || canonicallyEqual(managed->name, name_)) return true;
      warning = "The helper manages " + managed->name +
                " now. It will disable that account and forget its password";
    } catch (const RemoteError& error) {
      // It does not say which account that is, and the password may be one that works when this has passed.
      warning = std::string(error.what()) + " If the helper manages an account other than " + name_ +
                ", it will disable that account and forget its password";
    }
    // The new name is typed, since a person who mistyped it would type the old one without a thought.
    return confirm(session, {warning, name_, "--yes"});
  }

  [[nodiscard]] std::int64_t rotationDays() const {
    std::int64_t days = 0;
    const char* const end = rotationDays_.data() + rotationDays_.size();
    const auto [last, error] = std::from_chars(rotationDays_.data(), end, days);
    if (error != std::errc() || last != end || days < 1) {
      throw UsageError("'" + rotationDays_ + "' is no number of days");
    }
    return days;
  }

  [[nodiscard]] std::string sentence(const CompanyAdminStatus& status) const {
    if (!status.active) return "The company administrator " + name_ + " is not active.";
    std::string text = "The company administrator " + name_ + " is active.";
    if (status.rotatedAt) text += " Its password was set at " + iso8601Text(*status.rotatedAt) + ".";
    return text;
  }

  std::string name_;
  std::string fullName_;
  std::string rotationDays_ = "30";
  bool disabled_ = false;
  bool yes_ = false;
};

class CompanyAdminStatusCommand : public Command {
 public:
  CommandText text() const override {
    return {"status", "Say who the company administrator is",
            "Asks the helper which account it manages, and reads in the system's directory how that account "
            "is. With --json: an object with the keys name and account, each null where there is none.",
            "molvanectl company-admin status"};
  }

  ExitStatus run(Session& session) override {
    const std::optional<ManagedAccount> managed = managedAccount(session);
    std::optional<LocalAccountsSnapshot> snapshot;
    if (managed) snapshot = readAccounts();
    const LocalAccount* account = managed ? snapshot->find(managed->name) : nullptr;
    Output& output = session.output();
    if (output.json()) {
      output.record(
          {{"name", managed ? Record(managed->name) : Record(nullptr)},
           {"account", account != nullptr ? Record::parse(encodedJson(*account)) : Record(nullptr)}});
    } else if (!managed) {
      output.text(kNobody);
    } else if (account == nullptr) {
      output.text("The helper manages " + managed->name + ", but there is no such account.");
    } else {
      output.text(accountLine(*account, *snapshot));
    }
    return ExitStatus::done;
  }
};

class CompanyAdminPasswordCommand : public Command {
 public:
  CommandText text() const override {
    return {"password", "Print the company administrator's password",
            "Prints the password that the helper last set, alone on a line. With --json: an object with the "
            "keys name and password.",
            "molvanectl company-admin password"};
  }

  ExitStatus run(Session& session) override {
    const std::optional<ManagedAccount> managed = managedAccount(session);
    Output& output = session.output();
    if (!managed) {
      output.error({std::string(kProgramErrorDomain), static_cast<int>(ExitStatus::failed), kNobody});
      return ExitStatus::failed;
    }
    output.remark("The password of " + managed->name + ":");
    if (output.json()) {
      output.record({{"name", managed->name}, {"password", managed->password}});
    } else {
      output.text(managed->password);
    }
    return ExitStatus::done;
  }
};

}  // namespace

CommandGroup companyAdminCommands() {
  return groupOf<CompanyAdminApplyCommand, CompanyAdminStatusCommand, CompanyAdminPasswordCommand>(
      {"company-admin", "Keep the company administrator",
       "The hidden administrator's account that the helper owns for the organisation, with a password that "
       "it replaces.",
       "molvanectl company-admin status"});
}

}  // namespace molvane::ctl
