#pragma once

#include "Platform/FileDescriptor.hpp"

namespace molvane {

/// Takes from an open file or folder the extended attributes that give somebody rights beyond its mode: file
/// capabilities and access control lists. Others stay. Throws std::system_error.
void removeGrantingAttributes(const FileDescriptor& item);

}  // namespace molvane
