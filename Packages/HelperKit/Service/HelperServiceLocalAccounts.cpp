#include <optional>
#include <string>
#include <string_view>

#include "Base/NSError.hpp"
#include "HelperKit/Accounts/LocalAccountRunner.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"

namespace molvane {
namespace {

LocalAccountOperation decoded(const Data& document) {
  try {
    return decodedDocument<LocalAccountOperation>(document);
  } catch (const DecodingError&) {
    throw HelperServiceError(HelperServiceErrorCase::badJobSpec, "account");
  }
}

/// What a change that did not come about is answered with: the raw value of a refusal, or the words of the
/// tools. Call it only inside a catch block.
std::string textOfCurrentException() {
  try {
    throw;
  } catch (const LocalAccountFailure& failure) {
    return std::string(failure.rawValue());
  } catch (const LocalAccountRunner::Failure& failure) {
    return failure.errorDescription();
  } catch (...) {
    return nsErrorOfCurrentException().localizedDescription;
  }
}

}  // namespace

LocalAccountsSnapshot HelperService::changeAccount(const LocalAccountOperation& operation) {
  const MutexLock lock(accountChanges_);
  return LocalAccountRunner::perform(operation, companyAdmin_->managedName());
}

void HelperService::manageLocalAccount(
    const Data& operation,
    const Reply<std::optional<Data>, std::optional<std::string>, OptionalError>& reply) {
  std::optional<LocalAccountOperation> change;
  try {
    change = decoded(operation);
  } catch (...) {
    return reply(std::nullopt, "", replyErrorOfCurrentException());
  }
  Data accounts;
  try {
    accounts = encodedDocument(changeAccount(*change));
  } catch (...) {
    return reply(std::nullopt, textOfCurrentException(), std::nullopt);
  }
  reply(std::move(accounts), std::nullopt, std::nullopt);
}

}  // namespace molvane
