#pragma once

#include <array>
#include <string_view>

namespace molvane::dbus {

/// A method as it looks on the wire: its types, one after the other as a signature, and its arguments' names.
struct Method {
  std::string_view member;
  std::string_view in;
  std::string_view out;
  std::array<std::string_view, 3> inNames;
  std::array<std::string_view, 2> outNames;
};

// The helper's methods, in the order of MolvaneHelperXPCProtocol. Others build on these names and types; they
// do not change. JSON documents travel as arrays of bytes, a value that may be absent without an error as an
// array of none or one.
inline constexpr Method kPing{"Ping", "", "s", {}, {"answer"}};
inline constexpr Method kRemoveAllowedItem{"RemoveAllowedItemAtPath", "s", "b", {"path"}, {"ok"}};
inline constexpr Method kSizeOfAllowedDirectory{"SizeOfAllowedDirectoryAtPath", "s", "x", {"path"}, {"size"}};
inline constexpr Method kRunMaintenanceTask{"RunMaintenanceTask", "s", "bs", {"taskID"}, {"ok", "message"}};
inline constexpr Method kStartDeviceJob{"StartDeviceJob", "ay", "s", {"spec"}, {"jobID"}};
inline constexpr Method kDeviceJobStatus{"DeviceJobStatus", "s", "ay", {"jobID"}, {"status"}};
inline constexpr Method kCancelDeviceJob{"CancelDeviceJob", "s", "b", {"jobID"}, {"ok"}};
inline constexpr Method kRemoveApplication{"RemoveApplicationAtPath", "s", "b", {"path"}, {"ok"}};
inline constexpr Method kInstallPackage{"InstallPackageAtPath", "s", "bs", {"path"}, {"ok", "message"}};
inline constexpr Method kInstallUnverifiedPackage{
    "InstallUnverifiedPackageAtPath", "s", "bs", {"path"}, {"ok", "message"}};
inline constexpr Method kInstallApplication{
    "InstallApplicationAtPath", "s", "bs", {"path"}, {"ok", "message"}};
inline constexpr Method kManageLocalAccount{
    "ManageLocalAccount", "ay", "aayas", {"operation"}, {"snapshot", "refusal"}};
inline constexpr Method kApplyCompanyAdmin{"ApplyCompanyAdmin", "ay", "ay", {"configuration"}, {"status"}};
inline constexpr Method kCompanyAdminPassword{"CompanyAdminPassword", "", "asas", {}, {"name", "password"}};

}  // namespace molvane::dbus
