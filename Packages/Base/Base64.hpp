#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace molvane {

/// The bytes that `text`, base64 with the standard alphabet and padding, stands for. Nothing for any other
/// text, such as one with white space in it or cut off.
[[nodiscard]] std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace molvane
