#include "Base/PathText.hpp"

#include <algorithm>

namespace molvane {

namespace {

std::string_view withoutTrailingSlashes(std::string_view path) noexcept {
  while (!path.empty() && path.back() == '/') path.remove_suffix(1);
  return path;
}

std::string_view lastComponent(std::string_view path) noexcept {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  if (trimmed.empty()) return path.substr(0, 1);
  return trimmed.substr(trimmed.rfind('/') + 1);
}

std::string withSingleSlashes(std::string_view path) {
  std::string text(path);
  const auto end = std::unique(text.begin(), text.end(), [](char a, char b) { return a == '/' && b == '/'; });
  text.erase(end, text.end());
  return text;
}

}  // namespace

std::string lastPathComponent(std::string_view path) { return std::string(lastComponent(path)); }

std::string pathExtension(std::string_view path) {
  const std::string_view component = lastComponent(path);
  const std::size_t dot = component.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return std::string(component.substr(dot + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  const std::string_view trimmed = withoutTrailingSlashes(path);
  const std::size_t slash = trimmed.rfind('/');
  if (slash == std::string_view::npos) return isAbsolutePath(path) ? "/" : "";
  const std::string_view parent = withoutTrailingSlashes(trimmed.substr(0, slash));
  return parent.empty() ? "/" : withSingleSlashes(parent);
}

std::string appendingPathComponent(std::string_view path, std::string_view component) {
  if (path.empty()) return std::string(component);
  if (component.empty()) return std::string(path);
  std::string joined(withoutTrailingSlashes(path));
  joined += '/';
  while (!component.empty() && component.front() == '/') component.remove_prefix(1);
  joined += component;
  return joined;
}

bool isAbsolutePath(std::string_view path) noexcept { return !path.empty() && path.front() == '/'; }

}  // namespace molvane
