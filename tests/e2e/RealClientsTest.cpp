#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Harness.hpp"

namespace molvane::e2e {
namespace {

using testing::HasSubstr;

constexpr const char* kName = "com.molvane.helper";
constexpr const char* kObject = "/com/molvane/helper";

Outcome busctlCall(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"/opt/signed/busctl", "--address=unix:path=" + std::string(kSocket),
                                       "--no-pager", "call", kName, kObject, kName});
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

}  // namespace
}  // namespace molvane::e2e
