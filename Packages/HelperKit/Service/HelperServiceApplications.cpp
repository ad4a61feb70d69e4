#include "HelperKit/Service/HelperService.hpp"

#include <unistd.h>

#include <cerrno>
#include <string>

#include "Base/NSError.hpp"

namespace molvane {
namespace {

// The answer of a method whose work is not part of this build.
NSError notBuilt() { return {std::string(kPOSIXErrorDomain), ENOSYS, posixErrorDescription(ENOSYS)}; }

}  // namespace

void HelperService::removeApplication(const std::string& path, const Reply<bool, OptionalError>& reply) {
  removeApplication(path, getuid(), reply);
}

void HelperService::removeApplication(const std::string& /*path*/, std::uint32_t /*peerUID*/,
                                      const Reply<bool, OptionalError>& reply) {
  reply(false, notBuilt());
}

void HelperService::installPackage(const std::string& path,
                                   const Reply<bool, std::string, OptionalError>& reply) {
  installPackage(path, getuid(), true, reply);
}

void HelperService::installUnverifiedPackage(const std::string& path,
                                             const Reply<bool, std::string, OptionalError>& reply) {
  installPackage(path, getuid(), false, reply);
}

void HelperService::installPackage(const std::string& /*path*/, std::uint32_t /*peerUID*/, bool /*verified*/,
                                   const Reply<bool, std::string, OptionalError>& reply) {
  reply(false, "", notBuilt());
}

void HelperService::installApplication(const std::string& path,
                                       const Reply<bool, std::string, OptionalError>& reply) {
  installApplication(path, getuid(), reply);
}

void HelperService::installApplication(const std::string& /*path*/, std::uint32_t /*peerUID*/,
                                       const Reply<bool, std::string, OptionalError>& reply) {
  reply(false, "", notBuilt());
}

}  // namespace molvane
