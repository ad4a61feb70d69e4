#include "HelperKit/Devices/DeviceJobTable.hpp"

#include <utility>

namespace molvane {

void DeviceJobTable::add(const std::string& id, DeviceJobStatus status) {
  const MutexLock lock(mutex_);
  statuses_.insert_or_assign(id, std::move(status));
}

void DeviceJobTable::remove(const std::string& id) {
  const MutexLock lock(mutex_);
  statuses_.erase(id);
}

std::optional<DeviceJobStatus> DeviceJobTable::status(const std::string& id) const {
  const MutexLock lock(mutex_);
  const auto found = statuses_.find(id);
  if (found == statuses_.end()) return std::nullopt;
  return found->second;
}

bool DeviceJobTable::cancel(const std::string& id) {
  const MutexLock lock(mutex_);
  const auto found = statuses_.find(id);
  if (found == statuses_.end() || found->second.isTerminal()) return false;
  cancelled_.insert(id);
  return true;
}

bool DeviceJobTable::isCancelled(const std::string& id) const {
  const MutexLock lock(mutex_);
  return cancelled_.contains(id);
}

void DeviceJobTable::cancelAll() {
  const MutexLock lock(mutex_);
  for (const auto& [id, status] : statuses_) {
    if (!status.isTerminal()) cancelled_.insert(id);
  }
}

void DeviceJobTable::setLeavesTools(bool leavesTools) {
  const MutexLock lock(mutex_);
  leavesTools_ = leavesTools;
}

bool DeviceJobTable::leavesTools() const {
  const MutexLock lock(mutex_);
  return leavesTools_;
}

void DeviceJobTable::update(const std::string& id, const std::function<void(DeviceJobStatus&)>& change) {
  const MutexLock lock(mutex_);
  change(statuses_[id]);
}

void DeviceJob::enter(DeviceJobStatus::Phase phase, const std::string& logged) {
  update([&](DeviceJobStatus& status) {
    status.phase = phase;
    status.log += logged;
  });
}

void DeviceJob::end(const JobEnd& end) {
  update([&](DeviceJobStatus& status) {
    status.phase = end.phase;
    status.log += end.text;
    if (end.sha256) status.sha256 = end.sha256;
    if (end.phase != DeviceJobStatus::Phase::failed) return;
    status.error = end.text;
    status.log += "\n";
  });
}

}  // namespace molvane
