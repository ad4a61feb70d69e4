#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <variant>

#include "Base/Characters.hpp"
#include "Base/HashCombine.hpp"
#include "Base/JsonCoding.hpp"

// Types whose document is one object name its members once. Reading, writing, comparing and hashing follow
// from that:
//
//   struct SetAdmin {
//     std::string name;
//     bool admin = false;
//     static constexpr auto members() {
//       return std::tuple(JsonMember{"name", &SetAdmin::name}, JsonMember{"admin", &SetAdmin::admin});
//     }
//   };
//
// A union of types is an object with one member, whose key names the case:
//
//   struct Change {
//     std::variant<SetAdmin, Delete> one;
//     static constexpr auto cases() { return JsonCases{&Change::one, std::array{"setAdmin"sv, "delete"sv}}; }
//   };
//
// Values of such types are equal when all members are. Two texts are equal when they are the same characters,
// however their accents are composed; comparing and hashing texts beyond ASCII throws std::runtime_error when
// the Unicode library is missing.

namespace molvane {

/// One member of a document: its key, and where it stands in the type. An absent std::optional is left out of
/// the document.
template <typename Type, typename Value>
struct JsonMember {
  std::string_view key;
  Value Type::*value;
};
template <typename Type, typename Value>
JsonMember(std::string_view, Value Type::*) -> JsonMember<Type, Value>;

/// The cases of a union: where its value stands in the type, and their keys in the order of the variant.
template <typename Type, typename... Cases>
struct JsonCases {
  std::variant<Cases...> Type::*value;
  std::array<std::string_view, sizeof...(Cases)> keys;
};
template <typename Type, typename... Cases>
JsonCases(std::variant<Cases...> Type::*, std::array<std::string_view, sizeof...(Cases)>)
    -> JsonCases<Type, Cases...>;

template <typename T>
concept JsonObjectType = requires {
  T::members();
};
template <typename T>
concept JsonUnionType = requires {
  T::cases();
};

/// Reads the members in their order. Throws a DecodingError.
template <JsonObjectType T>
void fromJson(const JsonValue& json, T& value) {
  const JsonObjectReader object(json);
  std::apply([&](const auto&... member) { (object.read(member.key, value.*member.value), ...); },
             T::members());
}

template <JsonObjectType T>
[[nodiscard]] JsonValue toJson(const T& value) {
  JsonObjectWriter object;
  std::apply([&](const auto&... member) { (object.add(std::string(member.key), value.*member.value), ...); },
             T::members());
  return object.take();
}

namespace json {

// Not a lambda in fromJson below: there g++ 12 takes the wrong offset for the pointer to member.
template <typename... Cases, std::size_t... Index>
void readCase(const JsonObjectReader& object, std::string_view key, std::variant<Cases...>& value,
              std::span<const std::string_view> keys, std::index_sequence<Index...> /*indices*/) {
  ((keys[Index] == key ? object.read(key, value.template emplace<Index>()) : void()), ...);
}

}  // namespace json

/// Throws a DecodingError. A document that names no case, or several, is refused as typeMismatch, "Invalid
/// number of keys found, expected one."; a key that names no case is passed over.
template <JsonUnionType T>
void fromJson(const JsonValue& document, T& value) {
  const JsonObjectReader object(document);
  constexpr auto cases = T::cases();
  json::readCase(object, object.onlyCase(cases.keys), value.*cases.value, cases.keys,
                 std::make_index_sequence<cases.keys.size()>());
}

template <JsonUnionType T>
[[nodiscard]] JsonValue toJson(const T& value) {
  constexpr auto cases = T::cases();
  const auto& chosen = value.*cases.value;
  const std::string key(cases.keys[chosen.index()]);
  return std::visit([&](const auto& one) { return JsonObjectWriter().add(key, one).take(); }, chosen);
}

namespace json {

template <typename T>
bool same(const T& a, const T& b) {
  return a == b;
}
inline bool same(const std::string& a, const std::string& b) { return canonicallyEqual(a, b); }
inline bool same(const std::optional<std::string>& a, const std::optional<std::string>& b) {
  return a.has_value() == b.has_value() && (!a || same(*a, *b));
}

template <typename T>
std::size_t hashOfMember(const T& value) {
  return hashOf(value);
}
inline std::size_t hashOfMember(const std::string& value) { return hashOf(canonicalForm(value)); }
inline std::size_t hashOfMember(const std::optional<std::string>& value) {
  return value ? hashCombined({1, hashOfMember(*value)}) : 0;
}

}  // namespace json

template <JsonObjectType T>
[[nodiscard]] bool operator==(const T& a, const T& b) {
  return std::apply(
      [&](const auto&... member) { return (json::same(a.*member.value, b.*member.value) && ...); },
      T::members());
}

template <JsonUnionType T>
[[nodiscard]] bool operator==(const T& a, const T& b) {
  constexpr auto value = T::cases().value;
  return a.*value == b.*value;
}

/// Of all members, in their order. Equal values have the same hash.
template <JsonObjectType T>
[[nodiscard]] std::size_t hashOfMembers(const T& value) {
  return std::apply(
      [&](const auto&... member) { return hashCombined({json::hashOfMember(value.*member.value)...}); },
      T::members());
}

}  // namespace molvane
