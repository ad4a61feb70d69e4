#include "Base/Json.hpp"

namespace molvane {

JsonValue::JsonValue(const JsonValue& other) {
  std::vector<std::pair<const JsonValue*, JsonValue*>> pending{{&other, this}};
  while (!pending.empty()) {
    const auto [from, to] = pending.back();
    pending.pop_back();
    if (const auto* items = from->as<Array>()) {
      to->value_ = Array(items->size());
    } else if (const auto* members = from->as<Object>()) {
      Object keys(members->size());
      for (std::size_t i = 0; i < keys.size(); ++i) keys[i].key = (*members)[i].key;
      to->value_ = std::move(keys);
    } else {
      to->value_ = from->value_;
    }
    for (std::size_t i = 0; i < from->childCount(); ++i) pending.emplace_back(&from->child(i), &to->child(i));
  }
}

// Must not run out of memory, so it keeps no list. A last child with children of its own takes this value's
// place: this value becomes its first child, and the first child that it had takes the place that it left.
JsonValue::~JsonValue() {
  while (childCount() > 0) {
    JsonValue& last = child(childCount() - 1);
    if (last.childCount() == 0) {
      dropLastChild();
      continue;
    }
    JsonValue risen(std::move(last));
    if (childCount() > 1) {
      last = std::move(risen.child(0));
      risen.child(0) = std::move(*this);
    }
    *this = std::move(risen);
  }
}

bool JsonValue::isNumber() const noexcept {
  return std::holds_alternative<std::int64_t>(value_) || std::holds_alternative<std::uint64_t>(value_) ||
         std::holds_alternative<double>(value_);
}

const JsonValue* JsonValue::find(std::string_view key) const noexcept {
  if (const auto* members = as<Object>()) {
    for (const Member& member : *members) {
      if (member.key == key) return &member.value;
    }
  }
  return nullptr;
}

bool JsonValue::operator==(const JsonValue& other) const {
  std::vector<std::pair<const JsonValue*, const JsonValue*>> pending{{this, &other}};
  while (!pending.empty()) {
    const auto [one, another] = pending.back();
    pending.pop_back();
    if (!one->equalsButForChildren(*another)) return false;
    for (std::size_t i = 0; i < one->childCount(); ++i)
      pending.emplace_back(&one->child(i), &another->child(i));
  }
  return true;
}

bool JsonValue::equalsButForChildren(const JsonValue& other) const {
  if (value_.index() != other.value_.index() || childCount() != other.childCount()) return false;
  const auto* members = as<Object>();
  if (members == nullptr) return as<Array>() != nullptr || value_ == other.value_;
  for (std::size_t i = 0; i < members->size(); ++i) {
    if ((*members)[i].key != (*other.as<Object>())[i].key) return false;
  }
  return true;
}

std::size_t JsonValue::childCount() const noexcept {
  if (const auto* items = as<Array>()) return items->size();
  const auto* members = as<Object>();
  return members == nullptr ? 0 : members->size();
}

const JsonValue& JsonValue::child(std::size_t index) const noexcept {
  const auto* items = as<Array>();
  return items != nullptr ? (*items)[index] : (*as<Object>())[index].value;
}

JsonValue& JsonValue::child(std::size_t index) noexcept {
  auto* items = std::get_if<Array>(&value_);
  return items != nullptr ? (*items)[index] : (*std::get_if<Object>(&value_))[index].value;
}

void JsonValue::dropLastChild() noexcept {
  if (auto* items = std::get_if<Array>(&value_)) return items->pop_back();
  std::get_if<Object>(&value_)->pop_back();
}

}  // namespace molvane
