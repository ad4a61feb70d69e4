#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "Base/Mutex.hpp"

namespace molvane::dbus {

/// Counts live connections, so that all users together cannot take the machine, nor a few of them all the
/// places. A user's first connection is counted while there is any place. Beyond it a user holds no more than
/// its share of what is then left: that, divided by the number of users who are connected. So each of N users
/// leaves the next one about 1/N of the places that it found. Any thread may use it.
class ConnectionCounter {
 public:
  ConnectionCounter(std::size_t perUser, std::size_t inAll) noexcept : perUser_(perUser), inAll_(inAll) {}

  /// One counted connection; it stops counting when it goes. The counter must outlive it.
  class Slot {
   public:
    Slot(Slot&& other) noexcept;
    Slot& operator=(Slot&&) = delete;
    ~Slot();

    /// Counts from now on as a connection of the user `uid`, whatever that user holds already.
    void passTo(std::uint32_t uid);

   private:
    friend class ConnectionCounter;
    Slot(ConnectionCounter& counter, std::uint32_t uid) noexcept : counter_(&counter), uid_(uid) {}

    ConnectionCounter* counter_;
    std::uint32_t uid_;
  };

  /// Counts one more connection of the user `uid`; nothing when that would be one too many.
  [[nodiscard]] std::optional<Slot> take(std::uint32_t uid);

  /// How many connections of the user `uid` are counted.
  [[nodiscard]] std::size_t count(std::uint32_t uid) const;

 private:
  void giveBack(std::uint32_t uid) noexcept;
  void forgetOne(std::uint32_t uid) noexcept MOLVANE_REQUIRES(mutex_);
  [[nodiscard]] std::size_t countOf(std::uint32_t uid) const MOLVANE_REQUIRES(mutex_);

  const std::size_t perUser_;
  const std::size_t inAll_;
  mutable Mutex mutex_;
  std::size_t total_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::map<std::uint32_t, std::size_t> ofUser_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane::dbus
