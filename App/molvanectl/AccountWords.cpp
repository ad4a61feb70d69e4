#include "molvanectl/AccountWords.hpp"

#include <fmt/format.h>

#include <optional>

#include "Base/Characters.hpp"
#include "Core/PasteGuard.hpp"

namespace molvane::ctl {
namespace {

const AccountAdminProof* proofOf(const LocalAccountOperation& operation) {
  if (const auto* create = std::get_if<CreateAccount>(&operation.change)) {
    return create->fileVault ? &*create->fileVault : nullptr;
  }
  const auto* reset = std::get_if<ResetAccountPassword>(&operation.change);
  return reset != nullptr && reset->fileVault ? &*reset->fileVault : nullptr;
}

std::string refusalSentence(const LocalAccountFailure& failure, const LocalAccountOperation& operation) {
  const std::string& name = operation.name();
  switch (failure.which()) {
    case LocalAccountFailure::invalidName:
      return name +
             " cannot be created: a short name has 1 to 31 of a-z, 0-9, \"_\", \"-\" and \".\", begins with "
             "a "
             "letter and must not be reserved by the system; a full name has 1 to 64 characters on "
             "one line.";
    case LocalAccountFailure::exists:
      return "There is an account named " + name + " already.";
    case LocalAccountFailure::notFound:
      return "There is no account named " + name + ".";
    case LocalAccountFailure::systemAccount:
      return name + " is an account of the system, which is not changed.";
    case LocalAccountFailure::lastAdmin:
      return name +
             " is the last administrator who can log in, or the last one who can also unlock the disk. Make "
             "somebody else one first.";
    case LocalAccountFailure::loggedIn:
      return name + " is logged in. Nothing can be changed about the account until the person logs out.";
    case LocalAccountFailure::weakPassword:
      return "The password is not accepted: it must have 8 to 128 characters on one line.";
    case LocalAccountFailure::companyAccount:
      return name + " is the company administrator, which only 'molvanectl company-admin' changes.";
    case LocalAccountFailure::needsAdmin:
      return name +
             " can unlock the disk, so an administrator who can do so, too, must vouch for a new password; "
             "--proof-name says who.";
    case LocalAccountFailure::badAdmin: {
      const AccountAdminProof* proof = proofOf(operation);
      return (proof != nullptr ? proof->name : "The administrator") +
             " cannot vouch: it must be another administrator's account, enabled, that can unlock the disk.";
    }
    case LocalAccountFailure::failed:
      break;
  }
  return "The system's tools ran, but the change did not take effect.";
}

}  // namespace

NSError accountError(std::string_view refusal, const LocalAccountOperation& operation) {
  const std::optional<LocalAccountFailure> known = LocalAccountFailure::parse(refusal);
  const LocalAccountFailure failure = known.value_or(LocalAccountFailure::failed);
  std::string sentence =
      known ? refusalSentence(*known, operation)
            : "The change failed, but a part of it or all may have been made. The system says: " +
                  std::string(refusal);
  return {std::string(kAccountErrorDomain), static_cast<std::int64_t>(failure.which()) + 1,
          std::move(sentence)};
}

std::string accountSentence(const LocalAccountOperation& operation) {
  const std::string& name = operation.name();
  const std::string_view kind = operation.kind();
  if (kind == "create") return "Account " + name + " was created.";
  if (kind == "reset-password") return "Account " + name + " has a new password.";
  if (kind == "make-admin") return "Account " + name + " is an administrator now.";
  if (kind == "remove-admin") return "Account " + name + " is no administrator any more.";
  if (kind == "enable") return "Account " + name + " can log in again.";
  if (kind == "disable") return "Account " + name + " cannot log in any more.";
  return "Account " + name + " was deleted. Its home folder was kept.";
}

std::string companyAdminProblem(std::string_view problem, const std::string& name) {
  if (problem == "invalid-name") {
    return name +
           " cannot be the company administrator: a short name has 1 to 31 of a-z, 0-9, \"_\", \"-\" and "
           "\".\", "
           "begins with a letter and must not be reserved by the system.";
  }
  if (problem == "exists") {
    return "There is an account named " + name +
           " already, which the helper did not create. It was left as it is; choose another name.";
  }
  return "The company administrator could not be set up in full. The system says: " + std::string(problem);
}

std::string accountLine(const LocalAccount& account, const LocalAccountsSnapshot& snapshot) {
  std::string line = fmt::format("{:<20} {:>6}  {}", PasteGuard::oneLine(account.name), account.uid,
                                 PasteGuard::oneLine(account.fullName));
  if (account.isAdmin) line += " [admin]";
  if (account.canUnlockFileVault) line += " [unlocks disk]";
  if (account.isDisabled) line += " [disabled]";
  if (account.isHidden) line += " [hidden]";
  if (snapshot.loggedIn && canonicallyEqual(*snapshot.loggedIn, account.name)) line += " [logged in]";
  return line;
}

}  // namespace molvane::ctl
