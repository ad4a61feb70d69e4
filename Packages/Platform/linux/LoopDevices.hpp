#pragma once

#include <sys/types.h>

#include <vector>

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// Claims every loop device that shows the disk `number`, a partition of it, or another loop device that
/// does: a loop device does not claim what it shows, so that a volume mounted through it would go unnoticed.
/// They stay claimed as long as the descriptors live. Throws std::system_error, EBUSY when one of them is in
/// use.
[[nodiscard]] std::vector<FileDescriptor> claimLoopDevicesOver(dev_t number);

}  // namespace molvane
