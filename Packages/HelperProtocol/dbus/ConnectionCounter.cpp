#include "HelperProtocol/dbus/ConnectionCounter.hpp"

#include <utility>

namespace molvane::dbus {

ConnectionCounter::Slot::Slot(Slot&& other) noexcept
    : counter_(std::exchange(other.counter_, nullptr)), uid_(other.uid_) {}

ConnectionCounter::Slot::~Slot() {
  if (counter_ != nullptr) counter_->giveBack(uid_);
}

std::optional<ConnectionCounter::Slot> ConnectionCounter::take(std::uint32_t uid) {
  const MutexLock lock(mutex_);
  if (total_ >= inAll_) return std::nullopt;
  std::size_t& count = ofUser_[uid];
  if (count >= perUser_) return std::nullopt;
  ++count;
  ++total_;
  return Slot(*this, uid);
}

void ConnectionCounter::giveBack(std::uint32_t uid) noexcept {
  const MutexLock lock(mutex_);
  --total_;
  const auto user = ofUser_.find(uid);
  if (--user->second == 0) ofUser_.erase(user);
}

}  // namespace molvane::dbus
