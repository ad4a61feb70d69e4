#include "HelperProtocol/dbus/MachineID.hpp"

#include <algorithm>
#include <fstream>

#include "Base/Ascii.hpp"

namespace molvane::dbus {

namespace {

constexpr std::size_t kLength = 32;

}  // namespace

std::optional<std::string> machineID() {
  for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
    std::string id(kLength, '\0');
    std::ifstream file(path, std::ios::binary);
    if (!file.read(id.data(), static_cast<std::streamsize>(id.size()))) continue;
    if (std::all_of(id.begin(), id.end(), isLowercaseHexDigit)) return id;
  }
  return std::nullopt;
}

}  // namespace molvane::dbus
