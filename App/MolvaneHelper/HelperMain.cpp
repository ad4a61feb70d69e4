#include "MolvaneHelper/HelperMain.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>

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
#include "Platform/Log.hpp"
#include "Platform/ProcessDirectories.hpp"
#include "Platform/RawDevice.hpp"
#include "Platform/SteadyTimerQueue.hpp"

namespace molvane {
namespace {

// What the jobs get to come to an end in, once nobody is connected any more.
constexpr std::chrono::seconds kPatienceAtExit{30};

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
  (void)std::signal(SIGTERM, SIG_DFL);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  if (chdir("/") != 0) throwErrno("chdir /");
}

}  // namespace

int helperMain() try {
  takeKnownSurroundings();
  ensureTemporaryDirectory();

  // Ends last: it bounds how long all the rest may take to end.
  SteadyTimerQueue lastResort;
  auto service = std::make_shared<HelperService>(
      HelperPathPolicy::userSpaceAllowlist(homeDirectory()), HelperPathPolicy::defaultDeniedBasenames(),
      std::make_unique<DeviceJobRunner>(makeDevicePolicy), std::make_unique<CompanyAdminKeeper>());
  RunLoop mainLoop;
  SteadyTimerQueue timers;
  const auto delegate = std::make_shared<HelperXPCListenerDelegate>(
      service, HelperXPCListenerDelegate::Process{timers, [] { return HelperIdentity::teamID(); },
                                                  [&mainLoop] { mainLoop.stop(); }});
  // After what its threads use, so that it ends first; before scheduleIdleExit, which makes a thread.
  const std::unique_ptr<Listener> listener = makeServiceListener();
  // Only now: one that was started past the service manager has ended, and must not disturb the one that
  // runs.
  forgetDisksOfEarlierHelper();
  ApplicationInstallRunner::salvage();
  delegate->scheduleIdleExit();

  listener->setDelegate(*delegate);
  listener->resume();
  logLine("MolvaneHelper listening on " + std::string(HelperIdentity::machServiceName));
  mainLoop.run();

  // A client that was accepted while the process made up its mind is served. One that still waits is the
  // service manager's, which starts the helper again for it.
  for (listener->suspend(); !delegate->isIdle(); listener->suspend()) {
    listener->resume();
    mainLoop.run();
  }
  // A job can wait for ever on a server that is gone. Nobody starts a helper for the next client before this
  // one has ended.
  lastResort.callAfter(kPatienceAtExit, [] {
    logLine("MolvaneHelper: a device job does not end, leaving it behind");
    std::_Exit(EXIT_SUCCESS);
  });
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  logLine(std::string("MolvaneHelper: cannot start: ") + error.what());
  return EXIT_FAILURE;
}

}  // namespace molvane
