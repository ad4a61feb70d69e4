#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr const char* kName = "com.molvane.helper";
constexpr const char* kObject = "/com/molvane/helper";
const std::string kAddress = "unix:path=" + std::string(kSocket);

Outcome busctl(std::vector<std::string> arguments, const std::string& program = "/opt/signed/busctl") {
  arguments.insert(arguments.begin(), {program, "--address=" + kAddress, "--no-pager"});
  return run(arguments, kAnn);
}

Outcome busctlCall(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"call", kName, kObject, kName});
  return busctl(std::move(arguments));
}

Outcome gdbus(const std::string& method, const std::vector<std::string>& values = {}) {
  std::vector<std::string> arguments{"/opt/signed/gdbus",
                                     "call",
                                     "--address",
                                     kAddress,
                                     "--dest",
                                     kName,
                                     "--object-path",
                                     kObject,
                                     "--method",
                                     kName + ("." + method)};
  arguments.insert(arguments.end(), values.begin(), values.end());
  return run(arguments, kAnn);
}

Outcome dbusSend(const std::string& method, const std::vector<std::string>& values = {}) {
  std::vector<std::string> arguments{"/opt/signed/dbus-send", "--peer=" + kAddress, "--print-reply", kObject,
                                     kName + ("." + method)};
  arguments.insert(arguments.end(), values.begin(), values.end());
  return run(arguments, kAnn);
}

TEST(RealClients, BusctlCalls) {
  EXPECT_EQ(busctlCall({"Ping"}).out, "s \"pong\"\n");
  const CacheFolder folder("busctl");
  writeFile(folder / "file", "12345");
  EXPECT_EQ(busctlCall({"SizeOfAllowedDirectoryAtPath", "s", folder.path()}).out, "x 5\n");
  EXPECT_EQ(busctlCall({"RemoveAllowedItemAtPath", "s", folder / "file"}).out, "b true\n");
  EXPECT_FALSE(std::filesystem::exists(folder / "file"));
  EXPECT_EQ(busctlCall({"RunMaintenanceTask", "s", "purge-memory"}).out, "bs true \"$ purge \\n\"\n");

  const Outcome refused = busctlCall({"RemoveAllowedItemAtPath", "s", "/etc/passwd"});
  EXPECT_NE(refused.status, 0);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(refused.err, HasSubstr("Path not allowed: /etc/passwd"));
}

TEST(RealClients, GdbusCallsAndIntrospects) {
  const Outcome ping = gdbus("Ping");
  EXPECT_EQ(ping.out, "('pong',)\n") << testing::PrintToString(ping);
  EXPECT_EQ(gdbus("RunMaintenanceTask", {"purge-memory"}).out, "(true, '$ purge \\n')\n");
  const Outcome refused = gdbus("RunMaintenanceTask", {"restart-dock"});
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.err, AllOf(HasSubstr("com.molvane.helper.TaskNotPrivileged"),
                                 HasSubstr("Task restart-dock does not need root; run it from the app.")));

  const Outcome description = run(
      {"/opt/signed/gdbus", "introspect", "--address", kAddress, "--dest", kName, "--object-path", kObject},
      kAnn);
  EXPECT_EQ(description.status, 0) << testing::PrintToString(description);
  EXPECT_THAT(description.out,
              AllOf(HasSubstr("interface com.molvane.helper {"), HasSubstr("CompanyAdminPassword(")));
}

TEST(RealClients, DbusSendCallsAndIntrospects) {
  const Outcome ping = dbusSend("Ping");
  EXPECT_EQ(ping.status, 0) << testing::PrintToString(ping);
  EXPECT_THAT(ping.out, HasSubstr("   string \"pong\"\n"));
  const Outcome refused = dbusSend("SizeOfAllowedDirectoryAtPath", {"string:/var/root/Library/Caches/gone"});
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err,
            "Error com.molvane.helper.NotFound: Path not found: /var/root/Library/Caches/gone\n");

  const Outcome description = run({"/opt/signed/dbus-send", "--peer=" + kAddress, "--print-reply", kObject,
                                   "org.freedesktop.DBus.Introspectable.Introspect"},
                                  kAnn);
  EXPECT_EQ(description.status, 0) << testing::PrintToString(description);
  EXPECT_THAT(description.out, HasSubstr("<method name=\"SizeOfAllowedDirectoryAtPath\">"));
}

}  // namespace
}  // namespace molvane::e2e
