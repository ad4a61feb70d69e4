#include "HelperKit/Devices/DeviceJobRunner.hpp"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <limits>
#include <system_error>
#include <utility>
#include <variant>

#include "Base/NSError.hpp"
#include "Base/Uuid.hpp"

namespace molvane {
namespace {

constexpr const char* kTmutil = "/usr/bin/tmutil";
// No user has it: whoever gives a file to it leaves the file as it is, the helper's.
constexpr std::uint32_t kNoUser = std::numeric_limits<std::uint32_t>::max();

// An exception that escapes means the system itself failed: no memory, no thread.
void runToEnd(DeviceJob& job, const std::function<void(DeviceJob&)>& work) {
  try {
    work(job);
  } catch (const std::system_error& error) {
    job.fail(posixErrorDescription(error.code().value()));
  } catch (const std::exception& error) {
    job.fail(error.what());
  }
}

}  // namespace

DeviceJobRunner::DeviceJobRunner(DevicePolicyFactory makePolicy, RawDeviceOpener openDevice)
    : makePolicy_(std::move(makePolicy)), openDevice_(std::move(openDevice)) {}

DeviceJobRunner::~DeviceJobRunner() {
  table_.cancelAll();
  table_.setLeavesTools(true);
  std::list<Running> running;
  {
    const MutexLock lock(mutex_);
    running.swap(running_);
  }
}

std::string DeviceJobRunner::start(const DeviceJobSpec& spec, std::uint32_t peerUID) {
  std::string id = Uuid::random().text();
  const DevicePolicy policy = makePolicy_();
  const Planned planned = std::visit([&](const auto& job) { return plan(policy, job, peerUID); }, spec.job);
  DeviceJobStatus queued;
  queued.bytesTotal = planned.bytesTotal;
  table_.add(id, queued);
  try {
    launch(id, planned);
  } catch (...) {
    table_.remove(id);
    throw;
  }
  return id;
}

std::optional<DeviceJobStatus> DeviceJobRunner::status(const std::string& id) const {
  return table_.status(id);
}

bool DeviceJobRunner::cancel(const std::string& id) { return table_.cancel(id); }

DeviceJobRunner::Planned DeviceJobRunner::plan(const DevicePolicy& policy, const ImageDevice& job,
                                               std::uint32_t peerUID) const {
  const DeviceFacts facts = policy.validateSourceDevice(job.sourceBSD);
  const ImageWork work{.facts = facts,
                       .destination = policy.validateImageDestination(job.destinationPath),
                       .ownerUID = job.ownerUID == 0 || job.ownerUID == kNoUser ? peerUID : job.ownerUID,
                       .peerUID = peerUID};
  return {facts.sizeBytes, [this, work](DeviceJob& running) { runImage(running, openDevice_, work); }};
}

DeviceJobRunner::Planned DeviceJobRunner::plan(const DevicePolicy& policy, const WriteImage& job,
                                               std::uint32_t peerUID) const {
  const DeviceFacts facts = policy.validateTargetDevice(job.targetBSD);
  const DevicePolicy::ImageSource source =
      policy.validateImageSource(job.sourcePath, peerUID, facts.sizeBytes);
  const WriteWork work{
      .source = source.path, .size = source.size, .facts = facts, .verify = job.verify, .peerUID = peerUID};
  return {source.size, [this, work](DeviceJob& running) { runWrite(running, openDevice_, work); }};
}

DeviceJobRunner::Planned DeviceJobRunner::plan(const DevicePolicy& policy, const CreateInstallMedia& job,
                                               std::uint32_t /*peerUID*/) const {
  const std::string tool = policy.validateInstaller(job.installerAppPath);
  const std::string volume = policy.validateTargetVolume(job.targetVolumePath);
  return {.work = [tool, volume](DeviceJob& running) { runInstallMedia(running, tool, volume); },
          .runsTool = true};
}

DeviceJobRunner::Planned DeviceJobRunner::plan(const DevicePolicy& policy,
                                               const SetTimeMachineDestination& job,
                                               std::uint32_t /*peerUID*/) const {
  const std::string volume = policy.validateTargetVolume(job.volumePath);
  return {.work =
              [volume](DeviceJob& running) {
                runFixedTool(running, kTmutil, {"setdestination", volume});
              },
          .runsTool = true};
}

void DeviceJobRunner::launch(const std::string& id, const Planned& planned) {
  std::list<Running> over;        // their threads are joined after the lock is given back
  std::list<Running> started(1);  // made before the thread begins: nothing may fail afterwards
  Running& running = started.front();
  running.id = id;
  running.runsTool = planned.runsTool;
  const MutexLock lock(mutex_);
  if (isStopping_) throw std::system_error(ECANCELED, std::generic_category(), "start a device job");
  running.thread = Thread([this, &running, work = planned.work] {
    DeviceJob job(table_, running.id);
    runToEnd(job, work);
    {
      const MutexLock ending(mutex_);
      running.isOver = true;
    }
    ended_.notify_all();
  });
  for (auto next = running_.begin(); next != running_.end();) {
    const auto current = next++;
    if (current->isOver) over.splice(over.end(), running_, current);
  }
  running_.splice(running_.end(), started);
}

std::vector<std::string> DeviceJobRunner::stop(std::chrono::milliseconds patience) {
  {
    const MutexLock lock(mutex_);
    isStopping_ = true;
  }
  table_.cancelAll();
  waitForEnds(patience);
  if (onlyToolsRun()) {
    table_.setLeavesTools(true);
    waitForEnds(kPatienceWithTools);
    table_.setLeavesTools(false);
  }
  return goOn();
}

void DeviceJobRunner::waitForEnds(std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  const MutexLock lock(mutex_);
  while (!allAreOver() && ended_.wait_until(mutex_, deadline) == std::cv_status::no_timeout) {
  }
}

bool DeviceJobRunner::allAreOver() const {
  return std::all_of(running_.begin(), running_.end(), [](const Running& job) { return job.isOver; });
}

bool DeviceJobRunner::onlyToolsRun() {
  const MutexLock lock(mutex_);
  return std::all_of(running_.begin(), running_.end(),
                     [](const Running& job) { return job.isOver || job.runsTool; });
}

// Lets jobs start again if some are left, and names those.
std::vector<std::string> DeviceJobRunner::goOn() {
  std::vector<std::string> left;
  const MutexLock lock(mutex_);
  for (const Running& job : running_) {
    if (!job.isOver) left.push_back(job.id);
  }
  isStopping_ = left.empty();
  return left;
}

}  // namespace molvane
