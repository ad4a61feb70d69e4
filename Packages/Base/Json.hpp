#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Base/CaseError.hpp"

// JSON as values. How our own types are written as JSON and read from it stands in JsonCoding.hpp.

namespace molvane {

enum class DecodingFailure { typeMismatch, keyNotFound, valueNotFound, dataCorrupted };

struct DecodingContext {
  /// The keys and indices that lead to the value, joined by dots; empty at the top.
  std::string codingPath;
  /// What is wrong, for a log: never quotes a text from the document, which may be secret.
  std::string debugDescription;
  bool operator==(const DecodingContext&) const = default;
};

[[nodiscard]] std::string describe(DecodingFailure failure, const DecodingContext& context);

/// A document, or a value in one, is not what it should be.
using DecodingError = CaseError<DecodingFailure, DecodingContext>;

/// A JSON value that owns everything below it. Copying, comparing and freeing one need no more stack for a
/// deep value than for a flat one.
///
/// A number that is whole and fits is an integer however it was written (`501.0`, `5.01e2`): std::int64_t
/// where that holds it, else std::uint64_t. Every other number is a double. So equal numbers are equal
/// values.
class JsonValue {
 public:
  struct Member;
  using Null = std::monostate;
  using Array = std::vector<JsonValue>;
  /// Members in the order of the document, repeated keys included; find() gives the one that counts.
  using Object = std::vector<Member>;
  using Value = std::variant<Null, bool, std::int64_t, std::uint64_t, double, std::string, Array, Object>;

  JsonValue() = default;
  explicit JsonValue(Value value);
  JsonValue(const JsonValue& other);
  JsonValue(JsonValue&& other) noexcept;
  JsonValue& operator=(const JsonValue& other);
  JsonValue& operator=(JsonValue&& other) noexcept;
  ~JsonValue();

  [[nodiscard]] const Value& value() const noexcept { return value_; }
  [[nodiscard]] bool isNull() const noexcept { return std::holds_alternative<Null>(value_); }
  [[nodiscard]] bool isNumber() const noexcept;

  /// The value as a T, one of the alternatives of Value; nullptr when it is something else.
  template <typename T>
  [[nodiscard]] const T* as() const noexcept {
    return std::get_if<T>(&value_);
  }

  /// The value of the first member of that key; nullptr when there is none or this is no object.
  [[nodiscard]] const JsonValue* find(std::string_view key) const noexcept;

  /// Arrays and objects in the same order, numbers by value.
  bool operator==(const JsonValue& other) const;

 private:
  /// The values right below this one.
  [[nodiscard]] std::size_t childCount() const noexcept;
  [[nodiscard]] const JsonValue& child(std::size_t index) const noexcept;
  [[nodiscard]] JsonValue& child(std::size_t index) noexcept;
  void dropLastChild() noexcept;

  [[nodiscard]] bool equalsButForChildren(const JsonValue& other) const;

  Value value_;
};

struct JsonValue::Member {
  std::string key;
  JsonValue value;
  bool operator==(const Member&) const = default;
};

// Here, where Member is complete.
inline JsonValue::JsonValue(Value value) : value_(std::move(value)) {}
inline JsonValue::JsonValue(JsonValue&& other) noexcept = default;
inline JsonValue& JsonValue::operator=(JsonValue&& other) noexcept = default;
inline JsonValue& JsonValue::operator=(const JsonValue& other) { return *this = JsonValue(other); }

/// The largest document that is read, in bytes.
inline constexpr std::size_t kMaximumJsonSize = std::size_t{4} << 20U;
/// The deepest nesting of arrays and objects that is read. It bounds what a fromJson of a type that holds
/// itself may recurse; nothing here or in JsonValue recurses with the depth.
inline constexpr std::size_t kMaximumJsonDepth = 512;

/// Reads one JSON document (RFC 8259). Throws a DecodingError of dataCorrupted for anything else, for a
/// document beyond one of the limits above, and for a number that no double holds.
///
/// Strict: well-formed UTF-8 without a byte order mark, no comments, no trailing commas, no lone surrogates.
[[nodiscard]] JsonValue parseJson(std::string_view bytes);

/// The value as a JSON document in one line, members in their order. What is no UTF-8 in a text is written as
/// U+FFFD. Writes a value of any depth, also one that parseJson would refuse. Throws std::invalid_argument
/// for a number that is not finite.
[[nodiscard]] std::string jsonText(const JsonValue& value);

}  // namespace molvane
