#include "HelperKit/Service/HelperService.hpp"

#include <cerrno>
#include <optional>
#include <string>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

// The answer of a method whose work is not part of this build.
NSError notBuilt() { return {std::string(kPOSIXErrorDomain), ENOSYS, posixErrorDescription(ENOSYS)}; }

}  // namespace

// Nobody is the company administrator where none can be appointed.
std::optional<std::string> HelperService::companyAdminName() { return std::nullopt; }

void HelperService::applyCompanyAdmin(const Data& /*configuration*/,
                                      const Reply<std::optional<Data>, OptionalError>& reply) {
  reply(std::nullopt, notBuilt());
}

void HelperService::companyAdminPassword(
    const Reply<std::optional<std::string>, std::optional<std::string>, OptionalError>& reply) {
  reply(std::nullopt, std::nullopt, notBuilt());
}

}  // namespace molvane
