#include <gtest/gtest.h>

#include "GoldenRows.hpp"
#include "HelperProtocol/DeviceJobSpec.hpp"
#include "HelperProtocol/DeviceJobStatus.hpp"

namespace molvane::golden {
namespace {

TEST(GoldenJson, DeviceJobSpec) { checkJsonRows<DeviceJobSpec>("DeviceJobSpec"); }
TEST(GoldenJson, DeviceJobStatus) { checkJsonRows<DeviceJobStatus>("DeviceJobStatus"); }

}  // namespace
}  // namespace molvane::golden
