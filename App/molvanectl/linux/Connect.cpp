#include "molvanectl/Connect.hpp"

#include <cerrno>
#include <exception>
#include <system_error>

#include "HelperProtocol/dbus/Proxy.hpp"

namespace molvane::ctl {
namespace {

std::string whyUnreachable(const std::string& socketPath, const std::error_code& code) {
  switch (code.value()) {
    case ENOENT:
      return "There is no socket at " + socketPath +
             ". The helper is not installed, or its socket is not started.";
    case ECONNREFUSED:
      return "Nobody listens at " + socketPath + ". The helper's socket is not started.";
    case EACCES:
    case EPERM:
      return "Permission denied at " + socketPath +
             ". Only the installed client, which has the group of the helper's socket, may connect.";
    case ETIMEDOUT:
      return "The helper at " + socketPath + " does not answer. It hangs, or has too much to do.";
    default:
      return "The helper's socket " + socketPath + " cannot be connected to: " + code.message() + ".";
  }
}

}  // namespace

std::unique_ptr<MolvaneHelperXPCProtocol> connectToHelper(const std::string& socketPath) {
  try {
    return std::make_unique<dbus::Proxy>(socketPath);
  } catch (const ConnectionError& error) {
    try {
      std::rethrow_if_nested(error);
    } catch (const std::system_error& cause) {
      throw ConnectionError(whyUnreachable(socketPath, cause.code()));
    }
    throw ConnectionError(std::string(error.what()) +
                          ". The helper serves only the client that its team signed; its log tells why.");
  }
}

}  // namespace molvane::ctl
