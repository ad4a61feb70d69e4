#include "Base/PropertyList.hpp"

#include <algorithm>
#include <iterator>

#include "Base/PropertyListReaders.hpp"

namespace molvane {

PropertyList PropertyList::dictionary(std::vector<Entry> entries) {
  const auto byKey = [](const Entry& a, const Entry& b) { return a.key < b.key; };
  const auto notInOrder = [](const Entry& a, const Entry& b) { return a.key >= b.key; };
  // What a tool prints is in order, mostly.
  if (std::adjacent_find(entries.begin(), entries.end(), notInOrder) == entries.end()) {
    return PropertyList(std::move(entries));
  }
  const auto sameKey = [](const Entry& a, const Entry& b) { return a.key == b.key; };
  // Sorted from the back, so that the last of equal keys comes first and is the one that unique() keeps.
  std::reverse(entries.begin(), entries.end());
  std::stable_sort(entries.begin(), entries.end(), byKey);
  entries.erase(std::unique(entries.begin(), entries.end(), sameKey), entries.end());
  return PropertyList(std::move(entries));
}

const PropertyList* PropertyList::find(std::string_view key) const noexcept {
  const auto* entries = as<Dictionary>();
  if (entries == nullptr) return nullptr;
  const auto found =
      std::lower_bound(entries->begin(), entries->end(), key,
                       [](const Entry& entry, std::string_view wanted) { return entry.key < wanted; });
  return found != entries->end() && found->key == key ? &found->value : nullptr;
}

bool isPropertyListDate(Date date) noexcept {
  constexpr double kFirst = -62135596800;  // 0001-01-01T00:00:00Z
  constexpr double kEnd = 253402300800;    // 10000-01-01T00:00:00Z
  return date.unixSeconds() >= kFirst && date.unixSeconds() < kEnd;
}

std::optional<PropertyList> parsePropertyList(std::string_view bytes, std::size_t maximumSize) {
  if (bytes.size() > maximumSize) return std::nullopt;
  if (bytes.substr(0, kBinaryPropertyListMagic.size()) == kBinaryPropertyListMagic) {
    return parseBinaryPropertyList(bytes);
  }
  return parseXmlPropertyList(bytes, nullptr);
}

bool readPropertyListArray(std::string_view bytes, const std::function<void(PropertyList)>& onElement,
                           std::size_t maximumSize) {
  if (bytes.size() > maximumSize) return false;
  const bool isBinary = bytes.substr(0, kBinaryPropertyListMagic.size()) == kBinaryPropertyListMagic;
  const std::optional<PropertyList> list =
      isBinary ? parseBinaryPropertyList(bytes) : parseXmlPropertyList(bytes, &onElement);
  const auto* elements = list ? list->as<PropertyList::Array>() : nullptr;
  if (elements == nullptr) return false;
  for (const PropertyList& element : *elements) onElement(element);
  return true;
}

}  // namespace molvane
