#include "HelperKit/Service/HelperService.hpp"

#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "Base/NSError.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"

namespace molvane {
namespace {

// The answer of a method whose work is not part of this build.
NSError notBuilt() { return {std::string(kPOSIXErrorDomain), ENOSYS, posixErrorDescription(ENOSYS)}; }

}  // namespace

void HelperService::startDeviceJob(const Data& spec,
                                   const Reply<std::optional<std::string>, OptionalError>& reply) {
  startDeviceJob(spec, getuid(), reply);
}

void HelperService::startDeviceJob(const Data& /*spec*/, std::uint32_t /*peerUID*/,
                                   const Reply<std::optional<std::string>, OptionalError>& reply) {
  reply(std::nullopt, notBuilt());
}

void HelperService::deviceJobStatus(const std::string& jobID,
                                    const Reply<std::optional<Data>, OptionalError>& reply) {
  reply(std::nullopt, HelperServiceError(HelperServiceErrorCase::unknownJob, jobID).asNSError());
}

void HelperService::cancelDeviceJob(const std::string& /*jobID*/, const Reply<bool>& reply) { reply(false); }

}  // namespace molvane
