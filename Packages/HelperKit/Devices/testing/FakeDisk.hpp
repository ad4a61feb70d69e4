#pragma once

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "HelperKit/Devices/DeviceJobWork.hpp"
#include "Platform/RawDevice.hpp"

namespace molvane::testing {

/// Bytes that look like nothing and are the same every time.
inline std::string noise(std::size_t size, unsigned seed = 1) {
  std::mt19937_64 random(seed);
  std::string bytes(size + 8, '\0');
  for (std::size_t at = 0; at < size; at += 8) {
    const std::uint64_t word = random();
    std::memcpy(bytes.data() + at, &word, sizeof word);
  }
  bytes.resize(size);
  return bytes;
}

/// A disk in memory that fails where it is told to. Its faults are set before a job uses it.
struct FakeDisk {
  enum class Request { read, write, sync };

  explicit FakeDisk(std::size_t size, char fill = '\xAA') : content(size, fill) {}
  explicit FakeDisk(std::string bytes) : content(std::move(bytes)) {}

  std::string content;
  std::set<std::int64_t> badSectors;  ///< numbers of 512-byte sectors that do not read
  std::int64_t writeFailsAt = std::numeric_limits<std::int64_t>::max();
  int writeError = EIO;
  std::int64_t readEndsAt = std::numeric_limits<std::int64_t>::max();  ///< nothing is read from here on
  std::size_t mostAtOnce = std::numeric_limits<std::size_t>::max();    ///< of one request, in bytes
  std::int64_t liesAt = -1;  ///< what is written to this byte becomes something else
  int openError = 0;
  std::function<void(Request, std::int64_t)> onRequest = [](Request, std::int64_t) {};

  std::atomic<int> reads = 0;
  std::atomic<int> failedReads = 0;
  std::atomic<std::size_t> largestRequest = 0;
  std::atomic<bool> isGone = false;  ///< pulled out; may change while a job uses it
  std::atomic<int> openCount = 0;
  RawDeviceRequest opened;  ///< the last one

  /// Hands out devices on this disk, which must outlive them.
  [[nodiscard]] RawDeviceOpener opener();

  class Device;
};

class FakeDisk::Device final : public RawDevice {
 public:
  explicit Device(FakeDisk& disk) : disk_(disk) { ++disk_.openCount; }
  ~Device() override { --disk_.openCount; }

  IoResult readAt(std::span<std::byte> bytes, std::int64_t offset) override {
    disk_.onRequest(Request::read, offset);
    ++disk_.reads;
    note(bytes.size());
    const auto requestEnd = offset + static_cast<std::int64_t>(bytes.size());
    if (disk_.isGone) return {0, ENODEV, true};
    const auto first = disk_.badSectors.lower_bound(offset / 512);
    if (first != disk_.badSectors.end() && *first * 512 < requestEnd) {
      ++disk_.failedReads;
      return {0, EIO};
    }
    const std::int64_t end = std::min(disk_.readEndsAt, static_cast<std::int64_t>(disk_.content.size()));
    if (offset >= end) return {};
    const std::size_t count =
        std::min({bytes.size(), static_cast<std::size_t>(end - offset), disk_.mostAtOnce});
    std::memcpy(bytes.data(), disk_.content.data() + offset, count);
    return {count, 0};
  }

  IoResult writeAt(std::span<const std::byte> bytes, std::int64_t offset) override {
    disk_.onRequest(Request::write, offset);
    note(bytes.size());
    const auto end = offset + static_cast<std::int64_t>(bytes.size());
    if (reinterpret_cast<std::uintptr_t>(bytes.data()) % 512 != 0 || bytes.size() % 512 != 0)
      return {0, EINVAL};
    if (end > disk_.writeFailsAt) return {0, disk_.writeError};
    if (end > static_cast<std::int64_t>(disk_.content.size())) return {0, ENOSPC};
    const std::size_t count = std::min(bytes.size(), disk_.mostAtOnce);
    std::memcpy(disk_.content.data() + offset, bytes.data(), count);
    if (disk_.liesAt >= offset && disk_.liesAt < end) disk_.content[disk_.liesAt] ^= 1;
    return {count, 0};
  }

  int sync() override {
    disk_.onRequest(Request::sync, 0);
    return 0;
  }

 private:
  void note(std::size_t size) { disk_.largestRequest = std::max<std::size_t>(disk_.largestRequest, size); }

  FakeDisk& disk_;
};

inline RawDeviceOpener FakeDisk::opener() {
  return [this](const RawDeviceRequest& request) {
    opened = request;
    if (openError != 0) throw std::system_error(openError, std::generic_category());
    return std::make_unique<Device>(*this);
  };
}

}  // namespace molvane::testing
