#include "Core/LocalAccountPolicy.hpp"

#include <algorithm>

#include "Base/Ascii.hpp"
#include "Base/Characters.hpp"
#include "Base/Text.hpp"

namespace molvane::LocalAccountPolicy {
namespace {

using Failure = LocalAccountFailure;

constexpr std::size_t kSuggestedLength = 20;

bool isSmallLetterOrDigit(char c) { return isAsciiLowercase(c) || isAsciiDigit(c); }
bool isNameCharacter(char c) { return isSmallLetterOrDigit(c) || c == '_' || c == '-' || c == '.'; }

void require(bool holds, Failure::Case otherwise) {
  if (!holds) throw Failure(otherwise);
}

void checkChange(const CreateAccount& change, const LocalAccountsSnapshot& snapshot) {
  require(isValidName(change.name), Failure::invalidName);
  require(isValidFullName(change.fullName), Failure::invalidName);
  require(snapshot.find(change.name) == nullptr, Failure::exists);
  require(isValidPassword(change.password), Failure::weakPassword);
  if (change.fileVault) checkProof(*change.fileVault, snapshot, std::nullopt);
}

void checkChange(const ResetAccountPassword& change, const LocalAccount& target,
                 const LocalAccountsSnapshot& snapshot) {
  require(isValidPassword(change.password), Failure::weakPassword);
  require(change.fileVault || !target.canUnlockFileVault, Failure::needsAdmin);
  if (change.fileVault) checkProof(*change.fileVault, snapshot, change.name);
}

void checkChange(const SetAccountAdmin& change, const LocalAccount& target,
                 const LocalAccountsSnapshot& snapshot) {
  if (!change.admin) keepsAnAdmin(target, snapshot.accounts);
}

void checkChange(const SetAccountEnabled& change, const LocalAccount& target,
                 const LocalAccountsSnapshot& snapshot) {
  if (!change.enabled) keepsAnAdmin(target, snapshot.accounts);
}

void checkChange(const DeleteAccount& /*change*/, const LocalAccount& target,
                 const LocalAccountsSnapshot& snapshot) {
  keepsAnAdmin(target, snapshot.accounts);
}

/// The account to change, which must be one that may be changed at all.
const LocalAccount& target(const std::string& name, const LocalAccountsSnapshot& snapshot,
                           const std::optional<std::string>& company) {
  const LocalAccount* account = snapshot.find(name);
  require(account != nullptr, Failure::notFound);
  require(account->uid >= firstUserID, Failure::systemAccount);
  require(!company || !canonicallyEqual(*company, name), Failure::companyAccount);
  require(!snapshot.loggedIn || !canonicallyEqual(*snapshot.loggedIn, name), Failure::loggedIn);
  return *account;
}

}  // namespace

bool isValidName(std::string_view name) {
  // What is allowed is ASCII, of which each byte is a character.
  return !name.empty() && name.size() <= maximumName && isAsciiLowercase(name.front()) &&
         std::all_of(name.begin(), name.end(), isNameCharacter) &&
         std::find(reserved.begin(), reserved.end(), name) == reserved.end();
}

bool isValidFullName(std::string_view fullName) {
  if (trimmingWhitespace(fullName).empty() || containsNewline(fullName)) return false;
  // No more characters than bytes: most names need no Unicode library.
  return fullName.size() <= maximumFullName || characterCount(fullName) <= maximumFullName;
}

bool isValidPassword(std::string_view password) {
  if (containsNewline(password) || password.find('\0') != std::string_view::npos) return false;
  const std::size_t count = characterCount(password);
  return count >= minimumPassword && count <= maximumPassword;
}

std::string suggestedName(std::string_view fullName) {
  const std::string folded = lowercased(foldingCaseAndDiacritics(fullName));
  std::string name;
  for (const std::string_view character : characters(folded)) {
    // A letter that something invisible is joined to is another character, and goes with it.
    if (character.size() == 1 && isSmallLetterOrDigit(character[0])) name += character;
  }
  return name.substr(0, kSuggestedLength);
}

void check(const LocalAccountOperation& operation, const LocalAccountsSnapshot& snapshot,
           const std::optional<std::string>& company) {
  if (const auto* create = std::get_if<CreateAccount>(&operation.change)) {
    return checkChange(*create, snapshot);
  }
  const LocalAccount& account = target(operation.name(), snapshot, company);
  std::visit(
      [&]<typename Change>(const Change& change) {
        if constexpr (!std::is_same_v<Change, CreateAccount>) checkChange(change, account, snapshot);
      },
      operation.change);
}

void checkProof(const AccountAdminProof& proof, const LocalAccountsSnapshot& snapshot,
                const std::optional<std::string>& notFor) {
  require(!notFor || !canonicallyEqual(*notFor, proof.name), Failure::badAdmin);
  const LocalAccount* admin = snapshot.find(proof.name);
  require(admin != nullptr && admin->isAdmin && admin->canUnlockFileVault && !admin->isDisabled,
          Failure::badAdmin);
  require(!proof.password.empty(), Failure::badAdmin);
}

void keepsAnAdmin(const LocalAccount& target, const std::vector<LocalAccount>& accounts) {
  if (!target.isAdmin) return;
  bool remains = false;
  bool unlockerRemains = false;
  for (const LocalAccount& other : accounts) {
    if (!other.isAdmin || other.isDisabled || other.uid < firstUserID) continue;
    if (canonicallyEqual(other.name, target.name)) continue;
    remains = true;
    unlockerRemains = unlockerRemains || other.canUnlockFileVault;
  }
  require(remains && (unlockerRemains || !target.canUnlockFileVault), Failure::lastAdmin);
}

}  // namespace molvane::LocalAccountPolicy
