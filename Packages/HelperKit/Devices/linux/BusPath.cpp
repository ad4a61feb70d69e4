#include "HelperKit/Devices/linux/BusPath.hpp"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "HelperKit/Devices/linux/SysfsText.hpp"

namespace molvane::BusPath {
namespace {

// The components below /sys/devices, the disk's own last; none for a folder that is elsewhere.
std::vector<std::string_view> componentsOf(std::string_view folder, std::string_view devices) {
  std::vector<std::string_view> components;
  if (folder.substr(0, devices.size()) != devices) return components;
  folder.remove_prefix(devices.size());
  while (!folder.empty()) {
    const std::size_t end = std::min(folder.find('/'), folder.size());
    if (end > 0) components.push_back(folder.substr(0, end));
    folder.remove_prefix(std::min(end + 1, folder.size()));
  }
  return components;
}

bool hasPrefix(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

// "usb1" for "usb"
bool isNumbered(std::string_view component, std::string_view kind) {
  return hasPrefix(component, kind) && component.size() > kind.size() &&
         component.find_first_not_of("0123456789", kind.size()) == std::string_view::npos;
}

// Such as 0000:03:00.0; other names with a colon lack the files that are looked into.
bool isPciFunction(std::string_view component) { return component.find(':') != std::string_view::npos; }

// Realtek's readers on PCI have no class of their own, and their drivers show the card as a SCSI disk.
bool isCardReader(const std::string& function) {
  const std::vector<std::string> facts = {"PCI_CLASS=FF0000", "PCI_ID=10EC:"};
  const std::string uevent = "\n" + SysfsText::read(function + "/uevent").value_or("");
  return std::all_of(facts.begin(), facts.end(),
                     [&](const std::string& fact) { return uevent.find("\n" + fact) != std::string::npos; });
}

// An eMMC is soldered in and says MMC, as an old card of that kind does; those are refused with it.
bool isCard(const std::string& mmcDevice) {
  return hasPrefix(SysfsText::read(mmcDevice + "/type").value_or(""), "SD");
}

// Whether anything but the machine itself is on a Thunderbolt or USB4 bus: "0-0" is the machine, "0-1" is
// not, "0-0:1.1" and "0-1.1" are parts of one.
bool hasThunderboltDevice(const std::string& sysfs) {
  const auto names = SysfsText::namesIn(sysfs + "/bus/thunderbolt/devices");
  return names && std::any_of(names->begin(), names->end(), [](const std::string& name) {
           const std::size_t dash = name.find('-');
           return dash != std::string::npos && name.find_first_of(".:") == std::string::npos &&
                  name.substr(dash) != "-0";
         });
}

// The firmware says which PCI ports lead out of the case, and the kernel marks what lies behind them. Some
// firmware says it of slots inside as well, so that the mark alone proves nothing: there has to be a bus to
// lead out of the case, and the first thing behind the port is a bridge, where a slot has the disk itself.
bool isThunderboltBridge(const std::string& sysfs, const std::string& function) {
  return SysfsText::read(function + "/removable") == "removable" && hasThunderboltDevice(sysfs);
}

}  // namespace

bool isVirtual(const std::string& sysfs, const std::string& folder) {
  const std::vector<std::string_view> components = componentsOf(folder, sysfs + "/devices");
  return components.size() > 1 && components[0] == "virtual" && !hasPrefix(components[1], "nvme-");
}

bool isExternal(const std::string& sysfs, const std::string& folder) {
  const std::vector<std::string_view> components = componentsOf(folder, sysfs + "/devices");
  std::string place = sysfs + "/devices";
  for (std::size_t index = 0; index < components.size(); ++index) {
    const std::string_view component = components[index];
    place.append("/").append(component);
    if (isNumbered(component, "usb") || isNumbered(component, "fw") || component == "memstick_host") {
      return true;
    }
    const bool isBelowMmcHost = index >= 2 && components[index - 2] == "mmc_host";
    if (isBelowMmcHost && isCard(place)) return true;
    if (!isPciFunction(component)) continue;
    const bool isBridge = index + 1 < components.size() && isPciFunction(components[index + 1]);
    if (isBridge ? isThunderboltBridge(sysfs, place) : isCardReader(place)) return true;
  }
  return false;
}

}  // namespace molvane::BusPath
