#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "Base/PropertyList.hpp"

namespace molvane {

/// What every binary property list begins with.
inline constexpr std::string_view kBinaryPropertyListMagic = "bplist00";

/// Whether `date` lies in the years that a property list can name.
[[nodiscard]] bool isPropertyListDate(Date date) noexcept;

using PropertyListHandler = std::function<void(PropertyList)>;

/// The two halves of parsePropertyList, which has looked at the size. With a handler, which must outlive the
/// call, the elements of an array at the top go to it instead, and an empty array is what is returned.
[[nodiscard]] std::optional<PropertyList> parseXmlPropertyList(std::string_view bytes,
                                                               const PropertyListHandler* onElement);
[[nodiscard]] std::optional<PropertyList> parseBinaryPropertyList(std::string_view bytes);

}  // namespace molvane
