#include "Platform/posix/LeftoverProcesses.hpp"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

namespace molvane {

namespace {

constexpr std::size_t kBytesDroppedAtOnce = 4096;

/// False once there is nothing more to read. Only for a descriptor that polled readable.
bool dropBytes(const FileDescriptor& from) {
  std::array<char, kBytesDroppedAtOnce> dropped;
  const ssize_t count = ::read(from.get(), dropped.data(), dropped.size());
  return count > 0 || (count < 0 && errno == EINTR);
}

void reap(pid_t pid) {
  while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

LeftoverProcesses& LeftoverProcesses::shared() {
  // Never destroyed: the keeper may outlast everything else when the program exits.
  static LeftoverProcesses& instance = *new LeftoverProcesses;  // NOLINT(cppcoreguidelines-owning-memory)
  return instance;
}

LeftoverProcesses::LeftoverProcesses() : wakeUp_(openPipe()) {}

void LeftoverProcesses::requireRoom() {
  MutexLock lock(mutex_);
  if (!arrived_.empty()) startKeeper();
  if (kept_ + arrived_.size() >= kMost) {
    throw std::system_error(EAGAIN, std::generic_category(),
                            "too many tools that were left behind still run");
  }
}

void LeftoverProcesses::adopt(UnreapedProcess process) noexcept {
  MutexLock lock(mutex_);
  arrived_.push_back(std::move(process));
  startKeeper();
  // A keeper that is busy looks for arrivals by itself, so a byte that does not fit is not missed.
  [[maybe_unused]] const ssize_t written = ::write(wakeUp_.writeEnd.get(), "", 1);
}

bool LeftoverProcesses::waitUntilNone(std::chrono::steady_clock::time_point deadline) {
  MutexLock lock(mutex_);
  while (keeperRuns_ || !arrived_.empty()) {
    if (noneLeft_.wait_until(mutex_, deadline) == std::cv_status::timeout)
      return !keeperRuns_ && arrived_.empty();
  }
  return true;
}

void LeftoverProcesses::startKeeper() noexcept {
  if (keeperRuns_) return;
  try {
    // Nobody could join it: it ends with the last leftover, or with the program.
    std::thread([this] { keep(); }).detach();
    keeperRuns_ = true;
  } catch (const std::system_error&) {
    // No thread to be had now. The arrivals stay listed and the next start of a tool tries again.
  }
}

void LeftoverProcesses::keep() {
  std::vector<UnreapedProcess> kept;
  while (takeArrivals(kept)) waitForEvent(kept);
}

bool LeftoverProcesses::takeArrivals(std::vector<UnreapedProcess>& kept) {
  MutexLock lock(mutex_);
  kept.insert(kept.end(), std::make_move_iterator(arrived_.begin()), std::make_move_iterator(arrived_.end()));
  arrived_.clear();
  kept_ = kept.size();
  keeperRuns_ = !kept.empty();
  if (!keeperRuns_) noneLeft_.notify_all();
  return keeperRuns_;
}

void LeftoverProcesses::waitForEvent(std::vector<UnreapedProcess>& kept) {
  std::vector<pollfd> polled{{wakeUp_.readEnd.get(), POLLIN, 0}};
  for (const UnreapedProcess& process : kept) {
    polled.push_back({process.exitWatch.get(), POLLIN, 0});
    polled.push_back({process.output.get(), POLLIN, 0});
  }
  if (::poll(polled.data(), static_cast<nfds_t>(polled.size()), -1) <= 0) return;

  if (polled[0].revents != 0) dropBytes(wakeUp_.readEnd);
  for (std::size_t i = 0; i < kept.size(); ++i) {
    const bool ended = polled[2 * i + 1].revents != 0;
    const bool readable = polled[2 * i + 2].revents != 0;
    if (ended) {
      reap(std::exchange(kept[i].pid, -1));
    } else if (readable && !dropBytes(kept[i].output)) {
      kept[i].output.reset();
    }
  }
  kept.erase(std::remove_if(kept.begin(), kept.end(), [](const auto& process) { return process.pid == -1; }),
             kept.end());
}

}  // namespace molvane
