#include "HelperKit/Devices/linux/BlockDevice.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <limits>
#include <system_error>

#include "Base/PathText.hpp"
#include "HelperKit/Devices/linux/BusPath.hpp"
#include "HelperKit/Devices/linux/SysfsText.hpp"

namespace molvane {
namespace {

constexpr std::int64_t kSectorSize = 512;  // of the size file, whatever the disk's own blocks are

// A name that is one component of a path and nothing else.
bool isPlainName(const std::string& name) {
  constexpr std::size_t kLongest = 255;
  return !name.empty() && name.size() <= kLongest && name != "." && name != ".." &&
         name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

std::optional<std::string> withoutLinks(const std::string& path) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(path, error);
  if (error) return std::nullopt;
  return real.string();
}

std::optional<std::int64_t> numberIn(const std::string& path) {
  const std::string text = SysfsText::read(path).value_or("");
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::int64_t sizeIn(const std::string& folder) {
  const std::int64_t sectors = numberIn(folder + "/size").value_or(0);
  return sectors < 0 || sectors > std::numeric_limits<std::int64_t>::max() / kSectorSize
             ? 0
             : sectors * kSectorSize;
}

// Buffers are aligned to it, so that it must be a power of two of a sane size.
std::int64_t blockSizeIn(const std::string& diskFolder) {
  constexpr std::int64_t kLargest = std::int64_t{1} << 20;
  const std::int64_t size = numberIn(diskFolder + "/queue/logical_block_size").value_or(kSectorSize);
  const bool isSane = size >= kSectorSize && size <= kLargest && (size & (size - 1)) == 0;
  return isSane ? size : kSectorSize;
}

bool hasRemovableMedium(const std::string& diskFolder) {
  return SysfsText::read(diskFolder + "/removable") == "1" ||
         SysfsText::read(diskFolder + "/events").value_or("").find("eject_request") != std::string::npos;
}

}  // namespace

std::optional<BlockDevice> BlockDevice::find(const std::string& sysfs, const std::string& name) {
  if (!isPlainName(name)) return std::nullopt;
  const std::optional<std::string> root = withoutLinks(sysfs);
  if (!root) return std::nullopt;
  const std::optional<std::string> folder = withoutLinks(*root + "/class/block/" + name);
  const bool isInside = folder && folder->compare(0, root->size() + 1, *root + "/") == 0;
  if (!isInside || SysfsText::read(*folder + "/hidden") == "1") return std::nullopt;
  return BlockDevice(*root, name, *folder);
}

std::vector<std::string> BlockDevice::allNames(const std::string& sysfs) {
  return SysfsText::namesIn(sysfs + "/class/block").value_or(std::vector<std::string>());
}

DeviceFacts BlockDevice::facts() const {
  const bool isVirtual = BusPath::isVirtual(sysfs_, folder_);
  const std::string disk = diskFolder();
  return {.bsdName = name_,
          .isWhole = !isPartition() && SysfsText::hasLine(folder_ + "/uevent", "DEVTYPE=disk"),
          .isInternal = !isVirtual && !BusPath::isExternal(sysfs_, folder_),
          .isRemovableOrEjectable = hasRemovableMedium(disk),
          .sizeBytes = sizeIn(folder_),
          .blockSize = blockSizeIn(disk),
          .isVirtual = isVirtual};
}

bool BlockDevice::isPartition() const {
  return SysfsText::read(folder_ + "/partition").has_value() ||
         SysfsText::hasLine(folder_ + "/uevent", "DEVTYPE=partition");
}

std::string BlockDevice::parentName() const { return lastPathComponent(deletingLastPathComponent(folder_)); }

std::string BlockDevice::diskFolder() const {
  return isPartition() ? deletingLastPathComponent(folder_) : folder_;
}

std::optional<std::vector<std::string>> BlockDevice::slaves() const {
  return SysfsText::namesIn(folder_ + "/slaves");
}

std::string BlockDevice::backingFile() const {
  return SysfsText::read(folder_ + "/loop/backing_file").value_or("");
}

std::string BlockDevice::number() const { return SysfsText::read(folder_ + "/dev").value_or(""); }

std::string BlockDevice::mapperName() const { return SysfsText::read(folder_ + "/dm/name").value_or(""); }

}  // namespace molvane
