#include "Platform/posix/LeftoverProcesses.hpp"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <iterator>
#include <limits>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/Log.hpp"
#include "Platform/posix/SpawnRequest.hpp"

namespace molvane {

namespace {

/// On every host, and asks for no rights. With its output on the null device it reads and drops.
constexpr const char* kReader = "/bin/cat";

bool somebodyCanWriteTo(const FileDescriptor& readEnd) {
  pollfd end{readEnd.get(), POLLIN, 0};
  return ::poll(&end, 1, 0) <= 0 || (end.revents & POLLHUP) == 0;
}

[[noreturn]] void throwNoRoom(const char* why) {
  throw std::system_error(EAGAIN, std::generic_category(), why);
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
  if (tools_ >= kMost) throwNoRoom("too many tools that were left behind still run");
}

void LeftoverProcesses::adopt(UnreapedProcess tool, FileDescriptor output) noexcept {
  // The tools are few, and what others have left behind must not cost one its work.
  startReader(output, std::numeric_limits<std::size_t>::max());
  add({std::move(tool), false});
}

void LeftoverProcesses::swallow(FileDescriptor output) noexcept { startReader(output, kMostReaders); }

void LeftoverProcesses::startReader(const FileDescriptor& output, std::size_t most) noexcept {
  if (!output || !somebodyCanWriteTo(output)) return;
  try {
    if (readers() >= most) throwNoRoom("too many of them still run");
    SpawnRequest reader(kReader, {});
    reader.setInput(output);
    reader.setNullOutput();
    add({watched(reader.spawn()), true});
  } catch (const std::exception& error) {
    logLine("a process that a tool left behind cannot write any more: " + std::string(error.what()));
  }
}

std::size_t LeftoverProcesses::readers() {
  const MutexLock lock(mutex_);
  return readers_;
}

void LeftoverProcesses::add(Leftover leftover) noexcept {
  MutexLock lock(mutex_);
  ++(leftover.isReader ? readers_ : tools_);
  arrived_.push_back(std::move(leftover));
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
  std::vector<Leftover> kept;
  while (takeArrivals(kept)) waitForEnd(kept);
}

bool LeftoverProcesses::takeArrivals(std::vector<Leftover>& kept) {
  MutexLock lock(mutex_);
  kept.insert(kept.end(), std::make_move_iterator(arrived_.begin()), std::make_move_iterator(arrived_.end()));
  arrived_.clear();
  const auto isReader = [](const Leftover& leftover) { return leftover.isReader; };
  readers_ = static_cast<std::size_t>(std::count_if(kept.begin(), kept.end(), isReader));
  tools_ = kept.size() - readers_;
  keeperRuns_ = !kept.empty();
  if (!keeperRuns_) noneLeft_.notify_all();
  return keeperRuns_;
}

void LeftoverProcesses::waitForEnd(std::vector<Leftover>& kept) {
  std::vector<pollfd> polled{{wakeUp_.readEnd.get(), POLLIN, 0}};
  for (const Leftover& leftover : kept) polled.push_back({leftover.process.exitWatch.get(), POLLIN, 0});
  if (::poll(polled.data(), static_cast<nfds_t>(polled.size()), -1) <= 0) return;

  if (polled[0].revents != 0) {
    std::array<char, 64> dropped;
    [[maybe_unused]] const ssize_t count = ::read(wakeUp_.readEnd.get(), dropped.data(), dropped.size());
  }
  for (std::size_t i = kept.size(); i-- > 0;) {
    if (polled[i + 1].revents == 0) continue;
    reap(kept[i].process.pid);
    kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

}  // namespace molvane
