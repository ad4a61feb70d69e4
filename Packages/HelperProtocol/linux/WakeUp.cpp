#include "HelperProtocol/dbus/WakeUp.hpp"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "Base/NSError.hpp"

namespace molvane::dbus {

WakeUp::WakeUp() : descriptor_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (!descriptor_) throwErrno("make an event descriptor");
}

void WakeUp::signal() const noexcept {
  const std::uint64_t one = 1;
  // It fails only when the counter is full, and then the descriptor is readable already.
  [[maybe_unused]] const auto written = ::write(descriptor_.get(), &one, sizeof one);
}

void WakeUp::clear() const noexcept {
  std::uint64_t count = 0;
  [[maybe_unused]] const auto taken = ::read(descriptor_.get(), &count, sizeof count);
}

}  // namespace molvane::dbus
