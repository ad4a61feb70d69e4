#pragma once

#include "Platform/posix/SpawnHost.hpp"

namespace molvane {

/// What the main thread does while the other threads serve: nothing, until the process is asked to end, by
/// stop() or by SIGTERM, SIGINT or SIGHUP.
///
/// The constructor blocks these signals in its thread, and so in every thread that is started from there;
/// only run() takes them. A process has one loop, made before its first thread.
class RunLoop {
 public:
  /// Throws std::system_error.
  RunLoop();
  /// As letSignalsEnd().
  ~RunLoop();
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;

  /// Blocks until the process is asked to end, also where that was before. Returns 0 for a stop(), otherwise
  /// the signal's number; each request comes back once. One thread at a time.
  [[nodiscard]] int run();

  /// Lets run() return 0, now or later. Any thread.
  void stop();

  /// From now on each of the three signals ends the process at once. The ones that came since run() returned
  /// are forgotten. For the thread that calls run().
  static void letSignalsEnd();

 private:
  Pipe requests_;
};

}  // namespace molvane
