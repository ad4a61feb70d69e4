#include "MolvaneHelper/HelperMain.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "Base/NSError.hpp"
#include "HelperKit/Accounts/CompanyAdminKeeper.hpp"
#include "HelperKit/Applications/ApplicationInstallRunner.hpp"
#include "HelperKit/Devices/DeviceJobRunner.hpp"
#include "HelperKit/Service/HelperPathPolicy.hpp"
#include "HelperKit/Service/HelperService.hpp"
#include "HelperProtocol/HelperIdentity.hpp"
#include "MolvaneHelper/HelperXPCListenerDelegate.hpp"
#include "MolvaneHelper/RunLoop.hpp"
#include "MolvaneHelper/ServiceListener.hpp"
#include "MolvaneHelper/Serving.hpp"
#include "Platform/Log.hpp"
#include "Platform/ProcessDirectories.hpp"
#include "Platform/RawDevice.hpp"
#include "Platform/SteadyTimerQueue.hpp"

namespace molvane {
namespace {

// Whoever started the process may have left it in any state. Nothing of that may reach what it does as root.
void takeKnownSurroundings() {
  // A missing standard descriptor would let the next socket take its number, and the log with it.
  for (int fd = open("/dev/null", O_RDWR); fd >= 0; fd = dup(fd)) {
    if (fd > STDERR_FILENO) {
      close(fd);
      break;
    }
  }
  umask(S_IWGRP | S_IWOTH);
  (void)std::signal(SIGPIPE, SIG_IGN);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (chdir("/") != 0) throwErrno("chdir /");
}

}  // namespace

int helperMain() try {
  takeKnownSurroundings();
  ensurePrivateDirectories();

  RunLoop mainLoop;
  auto jobs = std::make_unique<DeviceJobRunner>(makeDevicePolicy);
  DeviceJobRunner& deviceJobs = *jobs;
  auto service = std::make_shared<HelperService>(HelperPathPolicy::userSpaceAllowlist(homeDirectory()),
                                                 HelperPathPolicy::defaultDeniedBasenames(), std::move(jobs),
                                                 std::make_unique<CompanyAdminKeeper>());
  SteadyTimerQueue timers;
  const auto delegate = std::make_shared<HelperXPCListenerDelegate>(
      service, HelperXPCListenerDelegate::Process{timers, [] { return HelperIdentity::teamID(); },
                                                  [&mainLoop] { mainLoop.stop(); }});
  // After what its threads use, so that it ends first; before scheduleIdleExit, which makes a thread.
  const std::unique_ptr<Listener> listener = makeServiceListener();
  // Only now: a helper started by hand has already failed to bind here, so it cannot disturb the running one.
  forgetDisksOfEarlierHelper();
  ApplicationInstallRunner::salvage();
  delegate->scheduleIdleExit();

  listener->setDelegate(*delegate);
  listener->resume();
  logLine("MolvaneHelper listening on " + std::string(HelperIdentity::machServiceName));
  serveUntilEnd({mainLoop, *listener, *delegate, deviceJobs});
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  logLine(std::string("MolvaneHelper: cannot start: ") + error.what());
  return EXIT_FAILURE;
}

}  // namespace molvane
