#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <variant>

namespace molvane {

using WholeNumber = std::variant<std::int64_t, std::uint64_t>;

/// The exact value of `literal`, a well-formed JSON number, when it is whole and in the range of one of the
/// two types; the unsigned one holds only what the signed one cannot.
[[nodiscard]] std::optional<WholeNumber> wholeNumberOf(std::string_view literal);

}  // namespace molvane
