#pragma once

#include <optional>
#include <string_view>

#include "Base/PropertyList.hpp"

namespace molvane {

/// What every binary property list begins with.
inline constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

/// Whether `date` lies in the years that a property list can name.
[[nodiscard]] bool isPropertyListDate(Date date) noexcept;

/// The two halves of parsePropertyList, which has looked at the size.
[[nodiscard]] std::optional<PropertyList> parseXmlPropertyList(std::string_view bytes);
[[nodiscard]] std::optional<PropertyList> parseBinaryPropertyList(std::string_view bytes);

}  // namespace molvane
