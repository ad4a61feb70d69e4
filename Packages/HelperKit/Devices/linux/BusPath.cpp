#include "HelperKit/Devices/linux/BusPath.hpp"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <vector>

#include "Base/PathText.hpp"
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

// On a Thunderbolt or USB4 bus "0-0" is the machine, "0-1" is plugged in, "0-0:1.1" and "0-1.1" are parts of
// one.
bool isPluggedIn(const std::string& name) {
  const std::size_t dash = name.find('-');
  return dash != std::string::npos && name.find_first_of(".:") == std::string::npos &&
         name.substr(dash) != "-0";
}

// The folders of the PCI functions that are Thunderbolt hosts and have something plugged in.
std::set<std::string> thunderboltHosts(const std::string& sysfs) {
  const std::string bus = sysfs + "/bus/thunderbolt/devices";
  std::set<std::string> hosts;
  for (const std::string& name : SysfsText::namesIn(bus).value_or(std::vector<std::string>())) {
    std::error_code error;
    const std::string place = std::filesystem::canonical(bus + "/" + name, error).string();
    const std::size_t end = place.find("/domain");
    if (!error && end != std::string::npos && isPluggedIn(name)) hosts.insert(place.substr(0, end));
  }
  return hosts;
}

// The host of a controller chip stands two levels below the bridge by which the chip begins, and the
// devices that are plugged in stand below the same bridge. A host in the processor has no bridge in common
// with its ports: the kernel records that each port is supplied by it.
bool leadsToHost(const std::string& function, const std::string& host) {
  const std::string name = lastPathComponent(host);
  const auto hasLink = [&](const std::string& link) {
    std::error_code error;
    return std::filesystem::is_symlink(function + "/" + link, error);
  };
  const std::string chip = deletingLastPathComponent(deletingLastPathComponent(host));
  return function == chip || hasLink("supplier:pci:" + name) || hasLink("supplier:" + name);
}

// The way through Thunderbolt, from the top down. The firmware says which PCI ports lead out of the case, and
// the kernel marks the bridges behind them. Some firmware says it of slots inside as well, so that the mark
// alone proves nothing: the port or the bridge must belong to a host that has something plugged in.
class ThunderboltWay {
 public:
  explicit ThunderboltWay(const std::string& sysfs) : hosts_(thunderboltHosts(sysfs)) {}

  // Whether the bridge, which is the next on the way, shows that the way leads out.
  bool leadsOutAt(const std::string& bridge) {
    belongsToHost_ =
        belongsToHost_ || std::any_of(hosts_.begin(), hosts_.end(),
                                      [&](const std::string& host) { return leadsToHost(bridge, host); });
    return belongsToHost_ && SysfsText::read(bridge + "/removable") == "removable";
  }

 private:
  const std::set<std::string> hosts_;
  bool belongsToHost_ = false;
};

}  // namespace

bool isVirtual(const std::string& sysfs, const std::string& folder) {
  const std::vector<std::string_view> components = componentsOf(folder, sysfs + "/devices");
  return components.size() > 1 && components[0] == "virtual" && !hasPrefix(components[1], "nvme-");
}

bool isExternal(const std::string& sysfs, const std::string& folder) {
  const std::vector<std::string_view> components = componentsOf(folder, sysfs + "/devices");
  std::string place = sysfs + "/devices";
  ThunderboltWay thunderbolt(sysfs);
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
    if (isBridge ? thunderbolt.leadsOutAt(place) : isCardReader(place)) return true;
  }
  return false;
}

}  // namespace molvane::BusPath
