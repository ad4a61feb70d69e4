#pragma once

#include <chrono>

#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperProtocol/Connection.hpp"
#include "MolvaneHelper/HelperXPCListenerDelegate.hpp"
#include "MolvaneHelper/RunLoop.hpp"

namespace molvane {

/// Time that the device jobs get to stop before the process ends. Together with
/// DeviceJobRunner::kPatienceWithTools it is less than the ten seconds that a client waits to be served, as a
/// client may have to wait for it.
inline constexpr std::chrono::seconds kPatienceWithJobs{5};

/// What serveUntilEnd() works with; all outlives the call.
struct Serving {
  RunLoop& mainLoop;
  Listener& listener;
  HelperXPCListenerDelegate& delegate;  ///< its exit hook stops `mainLoop`
  DeviceJobRunner& jobs;
};

/// Serves, on a listener that has been resumed, until the process has been idle for its time or gets one of
/// the loop's signals. Returns with the listener suspended and all device jobs ended, so that the process can
/// exit.
///
/// A job that does not stop keeps an idle process serving, which the log says; the next try comes when it has
/// been idle again. At a signal the log names the job and the signal ends the process, as the service manager
/// would kill it next.
///
/// The thread must have the loop's signals blocked. Throws std::system_error when the loop does.
void serveUntilEnd(const Serving& serving, std::chrono::milliseconds patience = kPatienceWithJobs);

}  // namespace molvane
