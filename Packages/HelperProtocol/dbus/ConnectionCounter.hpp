#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include "Base/Mutex.hpp"

namespace molvane::dbus {

/// Counts live connections, so that no user can take them all and all cannot take the machine. Any thread may
/// use it.
class ConnectionCounter {
 public:
  ConnectionCounter(std::size_t perUser, std::size_t inAll) noexcept : perUser_(perUser), inAll_(inAll) {}

  /// One counted connection; it stops counting when it goes. The counter must outlive it.
  class Slot {
   public:
    Slot(Slot&& other) noexcept;
    Slot& operator=(Slot&&) = delete;
    ~Slot();

   private:
    friend class ConnectionCounter;
    Slot(ConnectionCounter& counter, std::uint32_t uid) noexcept : counter_(&counter), uid_(uid) {}

    ConnectionCounter* counter_;
    std::uint32_t uid_;
  };

  /// Counts one more connection of the user `uid`; nothing when that would be one too many.
  [[nodiscard]] std::optional<Slot> take(std::uint32_t uid);

 private:
  void giveBack(std::uint32_t uid) noexcept;

  const std::size_t perUser_;
  const std::size_t inAll_;
  Mutex mutex_;
  std::size_t total_ MOLVANE_GUARDED_BY(mutex_) = 0;
  std::map<std::uint32_t, std::size_t> ofUser_ MOLVANE_GUARDED_BY(mutex_);
};

}  // namespace molvane::dbus
