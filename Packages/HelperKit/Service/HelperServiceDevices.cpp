#include <unistd.h>

#include <optional>
#include <string>

#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperKit/Service/HelperServiceError.hpp"
#include "HelperProtocol/DeviceJobSpec.hpp"
#include "HelperProtocol/DeviceJobStatus.hpp"

namespace molvane {
namespace {

DeviceJobSpec specOf(const Data& document) {
  try {
    return decodedDocument<DeviceJobSpec>(document);
  } catch (const DecodingError& error) {
    throw HelperServiceError(HelperServiceErrorCase::badJobSpec, error.errorDescription());
  }
}

}  // namespace

void HelperService::startDeviceJob(const Data& spec,
                                   const Reply<std::optional<std::string>, OptionalError>& reply) {
  startDeviceJob(spec, getuid(), reply);
}

void HelperService::startDeviceJob(const Data& spec, std::uint32_t peerUID,
                                   const Reply<std::optional<std::string>, OptionalError>& reply) {
  std::string id;
  try {
    id = jobs_->start(specOf(spec), peerUID);
  } catch (const DevicePolicyError& error) {
    return reply(std::nullopt, error.asNSError());
  } catch (...) {
    return reply(std::nullopt, replyErrorOfCurrentException());
  }
  reply(id, std::nullopt);
}

void HelperService::deviceJobStatus(const std::string& jobID,
                                    const Reply<std::optional<Data>, OptionalError>& reply) {
  Data document;
  try {
    const std::optional<DeviceJobStatus> status = jobs_->status(jobID);
    if (!status) throw HelperServiceError(HelperServiceErrorCase::unknownJob, jobID);
    document = encodedDocument(*status);
  } catch (...) {
    return reply(std::nullopt, replyErrorOfCurrentException());
  }
  reply(document, std::nullopt);
}

void HelperService::cancelDeviceJob(const std::string& jobID, const Reply<bool>& reply) {
  reply(jobs_->cancel(jobID));
}

}  // namespace molvane
