#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Base/Date.hpp"

namespace molvane {

/// A value read from a property list. Owns everything below it.
class PropertyList {
 public:
  struct Entry;
  /// In the order of the document.
  using Array = std::vector<PropertyList>;
  /// Ordered by key, each key once.
  using Dictionary = std::vector<Entry>;
  struct Data {
    std::string bytes;
    bool operator==(const Data&) const = default;
  };
  /// Integers are std::int64_t where they fit; std::uint64_t holds only greater ones. Strings are well-formed
  /// UTF-8.
  using Value =
      std::variant<bool, std::int64_t, std::uint64_t, double, Date, std::string, Data, Array, Dictionary>;

  explicit PropertyList(Value value);

  /// A dictionary of `entries` in any order. Of a repeated key the last counts.
  [[nodiscard]] static PropertyList dictionary(std::vector<Entry> entries);

  [[nodiscard]] const Value& value() const noexcept { return value_; }

  /// The value as a T, one of the alternatives of Value; nullptr when it is something else.
  template <typename T>
  [[nodiscard]] const T* as() const noexcept {
    return std::get_if<T>(&value_);
  }

  /// What stands under `key`; nullptr when nothing does or this is no dictionary.
  [[nodiscard]] const PropertyList* find(std::string_view key) const noexcept;

  bool operator==(const PropertyList& other) const;

 private:
  Value value_;
};

struct PropertyList::Entry {
  std::string key;
  PropertyList value;
  bool operator==(const Entry&) const = default;
};

inline PropertyList::PropertyList(Value value) : value_(std::move(value)) {}
inline bool PropertyList::operator==(const PropertyList& other) const { return value_ == other.value_; }

/// The largest document that is read unless the caller knows better, in bytes.
inline constexpr std::size_t kMaximumPropertyListSize = std::size_t{4} << 20U;
/// The deepest nesting of arrays and dictionaries that is read.
inline constexpr std::size_t kMaximumPropertyListDepth = 128;

/// Reads an XML or a binary property list. Nothing when `bytes` are neither, are malformed, or go beyond a
/// limit: `maximumSize` bytes, the depth above, or some tens of megabytes of values (a small binary document
/// can stand for a huge one).
///
/// Strict: XML must be well formed, hold exactly one value in a `plist` element and define no entities; texts
/// must be valid Unicode; dates lie in the years 1 to 9999. Whatever follows the `plist` element is ignored,
/// as a tool may add a warning to the list that it writes. Opens no file and no connection, whatever the
/// document asks for. The old text format is not read.
[[nodiscard]] std::optional<PropertyList> parsePropertyList(
    std::string_view bytes, std::size_t maximumSize = kMaximumPropertyListSize);

/// Reads a property list that is an array and hands over its elements in order, so that those of a long one
/// need not be in memory at once. False when `bytes` are no property list, as above, or one of something
/// else: elements may have been handed over before that shows. What `onElement` throws leaves this function.
[[nodiscard]] bool readPropertyListArray(std::string_view bytes,
                                         const std::function<void(PropertyList)>& onElement,
                                         std::size_t maximumSize = kMaximumPropertyListSize);

}  // namespace molvane
