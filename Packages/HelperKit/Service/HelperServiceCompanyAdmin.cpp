#include <optional>
#include <string>
#include <utility>

#include "Base/Date.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"

namespace molvane {
namespace {

CompanyAdminConfig decoded(const Data& document) {
  try {
    return decodedDocument<CompanyAdminConfig>(document);
  } catch (const DecodingError&) {
    throw HelperServiceError(HelperServiceErrorCase::badJobSpec, "company admin");
  }
}

}  // namespace

void HelperService::applyCompanyAdmin(const Data& configuration,
                                      const Reply<std::optional<Data>, OptionalError>& reply) {
  Data status;
  try {
    const CompanyAdminConfig config = decoded(configuration);
    const MutexLock lock(accountChanges_);
    status = encodedDocument(companyAdmin_->apply(config, Date::now()));
  } catch (...) {
    return reply(std::nullopt, replyErrorOfCurrentException());
  }
  reply(std::move(status), std::nullopt);
}

void HelperService::companyAdminPassword(
    const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) {
  std::optional<CompanyAdminKeeper::Credentials> credentials;
  try {
    credentials = companyAdmin_->password();
  } catch (...) {
    return reply(std::nullopt, std::nullopt, replyErrorOfCurrentException());
  }
  if (!credentials) return reply(std::nullopt, std::nullopt, std::nullopt);
  reply(std::move(credentials->name), std::move(credentials->password), std::nullopt);
}

}  // namespace molvane
