#include <unistd.h>

#include <optional>
#include <string>

#include "Base/NSError.hpp"
#include "HelperKit/Applications/AppRemovalPolicy.hpp"
#include "HelperKit/Applications/AppRemovalRunner.hpp"
#include "HelperKit/Applications/ApplicationInstallPolicy.hpp"
#include "HelperKit/Applications/ApplicationInstallRunner.hpp"
#include "HelperKit/Applications/PackageInstallPolicy.hpp"
#include "HelperKit/Applications/PackageInstallRunner.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"
#include "HelperProtocol/HelperErrorDomains.hpp"
#include "Platform/Users.hpp"

namespace molvane {
namespace {

constexpr std::int64_t kRemovalRefused = 11;
constexpr std::int64_t kPackageRefused = 12;
constexpr std::int64_t kApplicationRefused = 13;

NSError refusal(std::int64_t code, const std::string& sentence) {
  return {std::string(kPolicyErrorDomain), code, sentence};
}

}  // namespace

void HelperService::removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) {
  removeApplication(path, getuid(), reply);
}

void HelperService::removeApplication(const std::string& path, std::uint32_t peerUID,
                                      const Reply<bool, OptionalError>& reply) {
  try {
    AppRemovalRunner::remove(path, homeFolder(peerUID));
  } catch (const AppRemovalPolicy::Failure& failure) {
    return reply(false, refusal(kRemovalRefused, failure.errorDescription()));
  } catch (...) {
    return reply(false, replyErrorOfCurrentException());
  }
  reply(true, std::nullopt);
}

void HelperService::installPackage(const std::string& path,
                                   const Reply<bool, std::string, OptionalError>& reply) {
  installPackage(path, getuid(), true, reply);
}

void HelperService::installUnverifiedPackage(const std::string& path,
                                             const Reply<bool, std::string, OptionalError>& reply) {
  installPackage(path, getuid(), false, reply);
}

void HelperService::installPackage(const std::string& path, std::uint32_t peerUID, bool verified,
                                   const Reply<bool, std::string, OptionalError>& reply) {
  std::string output;
  try {
    output = PackageInstallRunner::install(path, homeFolder(peerUID), peerUID, verified);
  } catch (const PackageInstallPolicy::Failure& failure) {
    return reply(false, "", refusal(kPackageRefused, failure.errorDescription()));
  } catch (...) {
    return reply(false, "", replyErrorOfCurrentException());
  }
  reply(true, output, std::nullopt);
}

void HelperService::installApplication(const std::string& path,
                                       const Reply<bool, std::string, OptionalError>& reply) {
  installApplication(path, getuid(), reply);
}

void HelperService::installApplication(const std::string& path, std::uint32_t peerUID,
                                       const Reply<bool, std::string, OptionalError>& reply) {
  std::string destination;
  try {
    destination = ApplicationInstallRunner::install(path, homeFolder(peerUID), peerUID);
  } catch (const ApplicationInstallPolicy::Failure& failure) {
    return reply(false, "", refusal(kApplicationRefused, failure.errorDescription()));
  } catch (...) {
    return reply(false, "", replyErrorOfCurrentException());
  }
  reply(true, destination, std::nullopt);
}

}  // namespace molvane
