#include "MolvaneHelper/Serving.hpp"

#include <csignal>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/Log.hpp"

namespace molvane {
namespace {

// The listener needs a thread to go on. A process that gets none now must not stay deaf for ever.
void resume(Listener& listener) {
  constexpr std::chrono::seconds kPause{1};
  for (;;) {
    try {
      return listener.resume();
    } catch (const std::system_error&) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

std::string doNotStop(const std::vector<std::string>& jobs) {
  const std::size_t others = jobs.size() - 1;
  return "device job " + jobs.front() +
         (others == 0 ? " does not stop" : " and " + std::to_string(others) + " more do not stop");
}

// Whether the process, which is idle, can exit; otherwise it goes on and is idle anew.
bool mayExit(const Serving& serving, std::chrono::milliseconds patience) {
  const std::vector<std::string> left = serving.jobs.stop(patience);
  if (left.empty()) {
    logLine("MolvaneHelper: idle, exiting");
    return true;
  }
  logLine("MolvaneHelper: idle but still serving, as " + doNotStop(left));
  serving.delegate.scheduleIdleExit();
  return false;
}

// Returns when the process can exit.
void endBySignal(const Serving& serving, int signal, std::chrono::milliseconds patience) {
  const std::vector<std::string> left = serving.jobs.stop(patience);
  // Calls that are being carried out are waited for at the exit; whoever cannot wait signals again.
  RunLoop::letSignalsEnd();
  if (left.empty()) return;
  logLine("MolvaneHelper: ending by signal " + std::to_string(signal) + " although " + doNotStop(left));
  static_cast<void>(std::raise(signal));
}

}  // namespace

void serveUntilEnd(const Serving& serving, std::chrono::milliseconds patience) {
  for (;;) {
    const int signal = serving.mainLoop.run();
    serving.listener.suspend();
    if (signal != 0) return endBySignal(serving, signal, patience);
    // A client that was accepted while the process made up its mind is served. A client that still waits is
    // the service manager's, which starts the helper again for it.
    if (serving.delegate.isIdle() && mayExit(serving, patience)) return;
    resume(serving.listener);
  }
}

}  // namespace molvane
