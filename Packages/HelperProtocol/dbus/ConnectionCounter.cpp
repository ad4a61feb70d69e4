#include "HelperProtocol/dbus/ConnectionCounter.hpp"

#include <utility>

namespace molvane::dbus {

ConnectionCounter::Slot::Slot(Slot&& other) noexcept
    : counter_(std::exchange(other.counter_, nullptr)), uid_(other.uid_) {}

ConnectionCounter::Slot::~Slot() {
  if (counter_ != nullptr) counter_->giveBack(uid_);
}

void ConnectionCounter::Slot::passTo(std::uint32_t uid) {
  const MutexLock lock(counter_->mutex_);
  ++counter_->ofUser_[uid];
  counter_->forgetOne(std::exchange(uid_, uid));
}

std::optional<ConnectionCounter::Slot> ConnectionCounter::take(std::uint32_t uid) {
  const MutexLock lock(mutex_);
  const std::size_t count = countOf(uid);
  if (total_ >= inAll_ || count >= perUser_) return std::nullopt;
  const std::size_t left = inAll_ - total_ - 1;
  if (count > 0 && (count + 1) * ofUser_.size() > left) return std::nullopt;
  ++ofUser_[uid];
  ++total_;
  return Slot(*this, uid);
}

std::size_t ConnectionCounter::count(std::uint32_t uid) const {
  const MutexLock lock(mutex_);
  return countOf(uid);
}

std::size_t ConnectionCounter::countOf(std::uint32_t uid) const {
  const auto user = ofUser_.find(uid);
  return user == ofUser_.end() ? 0 : user->second;
}

void ConnectionCounter::giveBack(std::uint32_t uid) noexcept {
  const MutexLock lock(mutex_);
  --total_;
  forgetOne(uid);
}

void ConnectionCounter::forgetOne(std::uint32_t uid) noexcept {
  const auto user = ofUser_.find(uid);
  if (--user->second == 0) ofUser_.erase(user);
}

}  // namespace molvane::dbus
