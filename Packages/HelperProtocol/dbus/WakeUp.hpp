#pragma once

#include "Platform/FileDescriptor.hpp"

namespace molvane::dbus {

/// Wakes a thread that waits for descriptors: its own becomes readable.
class WakeUp {
 public:
  /// Throws std::system_error when there is no descriptor to be had.
  WakeUp();

  [[nodiscard]] const FileDescriptor& descriptor() const noexcept { return descriptor_; }

  /// Makes the descriptor readable. Any thread; it does not fail.
  void signal() const noexcept;
  /// Makes it unreadable until the next signal().
  void clear() const noexcept;

 private:
  FileDescriptor descriptor_;
};

}  // namespace molvane::dbus
